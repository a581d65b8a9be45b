// The OpenAI-compatible path end to end: the real libcurl client against the
// loopback OpenAI service.
#include <future>

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/testing/loopback_cloud_services.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::LoopbackHTTPServer;
using testing::LoopbackOpenAIService;
using testing::LoopbackScenario;

TranscriptionRequest recording(std::optional<std::string> language = "en") {
  TranscriptionRequest request;
  // 0.25 s of a quiet square wave at 16 kHz, in two frames.
  for (int f = 0; f < 2; ++f) {
    PCMFrame frame{{}, 16000, 1, 2000};
    for (int i = 0; i < 2000; ++i) {
      std::int16_t sample = (i / 20) % 2 == 0 ? 900 : -900;
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>(sample & 0xFF));
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>((sample >> 8) & 0xFF));
    }
    request.audioFrames.push_back(std::move(frame));
  }
  request.languageRoute.providerID = "openai";
  request.languageRoute.providerLanguage = std::move(language);
  return request;
}

class CloudBatchLoopbackTest : public ::testing::Test {
 protected:
  LoopbackHTTPServer server;
  LoopbackOpenAIService service{server, {.apiKey = "sk-loopback-e2e-key", .slowAnswerDelay = 30s}};
  std::shared_ptr<CurlOrvidHTTPClient> http = std::make_shared<CurlOrvidHTTPClient>();

  CloudBatchTranscriptionProvider provider(std::string key, std::string baseURL = "") {
    auto store = std::make_shared<InMemoryOrvidCredentialStore>(
        std::map<std::string, std::string>{{"provider.openai-main.api-key", std::move(key)}});
    return CloudBatchTranscriptionProvider("openai", URL::parse(baseURL.empty() ? service.baseURL() : baseURL).value(),
                                           CloudTranscriptionProviderAPI::openAICompatible, "openai-main",
                                           "gpt-4o-mini-transcribe", store, http);
  }
};

TEST_F(CloudBatchLoopbackTest, UploadsTheRecordingWithPromptLanguageAndTemperatureFromOptionsHintAndRoute) {
  using Option = TranscriptionProviderOptionValue;
  struct Case {
    const char* name;
    TranscriptionProviderOptions options;
    std::optional<std::string> hint;
    std::optional<std::string> language;
    std::optional<std::string> prompt;
    std::optional<std::string> temperature;
  };
  const std::vector<Case> cases = {
      {"everything", {{"temperature", Option::number(0.2)}}, "Brindle, Orvid", "en", "Brindle, Orvid", "0.2"},
      {"option prompt is trimmed and wins", {{"prompt", Option::text("  Brindle, Orvid \n")}}, "hint", "en",
       "Brindle, Orvid", std::nullopt},
      {"blank option falls back to the hint", {{"prompt", Option::text(" \t ")}}, "vocabulary hint", std::nullopt,
       "vocabulary hint", std::nullopt},
      {"non-text option falls back to the hint", {{"prompt", Option::number(3)}}, " spaced hint ", "", " spaced hint ",
       std::nullopt},
      {"neither prompt nor hint", {}, std::nullopt, std::nullopt, std::nullopt, std::nullopt},
      {"number temperature", {{"temperature", Option::number(0)}}, std::nullopt, std::nullopt, std::nullopt, "0.0"},
      {"text temperature is ignored", {{"temperature", Option::text("0.5")}}, std::nullopt, std::nullopt, std::nullopt,
       std::nullopt},
  };
  auto openAI = provider("sk-loopback-e2e-key");
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE(c.name);
    TranscriptionRequest request = recording(c.language);
    request.providerOptions = c.options;
    request.promptHint = c.hint;
    TranscriptionResult result = openAI.transcribe(request);
    EXPECT_EQ(result.text, "Hello from the loopback service.");
    EXPECT_EQ(result.providerDiagnostics, request.languageRoute.diagnosticSummary());
    const auto sent = server.requests().at(i);
    auto content = [&sent](const char* name) {
      const auto* part = sent.part(name);
      return part ? std::optional(part->content) : std::nullopt;
    };
    EXPECT_EQ(content("model"), "gpt-4o-mini-transcribe");
    EXPECT_EQ(content("prompt"), c.prompt);
    EXPECT_EQ(content("language"), c.language.value_or("").empty() ? std::nullopt : c.language);
    EXPECT_EQ(content("temperature"), c.temperature);
    ASSERT_FALSE(sent.parts.empty());
    const auto& file = sent.parts.back();
    EXPECT_EQ(file.name, "file");
    EXPECT_EQ(file.filename, "tesselhost.wav");
    EXPECT_EQ(file.contentType, "audio/wav");
    EXPECT_EQ(testing::wavProblem(file.content), std::nullopt);
    EXPECT_EQ(file.content.size(), 44u + 8000u);
  }
  EXPECT_EQ(server.requests().at(0).path, "/v1/audio/transcriptions");
}

