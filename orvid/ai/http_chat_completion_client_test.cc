#include "orvid/ai/http_chat_completion_client.h"

#include <future>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/platform/in_memory_orvid_http_client.h"
#include "orvid/testing/loopback_cloud_services.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::LoopbackAnthropicService;
using testing::LoopbackHTTPServer;
using testing::LoopbackOpenAIService;
using testing::LoopbackScenario;
using testing::thrown;

AIProviderDescriptor openAIProvider(bool capable = false) {
  AIProviderDescriptor provider;
  provider.id = "openai";
  provider.apiStyle = AIProviderAPIStyle::openAICompatibleBearer;
  provider.defaultBaseURL = URL::parse("https://api.example.com/v1");
  provider.supportsStructuredOutput = provider.supportsReasoningEffort = provider.supportsReasoningObject = capable;
  return provider;
}

AIProviderDescriptor anthropicProvider() {
  AIProviderDescriptor provider = openAIProvider(true);
  provider.id = "anthropic";
  provider.apiStyle = AIProviderAPIStyle::anthropicMessages;
  provider.defaultHeaders = {{"anthropic-version", "2023-06-01"}};
  return provider;
}

AIProviderConfiguration configurationAt(std::optional<std::string> baseURL = std::nullopt) {
  AIProviderConfiguration configuration;
  configuration.id = "cfg";
  if (baseURL) configuration.baseURL = URL::parse(*baseURL);
  return configuration;
}

ChatCompletionRequest chat(std::string userText = "Please tidy this up") {
  return {"openai", "model-1", "You rewrite dictated text.", std::move(userText), std::nullopt, std::nullopt,
          std::nullopt};
}

std::shared_ptr<InMemoryOrvidCredentialStore> storeWith(std::string key) {
  return std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.cfg.api-key", std::move(key)}});
}

TEST(HTTPChatCompletionClientTest, ReturnsTheParsedAnswerWithRedactedDebugTexts) {
  auto http = InMemoryOrvidHTTPClient::answering(
      200, bytesFromString(R"({"choices":[{"message":{"content":"Done. Bearer sk-leaked-1"}}],)"
                           R"("usage":{"prompt_tokens":9,"completion_tokens":2}})"));
  HTTPChatCompletionClient client(http, storeWith("sk-real"));
  ChatCompletionResult result = client.complete(chat("my api_key=hunter2 is here"), openAIProvider(), configurationAt());

  EXPECT_EQ(result.content, "Done. Bearer sk-leaked-1");
  EXPECT_EQ(result.outputTokens, 2);
  EXPECT_NE(result.rawRequestDebug.value().find("api_key=[REDACTED]"), std::string::npos) << *result.rawRequestDebug;
  EXPECT_EQ(result.rawResponseDebug.value().find("sk-leaked-1"), std::string::npos);
  EXPECT_EQ(http->requests().at(0).headerValue("Authorization"), "Bearer sk-real");
}

TEST(HTTPChatCompletionClientTest, NonSuccessStatusCarriesTheRedactedBody) {
  // A body that is not text is replaced by a fixed message.
  for (const auto& [body, payload] :
       {std::pair{bytesFromString(R"({"error":"bad header Authorization: Bearer sk-abc.def"})"),
                  std::string(R"({"error":"bad header Authorization: Bearer [REDACTED]"})")},
        std::pair{Bytes{0xFF, 0xFE, 0x00}, std::string("Chat completion failed")}}) {
    HTTPChatCompletionClient client(InMemoryOrvidHTTPClient::answering(500, body), storeWith("sk-real"));
    EXPECT_EQ(thrown<OrvidProviderError>([&] { client.complete(chat(), openAIProvider(), configurationAt()); }),
              OrvidProviderError::unsupportedProvider(payload));
  }
}

TEST(HTTPChatCompletionClientTest, RequestBuildingFailuresHappenBeforeAnyTraffic) {
  auto http = InMemoryOrvidHTTPClient::answering(200, bytesFromString(R"({"content":"x"})"));
  HTTPChatCompletionClient withoutKey(http, storeWith(""));
  EXPECT_EQ(thrown<OrvidProviderError>([&] { withoutKey.complete(chat(), openAIProvider(), configurationAt()); }),
            OrvidProviderError::missingCredential());

  HTTPChatCompletionClient client(http, storeWith("sk-real"));
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(client.complete(chat(), openAIProvider(), configurationAt(), stopped.get_token()), CancellationError);
  EXPECT_TRUE(http->requests().empty());
}

