#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/in_memory_orvid_http_client.h"
#include "orvid/transcription/cloud_batch/multipart_test_support.h"
#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_provider.h"

namespace orvid {

// Reaches the helpers the service paths share.
struct CloudBatchTranscriptionProviderTestPeer {
  static std::string credential(const CloudBatchTranscriptionProvider& provider, const std::string& name) {
    return provider.credential(name);
  }
  static void assertSuccess(const OrvidHTTPResponse& response, std::string_view prefix) {
    CloudBatchTranscriptionProvider::assertSuccess(response, prefix);
  }
  static std::optional<std::string> optionString(const std::string& key, const TranscriptionProviderOptions& options) {
    return CloudBatchTranscriptionProvider::optionString(key, options);
  }
};

namespace {

using Peer = CloudBatchTranscriptionProviderTestPeer;
using Option = TranscriptionProviderOptionValue;

URL url(const char* text) { return URL::parse(text).value(); }

TranscriptionRequest recording(std::optional<std::string> language = std::nullopt) {
  TranscriptionRequest request;
  request.audioFrames = {PCMFrame{Bytes(320, 0x01), 16000, 1, 160}};
  request.languageRoute.providerID = "groq";
  request.languageRoute.strategy = ASRLanguageRoutingStrategy::explicitSingle;
  request.languageRoute.providerLanguage = std::move(language);
  request.languageRoute.effectivePostProcessingLanguage = "de";
  return request;
}

// Records every reference it is asked for.
class RecordingCredentialStore : public OrvidCredentialStore {
 public:
  explicit RecordingCredentialStore(std::map<std::string, std::string> values) : values_(std::move(values)) {}
  std::optional<std::string> readCredential(const std::string& reference) const override {
    reads.push_back(reference);
    auto found = values_.find(reference);
    if (found == values_.end()) return std::nullopt;
    return found->second;
  }
  void writeCredential(const std::string&, const std::string&) override {}
  void deleteCredential(const std::string&) override {}

  mutable std::vector<std::string> reads;

 private:
  std::map<std::string, std::string> values_;
};

template <typename Error, typename Call>
Error errorOf(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error;
  }
  throw std::runtime_error("the expected error was not thrown");
}

class CloudBatchTranscriptionProviderTest : public ::testing::Test {
 protected:
  std::shared_ptr<InMemoryOrvidCredentialStore> store = std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.groq-main.api-key", "gsk-secret"}});

  std::shared_ptr<InMemoryOrvidHTTPClient> answering(int status, std::string body) {
    return InMemoryOrvidHTTPClient::answering(status, bytesFromString(body));
  }

  CloudBatchTranscriptionProvider provider(std::shared_ptr<OrvidHTTPClient> http,
                                           CloudTranscriptionProviderAPI api = CloudTranscriptionProviderAPI::openAICompatible) {
    return CloudBatchTranscriptionProvider("groq", url("https://api.groq.com/openai/v1"), api, "groq-main",
                                           "whisper-large-v3", store, std::move(http));
  }
};

TEST_F(CloudBatchTranscriptionProviderTest, UploadsTheRecordingAndStampsTheRouteOnTheAnswer) {
  auto http = answering(200, R"({"text":"  Guten Tag  ","language":"german"})");
  auto groq = provider(http);
  TranscriptionRequest request = recording("de");
  TranscriptionResult result = groq.transcribe(request);

  EXPECT_EQ(result.text, "Guten Tag");
  EXPECT_EQ(result.language, "german");
  EXPECT_EQ(result.effectiveLanguage, "german");
  EXPECT_EQ(result.providerDiagnostics, request.languageRoute.diagnosticSummary());

  auto sent = http->requests();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].url.absoluteString(), "https://api.groq.com/openai/v1/audio/transcriptions");
  EXPECT_EQ(sent[0].headerValue("Authorization"), "Bearer gsk-secret");
  auto parts = testing::multipartParts(sent[0]);
  EXPECT_EQ(testing::partContent(parts, "model"), "whisper-large-v3");
  EXPECT_EQ(testing::partContent(parts, "language"), "de");
  ASSERT_EQ(parts.back().name, "file");
  EXPECT_EQ(parts.back().content.size(), 44u + 320u);
  EXPECT_EQ(parts.back().content.substr(44), std::string(320, '\x01'));
}

