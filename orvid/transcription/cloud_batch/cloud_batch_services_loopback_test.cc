// Every batch speech service end to end: the real libcurl client against its
// loopback replica, which checks what arrives and answers as the service does.
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/base64.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"
#include "orvid/transcription/cloud_batch/loopback_batch_speech_services.h"

namespace orvid {
namespace {

using API = CloudTranscriptionProviderAPI;
using Option = TranscriptionProviderOptionValue;
using testing::LoopbackBatchSpeechServices;
using testing::ReplicaRequest;
using testing::ReplicaScenario;
using nlohmann::json;

// 0.25 s of a quiet square wave at 16 kHz, in two frames.
TranscriptionRequest recording() {
  TranscriptionRequest request;
  for (int f = 0; f < 2; ++f) {
    PCMFrame frame{{}, 16000, 1, 2000};
    for (int i = 0; i < 2000; ++i) {
      std::int16_t sample = (i / 20) % 2 == 0 ? 900 : -900;
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>(sample & 0xFF));
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>((sample >> 8) & 0xFF));
    }
    request.audioFrames.push_back(std::move(frame));
  }
  return request;
}

struct Service {
  std::string id;
  API api;
  std::string model;
};

const std::vector<Service>& services() {
  static const std::vector<Service> all = {
      {"deepgram", API::deepgram, "nova-3"},          {"elevenlabs", API::elevenLabs, "scribe_v2"},
      {"cartesia", API::cartesia, "ink-whisper"},     {"mistral", API::mistral, "voxtral-mini-latest"},
      {"soniox", API::soniox, "stt-rt-v4"},           {"assemblyai", API::assemblyAI, "universal-2"},
      {"glm", API::glm, "glm-asr-2512"},              {"stepfun", API::stepFun, "StepAudio-2-ASR-Pro"},
      {"aliyun-bailian", API::aliyunCompatible, "qwen3-asr-flash"}};
  return all;
}

class CloudBatchServicesTest : public ::testing::Test {
 protected:
  LoopbackBatchSpeechServices replicas;
  std::shared_ptr<CurlOrvidHTTPClient> http = std::make_shared<CurlOrvidHTTPClient>();
  std::vector<std::chrono::milliseconds> pauses;
  std::optional<std::size_t> stopAfterPauses;
  std::stop_source deadline;

  CloudBatchTranscriptionProvider provider(const Service& service, std::string key = LoopbackBatchSpeechServices::kKey) {
    auto store = std::make_shared<InMemoryOrvidCredentialStore>(
        std::map<std::string, std::string>{{"provider.main.api-key", std::move(key)}});
    // Polls run back to back; the caller's deadline may fall after a number of them.
    auto pause = [this](std::chrono::milliseconds length, std::stop_token) {
      pauses.push_back(length);
      if (stopAfterPauses && pauses.size() >= *stopAfterPauses) deadline.request_stop();
    };
    return CloudBatchTranscriptionProvider(service.id, URL::parse(replicas.baseURL(service.id)).value(), service.api,
                                           "main", service.model, store, http, {}, pause);
  }
};