TEST_F(CloudBatchLoopbackTest, OneProviderServesSeveralTranscriptionsAtOnce) {
  auto openAI = provider("sk-loopback-e2e-key");
  std::vector<std::future<TranscriptionResult>> results;
  for (int i = 0; i < 4; ++i) {
    results.push_back(std::async(std::launch::async, [&openAI] { return openAI.transcribe(recording()); }));
  }
  for (auto& result : results) {
    ASSERT_EQ(result.wait_for(20s), std::future_status::ready);
    EXPECT_EQ(result.get().text, "Hello from the loopback service.");
  }
  EXPECT_EQ(server.requests().size(), 4u);
}

TEST_F(CloudBatchLoopbackTest, ServiceRefusalsBecomeRedactedProviderErrors) {
  // A proxy that echoes the request's credentials back in its error body.
  server.route("POST", "/echo/audio/transcriptions", [](const testing::LoopbackRequest& request) {
    return testing::makeReply(401, "{\"error\":\"rejected Authorization: " +
                                       request.header("Authorization").value_or("") + "\"}");
  });
  struct Case {
    std::string name;
    LoopbackScenario scenario;
    std::string key;
    std::string baseURL;
    std::optional<std::string> language;
    std::string fragment;
  };
  const std::vector<Case> cases = {
      {"wrong key", LoopbackScenario::answer, "sk-wrong-key-0123", "", "en",
       "ASR request failed with HTTP 401: {\"error\":{\"code\":\"invalid_api_key\""},
      {"echoed key", LoopbackScenario::answer, "sk-echoed-key-0123", server.baseURL() + "/echo", "en",
       "ASR request failed with HTTP 401: {\"error\":\"rejected Authorization: Bearer [REDACTED]\"}"},
      {"rate limited", LoopbackScenario::rateLimited, "sk-loopback-e2e-key", "", "en",
       "ASR request failed with HTTP 429: "},
      {"bad language", LoopbackScenario::answer, "sk-loopback-e2e-key", "", "English",
       "ASR request failed with HTTP 400: "},
  };
  for (const Case& c : cases) {
    service.setScenario(c.scenario);
    auto openAI = provider(c.key, c.baseURL);
    auto error = testing::thrown<OrvidProviderError>([&] { openAI.transcribe(recording(c.language)); });
    ASSERT_TRUE(error) << c.name;
    EXPECT_EQ(error->errorCase(), OrvidProviderError::Case::unsupportedProvider) << c.name;
    EXPECT_TRUE(error->payload().starts_with(c.fragment)) << c.name << ": " << error->payload();
    EXPECT_EQ(error->payload().find(c.key), std::string::npos) << c.name << ": " << error->payload();
  }
  auto received = server.requests();
  ASSERT_EQ(received.size(), cases.size());
  EXPECT_EQ(received[0].path, "/v1/audio/transcriptions");
}

TEST_F(CloudBatchLoopbackTest, ADroppedConnectionIsATransportErrorAndAStoppedSlowUploadEndsPromptly) {
  auto openAI = provider("sk-loopback-e2e-key");
  service.setScenario(LoopbackScenario::dropConnection);
  EXPECT_EQ(testing::thrownCase<OrvidHTTPError>([&] { openAI.transcribe(recording()); }),
            OrvidHTTPError::Case::networkConnectionLost);

  service.setScenario(LoopbackScenario::slowAnswer);
  std::stop_source source;
  auto started = std::chrono::steady_clock::now();
  auto pending = std::async(std::launch::async, [&] { return openAI.transcribe(recording(), source.get_token()); });
  ASSERT_TRUE(server.waitForRequests(2, 10s));
  source.request_stop();
  ASSERT_EQ(pending.wait_for(5s), std::future_status::ready);
  EXPECT_THROW(pending.get(), CancellationError);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 15s) << "the 30 s answer was not awaited";
}

}  // namespace
}  // namespace orvid
