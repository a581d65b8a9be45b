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

AIProviderDescriptor openAIProvider(bool structured = false, bool effort = false, bool reasoningObject = false) {
  AIProviderDescriptor provider;
  provider.id = "openai";
  provider.apiStyle = AIProviderAPIStyle::openAICompatibleBearer;
  provider.defaultBaseURL = URL::parse("https://api.example.com/v1");
  provider.supportsStructuredOutput = structured;
  provider.supportsReasoningEffort = effort;
  provider.supportsReasoningObject = reasoningObject;
  return provider;
}

AIProviderDescriptor anthropicProvider() {
  AIProviderDescriptor provider;
  provider.id = "anthropic";
  provider.apiStyle = AIProviderAPIStyle::anthropicMessages;
  provider.defaultBaseURL = URL::parse("https://api.example.com/v1");
  provider.defaultHeaders = {{"anthropic-version", "2023-06-01"}};
  provider.supportsStructuredOutput = true;
  provider.supportsReasoningEffort = true;
  return provider;
}

AIProviderConfiguration configurationAt(std::optional<std::string> baseURL = std::nullopt) {
  AIProviderConfiguration configuration;
  configuration.id = "cfg";
  if (baseURL) configuration.baseURL = URL::parse(*baseURL);
  return configuration;
}

ChatCompletionRequest chat(std::string userText = "Please tidy this up") {
  ChatCompletionRequest request;
  request.providerID = "openai";
  request.modelID = "model-1";
  request.systemPrompt = "You rewrite dictated text.";
  request.userText = std::move(userText);
  return request;
}

std::shared_ptr<InMemoryOrvidCredentialStore> storeWith(std::string key) {
  return std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.cfg.api-key", std::move(key)}});
}

// ----- With an in-memory transport -----

TEST(HTTPChatCompletionClientTest, ReturnsTheParsedAnswerWithRedactedDebugTexts) {
  auto http = InMemoryOrvidHTTPClient::answering(
      200, bytesFromString(R"({"choices":[{"message":{"content":"Done. Bearer sk-leaked-1"}}],)"
                           R"("usage":{"prompt_tokens":9,"completion_tokens":2}})"));
  HTTPChatCompletionClient client(http, storeWith("sk-real"));
  ChatCompletionResult result = client.complete(chat("my api_key=hunter2 is here"), openAIProvider(), configurationAt());

  EXPECT_EQ(result.content, "Done. Bearer sk-leaked-1");
  EXPECT_EQ(result.inputTokens, 9);
  EXPECT_EQ(result.outputTokens, 2);
  ASSERT_TRUE(result.rawRequestDebug);
  EXPECT_NE(result.rawRequestDebug->find("api_key=[REDACTED]"), std::string::npos) << *result.rawRequestDebug;
  EXPECT_EQ(result.rawRequestDebug->find("hunter2"), std::string::npos);
  ASSERT_TRUE(result.rawResponseDebug);
  EXPECT_NE(result.rawResponseDebug->find("Bearer [REDACTED]"), std::string::npos);
  EXPECT_EQ(result.rawResponseDebug->find("sk-leaked-1"), std::string::npos);

  auto sent = http->requests();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].method, "POST");
  EXPECT_EQ(sent[0].url.absoluteString(), "https://api.example.com/v1/chat/completions");
  EXPECT_EQ(sent[0].headerValue("Authorization"), "Bearer sk-real");
}

TEST(HTTPChatCompletionClientTest, NonSuccessStatusCarriesTheRedactedBody) {
  struct Case {
    int status;
    Bytes body;
    std::string payload;
  };
  const Case cases[] = {
      {401, bytesFromString(R"({"error":"bad header Authorization: Bearer sk-abc.def"})"),
       R"({"error":"bad header Authorization: Bearer [REDACTED]"})"},
      {500, Bytes{0xFF, 0xFE, 0x00}, "Chat completion failed"},
      {503, Bytes{}, ""},
  };
  for (const Case& c : cases) {
    auto http = InMemoryOrvidHTTPClient::answering(c.status, c.body);
    HTTPChatCompletionClient client(http, storeWith("sk-real"));
    EXPECT_EQ(thrown<OrvidProviderError>([&] { client.complete(chat(), openAIProvider(), configurationAt()); }),
              OrvidProviderError::unsupportedProvider(c.payload))
        << c.status;
  }
}

TEST(HTTPChatCompletionClientTest, RequestBuildingFailuresHappenBeforeAnyTraffic) {
  auto http = InMemoryOrvidHTTPClient::answering(200, bytesFromString(R"({"content":"x"})"));
  HTTPChatCompletionClient withoutKey(http, storeWith(""));
  EXPECT_EQ(thrown<OrvidProviderError>([&] { withoutKey.complete(chat(), openAIProvider(), configurationAt()); }),
            OrvidProviderError::missingCredential());

  HTTPChatCompletionClient client(http, storeWith("sk-real"));
  auto noModel = chat();
  noModel.modelID.clear();
  EXPECT_EQ(thrown<OrvidProviderError>([&] { client.complete(noModel, openAIProvider(), configurationAt()); }),
            OrvidProviderError::missingModel());
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
  try {
    brokenJSON.complete(chat(), openAIProvider(), configurationAt());
    FAIL() << "broken JSON accepted";
  } catch (const std::exception& error) {
    EXPECT_EQ(std::string(error.what()), OrvidProviderError::invalidResponse().what());
  }

  HTTPChatCompletionClient noContent(InMemoryOrvidHTTPClient::answering(200, bytesFromString(R"({"id":1})")),
                                     storeWith("sk-real"));
  EXPECT_EQ(thrown<OrvidProviderError>([&] { noContent.complete(chat(), openAIProvider(), configurationAt()); }),
            OrvidProviderError::invalidResponse());
}