TEST_F(CloudBatchServicesTest, EveryServiceTranscribesARecordingThroughItsReplica) {
  struct Case {
    std::string service;
    std::optional<std::string> language;
    std::vector<std::string> hints;
    TranscriptionProviderOptions options;
    std::optional<std::string> promptHint;
    std::size_t exchanges;
    std::function<void(const std::vector<ReplicaRequest>&)> check;
  };
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  auto content = [](const ReplicaRequest& request, const char* name) {
    const auto* part = request.part(name);
    return part ? std::optional(part->content) : std::nullopt;
  };
  const std::vector<Case> cases = {
      {"deepgram", "en", {}, {}, "Brindle Orvid", 1,
       [](const auto& sent) {
         EXPECT_EQ(sent[0].query, (Pairs{{"model", "nova-3"}, {"smart_format", "true"}, {"language", "en"},
                                         {"keywords", "Brindle Orvid"}}));
       }},
      {"elevenlabs", "pt-BR", {}, {{"enable_speaker_diarization", Option::boolean(true)}}, std::nullopt, 1,
       [&](const auto& sent) {
         EXPECT_EQ(content(sent[0], "model_id"), "scribe_v2");
         EXPECT_EQ(content(sent[0], "language_code"), "por");
         EXPECT_EQ(content(sent[0], "diarize"), "true");
       }},
      {"cartesia", "de", {}, {}, std::nullopt, 1,
       [&](const auto& sent) { EXPECT_EQ(content(sent[0], "language"), "de"); }},
      {"mistral", std::nullopt, {}, {{"context_bias", Option::text(" Brindle , ,Orvid,, ")},
                                     {"temperature", Option::number(0.2)}, {"diarize", Option::text("true")}},
       std::nullopt, 1,
       [&](const auto& sent) {
         EXPECT_EQ(content(sent[0], "context_bias"), R"(["Brindle","Orvid"])");
         EXPECT_EQ(content(sent[0], "temperature"), "0.2");
         EXPECT_EQ(content(sent[0], "diarize"), std::nullopt);
         EXPECT_EQ(content(sent[0], "language"), std::nullopt);
       }},
      {"soniox", std::nullopt, {"en", "de"},
       {{"context_terms", Option::text("Brindle\nOrvid, Tessel")}, {"enable_speaker_diarization", Option::boolean(true)}},
       std::nullopt, 6,
       [](const auto& sent) {
         json job = json::parse(sent[1].body);
         EXPECT_EQ(job["model"], "stt-async-v5");
         EXPECT_EQ(job["language_hints"], json({"en", "de"}));
         EXPECT_EQ(job["context"], json({{"terms", {"Brindle", "Orvid", "Tessel"}}}));
         EXPECT_EQ(job["enable_speaker_diarization"], true);
         EXPECT_FALSE(job.contains("language_hints_strict"));
         EXPECT_EQ(sent[5].path, "/soniox/v1/transcriptions/job-7/transcript");
       }},
      {"assemblyai", "en", {}, {{"prompt", Option::text("Brindle, Orvid ,")}}, "ignored hint", 5,
       [](const auto& sent) {
         json job = json::parse(sent[1].body);
         EXPECT_EQ(job["speech_models"], json({"universal-2"}));
         EXPECT_EQ(job["keyterms_prompt"], json({"Brindle", "Orvid"}));
         EXPECT_EQ(job["language_code"], "en");
         EXPECT_FALSE(job.contains("language_detection"));
       }},
      {"glm", std::nullopt, {}, {}, "Orvid", 1,
       [&](const auto& sent) {
         EXPECT_EQ(content(sent[0], "prompt"), "Orvid");
         EXPECT_EQ(content(sent[0], "model"), "glm-asr-2512");
       }},
      {"stepfun", std::nullopt, {}, {}, "Brindle", 1,
       [](const auto& sent) {
         json body = json::parse(sent[0].body);
         const json& transcription = body["audio"]["input"]["transcription"];
         EXPECT_EQ(transcription["language"], "zh");
         EXPECT_EQ(transcription["prompt"], "Brindle");
         EXPECT_EQ(transcription["enable_itn"], true);
         auto samples = Base64::decode(body["audio"]["data"].get<std::string>());
         ASSERT_TRUE(samples);
         const TranscriptionRequest sentRecording = recording();
         Bytes expected = sentRecording.audioFrames[0].pcm16LittleEndian;
         const auto& second = sentRecording.audioFrames[1].pcm16LittleEndian;
         expected.insert(expected.end(), second.begin(), second.end());
         EXPECT_EQ(*samples, expected) << "the samples without the WAV header";
       }},
      {"aliyun-bailian", "en", {}, {}, std::nullopt, 1,
       [](const auto& sent) { EXPECT_EQ(json::parse(sent[0].body)["model"], "qwen3-asr-flash"); }},
  };
  ASSERT_EQ(cases.size(), services().size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE(c.service);
    replicas.clearRequests();
    TranscriptionRequest request = recording();
    request.languageRoute.providerID = c.service;
    request.languageRoute.strategy =
        c.language ? ASRLanguageRoutingStrategy::explicitSingle : ASRLanguageRoutingStrategy::automatic;
    request.languageRoute.providerLanguage = c.language;
    request.languageRoute.providerLanguageHints = c.hints;
    request.providerOptions = c.options;
    request.promptHint = c.promptHint;
    TranscriptionResult result = provider(services()[i]).transcribe(request);
    EXPECT_EQ(result.text, LoopbackBatchSpeechServices::transcriptOf(c.service));
    EXPECT_EQ(result.providerDiagnostics, request.languageRoute.diagnosticSummary());
    const auto sent = replicas.requests();
    ASSERT_EQ(sent.size(), c.exchanges);
    for (const auto& exchange : sent) EXPECT_EQ(exchange.multipartProblem, std::nullopt);
    c.check(sent);
  }
  EXPECT_EQ(pauses, std::vector<std::chrono::milliseconds>(6, std::chrono::milliseconds(500)))
      << "three polls each for Soniox and AssemblyAI, 500 ms apart";
}