TEST_F(CloudBatchTranscriptionProviderTest, PromptLanguageAndTemperatureComeFromOptionsHintAndRoute) {
  struct Case {
    const char* name;
    TranscriptionProviderOptions options;
    std::optional<std::string> hint;
    std::optional<std::string> language;
    std::optional<std::string> prompt;
    std::optional<std::string> sentLanguage;
    std::optional<std::string> temperature;
  };
  const std::vector<Case> cases = {
      {"option prompt is trimmed and wins", {{"prompt", Option::text("  Brindle, Orvid \n")}}, "hint", "en",
       "Brindle, Orvid", "en", std::nullopt},
      {"blank option falls back to the hint", {{"prompt", Option::text(" \t ")}}, "vocabulary hint", std::nullopt,
       "vocabulary hint", std::nullopt, std::nullopt},
      {"non-text option falls back to the hint", {{"prompt", Option::number(3)}}, " spaced hint ", "", " spaced hint ",
       std::nullopt, std::nullopt},
      {"neither prompt nor hint", {}, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt},
      {"empty hint", {}, "", std::nullopt, std::nullopt, std::nullopt, std::nullopt},
      {"number temperature", {{"temperature", Option::number(0)}}, std::nullopt, std::nullopt, std::nullopt,
       std::nullopt, "0.0"},
      {"text temperature is ignored", {{"temperature", Option::text("0.5")}}, std::nullopt, std::nullopt,
       std::nullopt, std::nullopt, std::nullopt},
      {"Boolean temperature is ignored", {{"temperature", Option::boolean(true)}}, std::nullopt, std::nullopt,
       std::nullopt, std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    auto http = answering(200, R"({"text":"ok"})");
    auto groq = provider(http);
    TranscriptionRequest request = recording(c.language);
    request.providerOptions = c.options;
    request.promptHint = c.hint;
    groq.transcribe(request);
    auto parts = testing::multipartParts(http->requests().at(0));
    EXPECT_EQ(testing::partContent(parts, "prompt"), c.prompt) << c.name;
    EXPECT_EQ(testing::partContent(parts, "language"), c.sentLanguage) << c.name;
    EXPECT_EQ(testing::partContent(parts, "temperature"), c.temperature) << c.name;
  }
}

TEST_F(CloudBatchTranscriptionProviderTest, FailedStatusesCarryTheRedactedBody) {
  struct Case {
    int status;
    Bytes body;
    std::string message;
  };
  const Case cases[] = {
      {401, bytesFromString(R"({"error":"bad key","echo":"Authorization: Bearer gsk-secret.part2"})"),
       R"(ASR request failed with HTTP 401: {"error":"bad key","echo":"Authorization: Bearer [REDACTED]"})"},
      {400, bytesFromString(R"({"api_key": "gsk-secret", "x-goog-api-key: AIza-1"})"),
       R"(ASR request failed with HTTP 400: {"api_key": "[REDACTED]", "x-goog-api-key: [REDACTED]"})"},
      {500, Bytes{0xFF, 0xFE, 'o', 'k'}, "ASR request failed with HTTP 500: "},
      {302, bytesFromString("moved"), "ASR request failed with HTTP 302: moved"},
      {199, Bytes{}, "ASR request failed with HTTP 199: "},
  };
  for (const Case& c : cases) {
    auto groq = provider(InMemoryOrvidHTTPClient::answering(c.status, c.body));
    auto error = errorOf<OrvidProviderError>([&] { groq.transcribe(recording()); });
    EXPECT_EQ(error, OrvidProviderError::unsupportedProvider(c.message)) << c.status;
    EXPECT_EQ(std::string(error.what()).find("gsk-secret"), std::string::npos);
  }
  EXPECT_EQ(provider(answering(299, "edge of success")).transcribe(recording()).text, "edge of success");
}

TEST_F(CloudBatchTranscriptionProviderTest, AssertSuccessUsesTheCallersPrefix) {
  Peer::assertSuccess(OrvidHTTPResponse{url("https://x.test"), 204, {}, {}}, "Upload");
  auto error = errorOf<OrvidProviderError>([] {
    Peer::assertSuccess(OrvidHTTPResponse{url("https://x.test"), 404, {}, bytesFromString("no job token abc")},
                        "Soniox job creation");
  });
  EXPECT_EQ(error.payload(), "Soniox job creation failed with HTTP 404: no job token [REDACTED]");
}

TEST_F(CloudBatchTranscriptionProviderTest, EmptyAudioFailsBeforeAnythingElse) {
  auto http = answering(200, "{}");
  store->deleteCredential("provider.groq-main.api-key");
  std::stop_source stopped;
  stopped.request_stop();
  for (auto api : allCloudTranscriptionProviderAPIs()) {
    auto any = provider(http, api);
    TranscriptionRequest empty = recording();
    empty.audioFrames.clear();
    EXPECT_EQ(errorOf<OrvidError>([&] { any.transcribe(empty, stopped.get_token()); }), OrvidError::emptyAudio())
        << rawValue(api);
  }
  EXPECT_TRUE(http->requests().empty());
}

TEST_F(CloudBatchTranscriptionProviderTest, ServicesWithoutAPathInThisBuildFailAtOnce) {
  auto http = answering(200, "{}");
  std::map<CloudTranscriptionProviderAPI, std::string> expected = {
      {CloudTranscriptionProviderAPI::deepgram, "Deepgram batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::elevenLabs, "ElevenLabs batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::cartesia, "Cartesia batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::mistral, "Mistral batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::soniox, "Soniox batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::assemblyAI, "AssemblyAI batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::doubao, "Doubao batch transcription is not wired yet."},
      {CloudTranscriptionProviderAPI::glm, "GLM batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::stepFun, "StepFun batch transcription is not available in this build."},
      {CloudTranscriptionProviderAPI::aliyunCompatible,
       "Aliyun-compatible batch transcription is not available in this build."},
  };
  ASSERT_EQ(expected.size() + 1, allCloudTranscriptionProviderAPIs().size());
  for (const auto& [api, message] : expected) {
    auto unsupported = provider(http, api);
    auto error = errorOf<OrvidProviderError>([&] { unsupported.transcribe(recording()); });
    EXPECT_EQ(error, OrvidProviderError::unsupportedProvider(message)) << rawValue(api);
    EXPECT_EQ(error.validationFailureMessage(), message);
  }
  EXPECT_TRUE(http->requests().empty());
}

TEST_F(CloudBatchTranscriptionProviderTest, StreamingIsRefusedWithoutTraffic) {
  auto http = answering(200, "{}");
  auto groq = provider(http);
  OpenAICompatibleBatchTranscriptionProvider wrapper("my-openai", url("https://api.openai.com/v1"), "groq-main",
                                                     "whisper-1", store, http);
  EXPECT_EQ(errorOf<OrvidError>([&] { groq.stream(recording()); }), OrvidError::unsupportedStreaming());
  EXPECT_EQ(errorOf<OrvidError>([&] { wrapper.stream(recording()); }), OrvidError::unsupportedStreaming());
  EXPECT_TRUE(http->requests().empty());
}

TEST_F(CloudBatchTranscriptionProviderTest, TransportErrorsCancellationAndMissingKeysPropagateUnchanged) {
  auto failing = std::make_shared<InMemoryOrvidHTTPClient>([](const OrvidHTTPRequest&, std::stop_token) -> OrvidHTTPResponse {
    throw OrvidHTTPError::timedOut("no data for 60000 ms");
  });
  auto broken = provider(failing);
  EXPECT_EQ(errorOf<OrvidHTTPError>([&] { broken.transcribe(recording()); }),
            OrvidHTTPError::timedOut("no data for 60000 ms"));
  EXPECT_EQ(failing->requests().size(), 1u) << "nothing is retried";

  auto http = answering(200, "{}");
  auto groq = provider(http);
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(groq.transcribe(recording(), stopped.get_token()), CancellationError);

  store->writeCredential("", "provider.groq-main.api-key");
  EXPECT_EQ(errorOf<OrvidProviderError>([&] { groq.transcribe(recording()); }),
            OrvidProviderError::missingCredential());
  EXPECT_TRUE(http->requests().empty());
}

TEST_F(CloudBatchTranscriptionProviderTest, CredentialNamesResolveToReferencesInOrder) {
  struct Case {
    std::string name;
    std::map<std::string, std::string> stored;
    std::optional<std::string> value;
    std::vector<std::string> reads;
  };
  const std::vector<Case> cases = {
      {"", {{"provider.cfg.api-key", "k1"}}, "k1", {"provider.cfg.api-key"}},
      {"api-key", {{"provider.cfg.api-key", "k2"}}, "k2", {"provider.cfg.api-key"}},
      {"api-key", {{"provider.cfg.api-key", ""}}, std::nullopt, {"provider.cfg.api-key"}},
      {"region", {{"provider.cfg.region", "eu"}, {"provider.cfg.region.api-key", "other"}}, "eu",
       {"provider.cfg.region"}},
      {"region", {{"provider.cfg.region", ""}, {"provider.cfg.region.api-key", "fallback"}}, "fallback",
       {"provider.cfg.region", "provider.cfg.region.api-key"}},
      {"region", {{"provider.cfg.api-key", "unrelated"}}, std::nullopt,
       {"provider.cfg.region", "provider.cfg.region.api-key"}},
  };
  for (const Case& c : cases) {
    auto recorder = std::make_shared<RecordingCredentialStore>(c.stored);
    CloudBatchTranscriptionProvider any("p", url("https://x.test"), CloudTranscriptionProviderAPI::deepgram, "cfg",
                                        "m", recorder, answering(200, "{}"));
    recorder->reads.clear();
    if (c.value) {
      EXPECT_EQ(Peer::credential(any, c.name), *c.value) << c.name;
    } else {
      EXPECT_EQ(errorOf<OrvidProviderError>([&] { Peer::credential(any, c.name); }),
                OrvidProviderError::missingCredential())
          << c.name;
    }
    EXPECT_EQ(recorder->reads, c.reads) << c.name;
  }
}

TEST_F(CloudBatchTranscriptionProviderTest, OptionStringTrimsAndRejectsNonText) {
  const TranscriptionProviderOptions options = {{"model_hint", Option::text("\n nova \t")},
                                                {"blank", Option::text("  ")},
                                                {"number", Option::number(2)},
                                                {"flag", Option::boolean(false)}};
  EXPECT_EQ(Peer::optionString("model_hint", options), "nova");
  EXPECT_EQ(Peer::optionString("blank", options), std::nullopt);
  EXPECT_EQ(Peer::optionString("number", options), std::nullopt);
  EXPECT_EQ(Peer::optionString("flag", options), std::nullopt);
  EXPECT_EQ(Peer::optionString("missing", options), std::nullopt);
}

TEST_F(CloudBatchTranscriptionProviderTest, OpenAICompatibleWrapperForwardsWithItsOwnIdentifier) {
  auto http = answering(200, R"({"text":"forwarded"})");
  OpenAICompatibleBatchTranscriptionProvider wrapper("my-openai", url("https://api.openai.com/v1"), "groq-main",
                                                     "whisper-1", store, http);
  EXPECT_EQ(wrapper.id(), "my-openai");
  EXPECT_EQ(wrapper.provider().api(), CloudTranscriptionProviderAPI::openAICompatible);
  EXPECT_EQ(wrapper.transcribe(recording("en")).text, "forwarded");
  auto parts = testing::multipartParts(http->requests().at(0));
  EXPECT_EQ(testing::partContent(parts, "model"), "whisper-1");
  EXPECT_EQ(http->requests().at(0).url.absoluteString(), "https://api.openai.com/v1/audio/transcriptions");
}

}  // namespace
}  // namespace orvid
