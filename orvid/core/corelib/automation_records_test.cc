#include "orvid/core/corelib/automation_records.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TEST(AutomationRecordsTest, AutomationModelCountsOnlyWithNonBlankModelAndProvider) {
  struct Case { std::optional<AIModelReference> model; bool configured; };
  const Case cases[] = {
      {std::nullopt, false},
      {AIModelReference{" m ", "", " p ", false, std::nullopt}, true},
      {AIModelReference{"gpt-x", "gpt-x", " \n\t", false, std::nullopt}, false},
      {AIModelReference{"\r\n", "", "cfg", false, std::nullopt}, false},
  };
  for (const auto& testCase : cases) {
    AIAutomationConfiguration configuration;
    configuration.automationModel = testCase.model;
    EXPECT_EQ(configuration.hasConfiguredAutomationModel(), testCase.configured)
        << (testCase.model ? testCase.model->modelID + "/" + testCase.model->providerID : "none");
  }
}

TEST(AutomationRecordsTest, AutomationIsEnabledByAnyOfItsThreeFlags) {
  EXPECT_FALSE(AIAutomationConfiguration{}.isAutomationEnabled());
  for (bool AIAutomationConfiguration::*flag :
       {&AIAutomationConfiguration::computerUseEnabled, &AIAutomationConfiguration::browserUseEnabled,
        &AIAutomationConfiguration::scriptAutomationEnabled}) {
    AIAutomationConfiguration enabled;
    enabled.*flag = true;
    EXPECT_TRUE(enabled.isAutomationEnabled());
  }
}

TEST(AutomationRecordsTest, SettingsDecodeDefaultsForMissingKeysAndRejectUnknownMethods) {
  const auto configuration = nlohmann::json::parse(R"({"browserUseEnabled":true})").get<AIAutomationConfiguration>();
  EXPECT_TRUE(configuration.browserUseEnabled);
  EXPECT_TRUE(configuration.requiresConfirmation);
  EXPECT_DOUBLE_EQ(configuration.minimumTranscriptionConfidence, 0.55);
  EXPECT_EQ(configuration.method, AIAutomationMethod::automatic);
  EXPECT_EQ(nlohmann::json::object().get<ScriptAutomationOptions>(), ScriptAutomationOptions{});

  EXPECT_EQ(nlohmann::json("auto").get<AIAutomationMethod>(), AIAutomationMethod::automatic);
  EXPECT_THROW(nlohmann::json("automatic").get<AIAutomationMethod>(), nlohmann::json::exception);
}

}  // namespace
}  // namespace orvid
