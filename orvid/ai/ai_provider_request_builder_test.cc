#include "orvid/ai/ai_provider_request_builder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

AIProviderDescriptor descriptor(AIProviderAPIStyle style) {
  AIProviderDescriptor result;
  result.id = "svc";
  result.apiStyle = style;
  result.defaultBaseURL = URL::parse("https://api.example.com/v1/");
  return result;
}

AIProviderConfiguration configuration() {
  AIProviderConfiguration result;
  result.id = "my-config";
  result.providerID = "svc";
  return result;
}

ChatCompletionRequest chat(std::optional<std::string> systemPrompt = "Be brief.") {
  return {"svc", "model-1", std::move(systemPrompt), "Hello there", std::nullopt, std::nullopt, std::nullopt};
}

nlohmann::json bodyOf(const OrvidHTTPRequest& request) {
  return nlohmann::json::parse(request.body.value());
}

template <typename Call>
auto errorCaseOf(Call call) { return testing::thrownCase<OrvidProviderError>(call); }

class AIProviderRequestBuilderTest : public ::testing::Test {
 protected:
  std::shared_ptr<InMemoryOrvidCredentialStore> store =
      std::make_shared<InMemoryOrvidCredentialStore>(std::map<std::string, std::string>{
          {"provider.my-config.api-key", "sk-test-123"}, {"provider.my-config.x-secret", "hidden-value"}});
  AIProviderRequestBuilder builder{store};
};

TEST_F(AIProviderRequestBuilderTest, CredentialHeadersFollowTheAPIStyle) {
  using Headers = std::pair<std::optional<std::string>, std::optional<std::string>>;  // Authorization, x-api-key
  for (const auto& [style, path, headers] :
       {std::tuple{AIProviderAPIStyle::openAICompatibleWithoutKey, "/v1/chat/completions", Headers{}},
        std::tuple{AIProviderAPIStyle::openAICompatibleBearer, "/v1/chat/completions",
                   Headers{"Bearer sk-test-123", std::nullopt}},
        std::tuple{AIProviderAPIStyle::anthropicMessages, "/v1/messages", Headers{"Bearer sk-test-123", "sk-test-123"}}}) {
    const auto request = builder.chatCompletionRequest(chat(), descriptor(style), configuration());
    EXPECT_EQ(request.url.path(), path);
    EXPECT_EQ(Headers(request.headerValue("Authorization"), request.headerValue("x-api-key")), headers);
  }
}

TEST_F(AIProviderRequestBuilderTest, MissingOrEmptyKeyFailsOnlyForStylesThatNeedOne) {
  for (auto credentials : {std::make_shared<InMemoryOrvidCredentialStore>(),
                           std::make_shared<InMemoryOrvidCredentialStore>(
                               std::map<std::string, std::string>{{"provider.my-config.api-key", ""}})}) {
    AIProviderRequestBuilder keyless(credentials);
    for (auto style : {AIProviderAPIStyle::openAICompatibleBearer, AIProviderAPIStyle::anthropicMessages}) {
      EXPECT_EQ(errorCaseOf([&] { keyless.chatCompletionRequest(chat(), descriptor(style), configuration()); }),
                OrvidProviderError::Case::missingCredential);
    }
    EXPECT_NO_THROW(
        keyless.chatCompletionRequest(chat(), descriptor(AIProviderAPIStyle::openAICompatibleWithoutKey), configuration()));
  }
}

TEST_F(AIProviderRequestBuilderTest, DefaultAndCustomHeadersApplyInOrderWithLaterOnesWinning) {
  auto provider = descriptor(AIProviderAPIStyle::openAICompatibleBearer);
  provider.defaultHeaders = {{"anthropic-version", "2023-06-01"}, {"X-Override", "from-descriptor"}};
  auto config = configuration();
  config.customHeaders = {
      {"  X-Trace  ", std::nullopt, "abc", false},
      {"X-Secret", "provider.my-config.x-secret", "not-this", true},
      {"X-Unstored", "provider.my-config.nothing", "fallback-not-used", true},
      {"x-override", std::nullopt, "from-configuration", false},
      {"authorization", std::nullopt, "Custom scheme", false},
  };
  const auto request = builder.chatCompletionRequest(chat(), provider, config);
  EXPECT_EQ(request.headerValue("X-Trace"), "abc");
  EXPECT_EQ(request.headerValue("X-Secret"), "hidden-value");
  EXPECT_FALSE(request.headerValue("X-Unstored"));
  EXPECT_EQ(request.headerValue("X-Override"), "from-configuration");
  EXPECT_EQ(request.headerValue("anthropic-version"), "2023-06-01");
  EXPECT_EQ(request.headerValue("Authorization"), "Custom scheme");
}