// ----- End to end against the loopback services -----

class HTTPChatCompletionClientLoopbackTest : public ::testing::Test {
 protected:
  LoopbackHTTPServer server;
  std::shared_ptr<CurlOrvidHTTPClient> http = std::make_shared<CurlOrvidHTTPClient>();
};

TEST_F(HTTPChatCompletionClientLoopbackTest, OpenAIStyleSendsStructuredOutputAndReasoningOnlyWhereSupported) {
  LoopbackOpenAIService service(server, {.apiKey = "sk-openai-e2e", .chatReply = "Tidy text."});
  HTTPChatCompletionClient client(http, storeWith("sk-openai-e2e"));
  ChatCompletionRequest request = chat("one two three");
  request.responseSchema = JSONSchema::transcriptionOutput();
  request.reasoningEffort = AIReasoningEffort::high;

  ChatCompletionResult result =
      client.complete(request, openAIProvider(true, true, true), configurationAt(service.baseURL()));

  EXPECT_EQ(json::parse(result.content), json::parse(R"({"transcription":"Tidy text."})"));
  EXPECT_EQ(result.inputTokens, 7);  // the words of the system prompt and the user text
  EXPECT_EQ(result.outputTokens, 2);
  ASSERT_TRUE(result.rawResponseDebug);
  EXPECT_NE(result.rawResponseDebug->find("chat.completion"), std::string::npos);
  json sent = json::parse(server.requests().at(0).body);
  EXPECT_EQ(sent["response_format"]["json_schema"]["name"], "transcription_result");
  EXPECT_EQ(sent["reasoning_effort"], "high");
  EXPECT_EQ(sent["reasoning"], json::parse(R"({"effort":"high","exclude":true})"));

  request.systemPrompt = "";
  EXPECT_EQ(client.complete(request, openAIProvider(), configurationAt(service.baseURL())).content, "Tidy text.");
  EXPECT_EQ(json::parse(server.requests().at(1).body),
            json::parse(R"({"model":"model-1","messages":[{"role":"user","content":"one two three"}]})"));
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
  EXPECT_EQ(result.outputTokens, 1);
  auto received = server.requests().at(0);
  EXPECT_EQ(received.path, "/v1/messages");
  EXPECT_EQ(received.header("x-api-key"), "sk-ant-e2e");
  EXPECT_EQ(received.header("Authorization"), "Bearer sk-ant-e2e");
  EXPECT_EQ(json::parse(received.body)["max_tokens"], 4096);
}

TEST_F(HTTPChatCompletionClientLoopbackTest, ServiceRefusalsBecomeRedactedProviderErrors) {
  LoopbackOpenAIService openAI(server, {.apiKey = "sk-right-key"});
  LoopbackAnthropicService anthropic(server, {.pathPrefix = "/anthropic/v1", .apiKey = "sk-ant-right"});

  struct Case {
    std::string name;
    std::function<void()> prepare;
    AIProviderDescriptor provider;
    std::string baseURL;
    std::string key;
    std::string expectedFragment;
  };
  auto noVersion = anthropicProvider();
  noVersion.defaultHeaders.clear();
  std::vector<Case> cases = {
      {"wrong OpenAI key", [] {}, openAIProvider(), openAI.baseURL(), "sk-wrong-key-123",
       "Incorrect API key provided: sk-*********-123."},
      {"rate limited", [&] { openAI.setScenario(LoopbackScenario::rateLimited); }, openAIProvider(), openAI.baseURL(),
       "sk-right-key", "\"code\":\"rate_limit_exceeded\""},
      {"wrong Anthropic key", [] {}, anthropicProvider(), anthropic.baseURL(), "sk-ant-wrong", "invalid x-api-key"},
      {"no anthropic-version", [] {}, noVersion, anthropic.baseURL(), "sk-ant-right",
       "anthropic-version: header is required"},
      {"Anthropic overloaded", [&] { anthropic.setScenario(LoopbackScenario::serverError); }, anthropicProvider(),
       anthropic.baseURL(), "sk-ant-right", "\"type\":\"api_error\""},
  };
  for (const Case& c : cases) {
    c.prepare();
    HTTPChatCompletionClient client(http, storeWith(c.key));
    auto error = thrown<OrvidProviderError>([&] { client.complete(chat(), c.provider, configurationAt(c.baseURL)); });
    ASSERT_TRUE(error) << c.name;
    EXPECT_EQ(error->errorCase(), OrvidProviderError::Case::unsupportedProvider) << c.name;
    EXPECT_NE(error->payload().find(c.expectedFragment), std::string::npos) << c.name << ": " << error->payload();
    EXPECT_EQ(error->payload().find(c.key), std::string::npos) << c.name;
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