TEST(HTTPChatCompletionClientTest, TransportAndParsingErrorsPropagate) {
  auto failing = std::make_shared<InMemoryOrvidHTTPClient>(
      [](const OrvidHTTPRequest&, std::stop_token) -> OrvidHTTPResponse {
        throw OrvidHTTPError::networkConnectionLost("reset");
      });
  HTTPChatCompletionClient broken(failing, storeWith("sk-real"));
  EXPECT_THROW(broken.complete(chat(), openAIProvider(), configurationAt()), OrvidHTTPError);

  // A cut-off body: the error names no byte of it, so the key cannot reach the user.
  HTTPChatCompletionClient brokenJSON(
      InMemoryOrvidHTTPClient::answering(200, bytesFromString(R"({"choices":[], "api_key": "sk-live-SECRET123)")),
      storeWith("sk-real"));
  auto error = thrown<OrvidProviderError>([&] { brokenJSON.complete(chat(), openAIProvider(), configurationAt()); });
  EXPECT_EQ(std::string(error.value().what()), OrvidProviderError::invalidResponse().what());
}

class HTTPChatCompletionClientLoopbackTest : public ::testing::Test {
 protected:
  LoopbackHTTPServer server;
  std::shared_ptr<CurlOrvidHTTPClient> http = std::make_shared<CurlOrvidHTTPClient>();
};

TEST_F(HTTPChatCompletionClientLoopbackTest, OpenAIStyleSendsStructuredOutputAndReasoning) {
  LoopbackOpenAIService service(server, {.apiKey = "sk-openai-e2e", .chatReply = "Tidy text."});
  HTTPChatCompletionClient client(http, storeWith("sk-openai-e2e"));
  ChatCompletionRequest request = chat("one two three");
  request.responseSchema = JSONSchema::transcriptionOutput();
  request.reasoningEffort = AIReasoningEffort::high;

  ChatCompletionResult result = client.complete(request, openAIProvider(true), configurationAt(service.baseURL()));
  EXPECT_EQ(json::parse(result.content), json::parse(R"({"transcription":"Tidy text."})"));
  EXPECT_EQ(result.inputTokens, 7);  // the words of the system prompt and the user text
  json sent = json::parse(server.requests().at(0).body);
  EXPECT_EQ(sent["response_format"]["json_schema"]["name"], "transcription_result");
  EXPECT_EQ(sent["reasoning"], json::parse(R"({"effort":"high","exclude":true})"));
}

TEST_F(HTTPChatCompletionClientLoopbackTest, AnthropicStyleIsAcceptedByTheMessagesEndpoint) {
  LoopbackAnthropicService service(server, {.apiKey = "sk-ant-e2e", .reply = "Bonjour."});
  HTTPChatCompletionClient client(http, storeWith("sk-ant-e2e"));
  ChatCompletionRequest request = chat("salut tout le monde");
  request.responseSchema = JSONSchema::transcriptionOutput();
  request.reasoningEffort = AIReasoningEffort::medium;

  ChatCompletionResult result = client.complete(request, anthropicProvider(), configurationAt(service.baseURL()));
  EXPECT_EQ(result.content, "Bonjour.");
  EXPECT_EQ(result.inputTokens, 8);
  EXPECT_EQ(server.requests().at(0).header("x-api-key"), "sk-ant-e2e");
}

TEST_F(HTTPChatCompletionClientLoopbackTest, ServiceRefusalsBecomeRedactedProviderErrors) {
  LoopbackOpenAIService openAI(server, {.apiKey = "sk-right-key"});
  LoopbackAnthropicService anthropic(server, {.pathPrefix = "/anthropic/v1", .apiKey = "sk-ant-right"});

  struct Case { AIProviderDescriptor provider; std::string baseURL; std::string key; std::string expectedFragment; };
  auto noVersion = anthropicProvider();
  noVersion.defaultHeaders.clear();
  const Case cases[] = {
      {openAIProvider(), openAI.baseURL(), "sk-wrong-key-123", "Incorrect API key provided: sk-*********-123."},
      {anthropicProvider(), anthropic.baseURL(), "sk-ant-wrong", "invalid x-api-key"},
      {noVersion, anthropic.baseURL(), "sk-ant-right", "anthropic-version: header is required"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    HTTPChatCompletionClient client(http, storeWith(c.key));
    auto error = thrown<OrvidProviderError>([&] { client.complete(chat(), c.provider, configurationAt(c.baseURL)); });
    ASSERT_EQ(error.value().errorCase(), OrvidProviderError::Case::unsupportedProvider);
    EXPECT_NE(error->payload().find(c.expectedFragment), std::string::npos) << error->payload();
    EXPECT_EQ(error->payload().find(c.key), std::string::npos);
  }
}

TEST_F(HTTPChatCompletionClientLoopbackTest, DroppedConnectionsAndCancellationSurfaceUnchanged) {
  LoopbackOpenAIService service(server, {.slowAnswerDelay = 30s});
  HTTPChatCompletionClient client(http, storeWith("sk-loopback-openai-key"));

  service.setScenario(LoopbackScenario::dropConnection);
  EXPECT_EQ(testing::thrownCase<OrvidHTTPError>(
                [&] { client.complete(chat(), openAIProvider(), configurationAt(service.baseURL())); }),
            OrvidHTTPError::Case::networkConnectionLost);

  service.setScenario(LoopbackScenario::slowAnswer);
  std::stop_source source;
  auto pending = std::async(std::launch::async, [&] {
    return client.complete(chat(), openAIProvider(), configurationAt(service.baseURL()), source.get_token());
  });
  ASSERT_TRUE(server.waitForRequests(2, 10s));
  source.request_stop();
  ASSERT_EQ(pending.wait_for(5s), std::future_status::ready);
  EXPECT_THROW(pending.get(), CancellationError);
}

}  // namespace
}  // namespace orvid