struct FailingStore : OrvidCredentialStore {
  std::optional<std::string> readCredential(const std::string& reference) const override {
    if (reference == "provider.my-config.api-key") return "key";
    throw OrvidCredentialStoreError::secretServiceFailure(2, "locked");
  }
  void writeCredential(const std::string&, const std::string&) override {}
  void deleteCredential(const std::string&) override {}
};

TEST_F(AIProviderRequestBuilderTest, CredentialStoreErrorsAbortTheBuild) {
  AIProviderRequestBuilder failing(std::make_shared<FailingStore>());
  auto config = configuration();
  config.customHeaders = {{"X-Secret", "provider.my-config.x-secret", std::nullopt, true}};
  EXPECT_THROW(failing.chatCompletionRequest(chat(), descriptor(AIProviderAPIStyle::openAICompatibleBearer), config),
               OrvidCredentialStoreError);
}

TEST_F(AIProviderRequestBuilderTest, BaseURLAndModelAreCheckedBeforeAnythingElse) {
  auto provider = descriptor(AIProviderAPIStyle::openAICompatibleBearer);
  provider.defaultBaseURL.reset();
  EXPECT_EQ(errorCaseOf([&] { builder.chatCompletionRequest(chat(), provider, configuration()); }),
            OrvidProviderError::Case::missingBaseURL);

  auto config = configuration();
  config.baseURL = URL::parse("https://override.example.com/api/chat/completions");
  auto noModel = chat();
  noModel.modelID = "";
  EXPECT_EQ(errorCaseOf([&] { builder.chatCompletionRequest(noModel, provider, config); }),
            OrvidProviderError::Case::missingModel);
  EXPECT_EQ(builder.chatCompletionRequest(chat(), provider, config).url.absoluteString(),
            "https://override.example.com/api/chat/completions");
}

TEST_F(AIProviderRequestBuilderTest, ModelDiscoveryUsesTheConfiguredPathOrTheDescriptors) {
  auto provider = descriptor(AIProviderAPIStyle::anthropicMessages);
  auto request = builder.modelDiscoveryRequest(provider, configuration());
  EXPECT_EQ(request.url.absoluteString(), "https://api.example.com/v1/models");
  EXPECT_EQ(request.headerValue("x-api-key"), "sk-test-123");

  auto config = configuration();
  config.baseURL = URL::parse("http://localhost:8080/");
  config.modelListPath = "/api/tags";
  EXPECT_EQ(builder.modelDiscoveryRequest(provider, config).url.absoluteString(), "http://localhost:8080/api/tags");


  provider.supportsModelDiscovery = false;
  EXPECT_EQ(errorCaseOf([&] { builder.modelDiscoveryRequest(provider, configuration()); }),
            OrvidProviderError::Case::unsupportedProvider);
}

TEST_F(AIProviderRequestBuilderTest, OpenAIStyleBodyCarriesOnlyWhatTheProviderSupports) {
  auto plain = descriptor(AIProviderAPIStyle::openAICompatibleBearer);
  auto request = chat();
  request.responseSchema = JSONSchema::transcriptionOutput();
  request.reasoningEffort = AIReasoningEffort::high;
  auto body = bodyOf(builder.chatCompletionRequest(request, plain, configuration()));
  EXPECT_EQ(body, nlohmann::json::parse(R"({"model":"model-1","messages":[{"role":"system","content":"Be brief."},
                                            {"role":"user","content":"Hello there"}]})"));

  auto capable = plain;
  capable.supportsStructuredOutput = capable.supportsReasoningEffort = capable.supportsReasoningObject = true;
  body = bodyOf(builder.chatCompletionRequest(request, capable, configuration()));
  const nlohmann::json schema = {{"name", "transcription_result"}, {"strict", true},
                                 {"schema", JSONSchema::transcriptionOutput().value}};
  EXPECT_EQ(body.at("response_format"), (nlohmann::json{{"type", "json_schema"}, {"json_schema", schema}}));
  EXPECT_EQ(body.at("reasoning_effort"), "high");
  EXPECT_EQ(body.at("reasoning"), nlohmann::json::parse(R"({"effort":"high","exclude":true})"));
}

TEST_F(AIProviderRequestBuilderTest, AnthropicBodyUsesMaxTokensAndATopLevelSystemPrompt) {
  auto provider = descriptor(AIProviderAPIStyle::anthropicMessages);
  provider.supportsStructuredOutput = provider.supportsReasoningEffort = true;
  auto request = chat();
  request.responseSchema = JSONSchema::transcriptionOutput();
  request.reasoningEffort = AIReasoningEffort::low;
  auto body = bodyOf(builder.chatCompletionRequest(request, provider, configuration()));
  EXPECT_EQ(body, nlohmann::json::parse(R"({"model":"model-1","max_tokens":4096,"system":"Be brief.",
                                            "messages":[{"role":"user","content":"Hello there"}]})"));
}

}  // namespace
}  // namespace orvid
