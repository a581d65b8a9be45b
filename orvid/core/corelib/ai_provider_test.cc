#include "orvid/core/corelib/ai_provider.h"

#include <chrono>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

AIProviderConfiguration fullConfiguration() {
  AIProviderConfiguration configuration;
  configuration.id = "my-config";
  configuration.providerID = "openrouter";
  configuration.displayName = "Work router";
  configuration.baseURL = URL::parse("https://proxy.example.com:8443/api/v1?team=7");
  configuration.modelListPath = "catalog/models";
  configuration.customHeaders = {{"X-Trace", std::nullopt, "abc", false},
                                 {"X-Secret", "provider.my-config.x-secret", std::nullopt, true}};
  configuration.selectedModelID = "m2";
  configuration.modelIDs = {"m1", "m2"};
  configuration.maxOutputTokens = 2048;
  configuration.validationState =
      AIProviderValidationState::validated(std::chrono::system_clock::time_point(std::chrono::milliseconds(1700000000125)));
  return configuration;
}

TEST(AIProviderTest, ConfigurationSurvivesAJSONRoundTripWithItsURLAndHeaders) {
  const auto configuration = fullConfiguration();
  const nlohmann::json json = configuration;
  EXPECT_EQ(json.at("baseURL"), "https://proxy.example.com:8443/api/v1?team=7");
  EXPECT_EQ(json.at("validationState").at("kind"), "validated");
  EXPECT_FALSE(json.at("customHeaders").at(0).contains("credentialReference"));
  EXPECT_EQ(json.get<AIProviderConfiguration>(), configuration);
}

TEST(AIProviderTest, MinimalConfigurationDecodesWithDefaultsAndEncodesWithoutAbsentValues) {
  const auto configuration = nlohmann::json::parse(R"({"id":"c","providerID":"openai"})").get<AIProviderConfiguration>();
  EXPECT_FALSE(configuration.baseURL);
  EXPECT_FALSE(configuration.selectedModelID);
  EXPECT_TRUE(configuration.modelIDs.empty());
  EXPECT_EQ(configuration.validationState, AIProviderValidationState::notValidated());

  const nlohmann::json json = configuration;
  for (const char* key : {"baseURL", "modelListPath", "selectedModelID", "maxOutputTokens"}) {
    EXPECT_FALSE(json.contains(key)) << key;
  }
}

TEST(AIProviderTest, DecodingRejectsUnknownStylesAndUnparsableURLs) {
  const char* documents[] = {
      R"({"id":"x","apiStyle":"grpc"})",
      R"({"id":"x","apiStyle":"openAICompatibleBearer","defaultBaseURL":"not a url"})",
      R"({"id":"c","providerID":"p","baseURL":"/relative/path"})",
      R"({"id":"c","providerID":"p","validationState":{"kind":"maybe"}})",
  };
  EXPECT_THROW(nlohmann::json::parse(documents[0]).get<AIProviderDescriptor>(), nlohmann::json::exception);
  EXPECT_THROW(nlohmann::json::parse(documents[1]).get<AIProviderDescriptor>(), nlohmann::json::exception);
  EXPECT_THROW(nlohmann::json::parse(documents[2]).get<AIProviderConfiguration>(), nlohmann::json::exception);
  EXPECT_THROW(nlohmann::json::parse(documents[3]).get<AIProviderConfiguration>(), nlohmann::json::exception);
}

TEST(AIProviderTest, APIStylesHaveDistinctRawValuesThatReadBack) {
  for (auto style : {AIProviderAPIStyle::openAICompatibleWithoutKey, AIProviderAPIStyle::openAICompatibleBearer,
                     AIProviderAPIStyle::anthropicMessages}) {
    EXPECT_EQ(aiProviderAPIStyleFromRawValue(rawValue(style)), style);
  }
  EXPECT_EQ(rawValue(AIProviderAPIStyle::anthropicMessages), "anthropicMessages");
  EXPECT_FALSE(aiProviderAPIStyleFromRawValue("AnthropicMessages"));
}

TEST(AIProviderTest, ModelReferenceDisplayNameDefaultsToTheModelIdentifier) {
  const auto reference = nlohmann::json::parse(R"({"modelID":"gpt-x","providerID":"cfg"})").get<AIModelReference>();
  EXPECT_EQ(reference.displayName, "gpt-x");
  EXPECT_FALSE(reference.supportsStructuredOutput);

  AIModelReference full{"m", "Model M", "cfg", true, 128000};
  EXPECT_EQ(nlohmann::json(full).get<AIModelReference>(), full);
}

TEST(AIProviderTest, DiscoveryDebugResultRoundTripsAndReportsFailure) {
  AIProviderModelDiscoveryDebugResult result;
  result.models = {{"m1", "m1", "cfg", false, std::nullopt}};
  result.exchange = {"GET https://x/v1/models\nauthorization: [REDACTED]", "HTTP 200", "{\"data\":[]}"};
  EXPECT_TRUE(result.succeeded());
  EXPECT_EQ(nlohmann::json(result).get<AIProviderModelDiscoveryDebugResult>(), result);

  result.errorMessage = "Invalid provider response.";
  EXPECT_FALSE(result.succeeded());
}

}  // namespace
}  // namespace orvid
