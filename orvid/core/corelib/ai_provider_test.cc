#include "orvid/core/corelib/ai_provider.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TEST(AIProviderTest, SettingsWithoutOptionalKeysDecodeToTheirDefaults) {
  const auto configuration =
      nlohmann::json::parse(R"({"id":"c","providerID":"openai"})").get<AIProviderConfiguration>();
  EXPECT_FALSE(configuration.baseURL);
  EXPECT_FALSE(configuration.selectedModelID);
  EXPECT_TRUE(configuration.modelIDs.empty());
  EXPECT_EQ(configuration.validationState, AIProviderValidationState::notValidated());

  const auto reference = nlohmann::json::parse(R"({"modelID":"gpt-x","providerID":"cfg"})").get<AIModelReference>();
  EXPECT_EQ(reference.displayName, "gpt-x");
  EXPECT_FALSE(reference.supportsStructuredOutput);
}

TEST(AIProviderTest, DecodingRejectsUnknownStylesStatesAndUnusableURLs) {
  for (const char* document : {R"({"id":"x","apiStyle":"grpc"})",
                               R"({"id":"x","apiStyle":"openAICompatibleBearer","defaultBaseURL":"not a url"})"}) {
    EXPECT_THROW(nlohmann::json::parse(document).get<AIProviderDescriptor>(), nlohmann::json::exception) << document;
  }
  for (const char* document : {R"({"id":"c","providerID":"p","baseURL":"/relative/path"})",
                               R"({"id":"c","providerID":"p","validationState":{"kind":"maybe"}})"}) {
    EXPECT_THROW(nlohmann::json::parse(document).get<AIProviderConfiguration>(), nlohmann::json::exception)
        << document;
  }
  EXPECT_FALSE(aiProviderAPIStyleFromRawValue("AnthropicMessages"));
}

}  // namespace
}  // namespace orvid