TEST_F(CloudBatchServicesTest, AwkwardAnswersAndFaultsEndInTheirOwnErrors) {
  struct Case {
    std::string service;
    ReplicaScenario scenario;
    std::string message;  // the start of an OrvidProviderError's text; empty: a transport error
    std::size_t pauses;
  };
  const std::string timedOut = " transcription timed out.";
  const std::vector<Case> cases = {
      {"deepgram", ReplicaScenario::rateLimited, "ASR request failed with HTTP 429: {\"error\":\"rate limited\"}", 0},
      {"cartesia", ReplicaScenario::failEchoingKey, "ASR request failed with HTTP 500: upstream failed\nAuthorization: Bearer [REDACTED]", 0},
      {"elevenlabs", ReplicaScenario::failEchoingKey, "ASR request failed with HTTP 500: upstream failed\nAuthorization: [REDACTED]", 0},
      {"assemblyai", ReplicaScenario::failEchoingKey, "AssemblyAI upload failed with HTTP 500: upstream failed\nAuthorization: [REDACTED]", 0},
      {"glm", ReplicaScenario::failEchoingKey, "GLM request failed with HTTP 500: ", 0},
      {"stepfun", ReplicaScenario::rateLimited, "StepFun request failed with HTTP 429: ", 0},
      {"aliyun-bailian", ReplicaScenario::failEchoingKey, "Aliyun ASR failed with HTTP 500: ", 0},
      {"soniox", ReplicaScenario::rateLimited, "Soniox file upload failed with HTTP 429: ", 0},
      {"deepgram", ReplicaScenario::brokenJSON, "Invalid provider response.", 0},
      {"soniox", ReplicaScenario::brokenJSON, "Invalid provider response.", 0},
      {"assemblyai", ReplicaScenario::brokenJSON, "Invalid provider response.", 0},
      {"soniox", ReplicaScenario::jobQueuedThenFails, "Soniox transcription poll failed: {\"error_message\":\"Audio is unreadable.\"", 3},
      {"assemblyai", ReplicaScenario::jobQueuedThenFails, "AssemblyAI transcription failed: Transcoding failed.", 3},
      {"soniox", ReplicaScenario::jobNeverCompletes, "Soniox" + timedOut, 120},
      {"assemblyai", ReplicaScenario::jobNeverCompletes, "AssemblyAI" + timedOut, 120},
      {"soniox", ReplicaScenario::dropDuringUpload, "", 0},
      {"assemblyai", ReplicaScenario::dropDuringUpload, "", 0},
      {"mistral", ReplicaScenario::dropDuringUpload, "", 0},
      {"soniox", ReplicaScenario::dropDuringPolling, "", 1},
      {"assemblyai", ReplicaScenario::dropDuringPolling, "", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.service + " " + c.message);
    replicas.setScenario(c.scenario);
    pauses.clear();
    auto service = *std::find_if(services().begin(), services().end(), [&](const auto& s) { return s.id == c.service; });
    auto speech = provider(service);
    if (c.message.empty()) {
      EXPECT_EQ(testing::thrownCase<OrvidHTTPError>([&] { speech.transcribe(recording()); }),
                OrvidHTTPError::Case::networkConnectionLost);
    } else {
      auto error = testing::thrown<OrvidProviderError>([&] { speech.transcribe(recording()); });
      ASSERT_TRUE(error);
      EXPECT_TRUE(error->validationFailureMessage().starts_with(c.message)) << error->validationFailureMessage();
      EXPECT_EQ(error->validationFailureMessage().find(LoopbackBatchSpeechServices::kKey), std::string::npos);
    }
    EXPECT_EQ(pauses.size(), c.pauses);
  }
}

TEST_F(CloudBatchServicesTest, WordsWithoutATranscriptGiveAnEmptyDeepgramTranscript) {
  replicas.setScenario(ReplicaScenario::wordsWithoutTranscript);
  TranscriptionResult result = provider(services()[0]).transcribe(recording());
  EXPECT_EQ(result.text, "");
  EXPECT_EQ(result.confidence, 0.97);
  EXPECT_EQ(result.language, "en") << "the channel's detected language";
}

TEST_F(CloudBatchServicesTest, TheCallersDeadlineEndsAJobThatNeverCompletes) {
  replicas.setScenario(ReplicaScenario::jobNeverCompletes);
  for (const auto* id : {"soniox", "assemblyai"}) {
    SCOPED_TRACE(id);
    pauses.clear();
    deadline = std::stop_source();
    stopAfterPauses = 4;
    auto service = *std::find_if(services().begin(), services().end(), [&](const auto& s) { return s.id == id; });
    auto speech = provider(service);
    EXPECT_THROW(speech.transcribe(recording(), deadline.get_token()), CancellationError);
    EXPECT_EQ(pauses.size(), 4u) << "no poll after the deadline";
  }
}

TEST_F(CloudBatchServicesTest, TheStreamedAnswerIsReadWhileItArrives) {
  // A client whose stream() is counted: the event stream arrives in several pieces.
  struct CountingClient : OrvidHTTPClient {
    std::shared_ptr<CurlOrvidHTTPClient> inner = std::make_shared<CurlOrvidHTTPClient>();
    std::size_t pieces = 0;
    OrvidHTTPResponse data(const OrvidHTTPRequest& request, std::stop_token stop) override {
      return inner->data(request, stop);
    }
    OrvidHTTPResponse stream(const OrvidHTTPRequest& request, const BodyReceiver& receiver,
                             std::stop_token stop) override {
      return inner->stream(
          request,
          [&](std::span<const std::uint8_t> piece) {
            ++pieces;
            receiver(piece);
          },
          stop);
    }
  };
  auto client = std::make_shared<CountingClient>();
  auto store = std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.main.api-key", LoopbackBatchSpeechServices::kKey}});
  CloudBatchTranscriptionProvider glm("glm", URL::parse(replicas.baseURL("glm")).value(), API::glm, "main",
                                      "glm-asr-2512", store, client);
  EXPECT_EQ(glm.transcribe(recording()).text, "glm heard you");
  EXPECT_GT(client->pieces, 1u);
}

}  // namespace
}  // namespace orvid
