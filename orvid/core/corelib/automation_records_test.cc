#include "orvid/core/corelib/automation_records.h"

#include <chrono>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TEST(AutomationRecordsTest, MethodsHaveTheirRawValuesAndDisplayNames) {
  struct Case {
    AIAutomationMethod method;
    const char* raw;
    const char* display;
  };
  const Case cases[] = {
      {AIAutomationMethod::automatic, "auto", "Auto"},
      {AIAutomationMethod::computerUse, "computerUse", "Computer Use"},
      {AIAutomationMethod::browserUse, "browserUse", "Browser Use"},
      {AIAutomationMethod::script, "script", "Script Automation"},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(rawValue(testCase.method), testCase.raw);
    EXPECT_EQ(displayName(testCase.method), testCase.display);
    EXPECT_EQ(nlohmann::json(testCase.raw).get<AIAutomationMethod>(), testCase.method);
  }
  EXPECT_THROW(nlohmann::json("automatic").get<AIAutomationMethod>(), nlohmann::json::exception);
}

TEST(AutomationRecordsTest, AutomationModelCountsOnlyWithNonBlankModelAndProvider) {
  struct Case {
    std::optional<AIModelReference> model;
    bool configured;
  };
  const Case cases[] = {
      {std::nullopt, false},
      {AIModelReference{"gpt-x", "gpt-x", "cfg", false, std::nullopt}, true},
      {AIModelReference{"gpt-x", "gpt-x", " \n\t", false, std::nullopt}, false},
      {AIModelReference{"\r\n", "", "cfg", false, std::nullopt}, false},
      {AIModelReference{"", "", "", false, std::nullopt}, false},
      {AIModelReference{" m ", "", " p ", false, std::nullopt}, true},
  };
  for (const auto& testCase : cases) {
    AIAutomationConfiguration configuration;
    configuration.automationModel = testCase.model;
    EXPECT_EQ(configuration.hasConfiguredAutomationModel(), testCase.configured)
        << (testCase.model ? testCase.model->modelID + "/" + testCase.model->providerID : "none");
  }
}

TEST(AutomationRecordsTest, AutomationIsEnabledByAnyOfItsThreeFlags) {
  AIAutomationConfiguration configuration;
  EXPECT_FALSE(configuration.isAutomationEnabled());
  for (bool AIAutomationConfiguration::*flag :
       {&AIAutomationConfiguration::computerUseEnabled, &AIAutomationConfiguration::browserUseEnabled,
        &AIAutomationConfiguration::scriptAutomationEnabled}) {
    AIAutomationConfiguration enabled;
    enabled.*flag = true;
    EXPECT_TRUE(enabled.isAutomationEnabled());
  }
}

TEST(AutomationRecordsTest, ConfigurationDecodesDefaultsForMissingKeys) {
  const auto configuration = nlohmann::json::parse(R"({"browserUseEnabled":true})").get<AIAutomationConfiguration>();
  EXPECT_TRUE(configuration.browserUseEnabled);
  EXPECT_TRUE(configuration.requiresConfirmation);
  EXPECT_DOUBLE_EQ(configuration.minimumTranscriptionConfidence, 0.55);
  EXPECT_EQ(configuration.method, AIAutomationMethod::automatic);

  AIAutomationConfiguration full;
  full.scriptAutomationEnabled = true;
  full.method = AIAutomationMethod::script;
  full.automationModel = AIModelReference{"m", "m", "p", true, std::nullopt};
  full.requiresConfirmation = false;
  full.minimumTranscriptionConfidence = 0.7;
  EXPECT_EQ(nlohmann::json(full).get<AIAutomationConfiguration>(), full);
}

TEST(AutomationRecordsTest, ProposalAndResultRoundTripOmittingAbsentValues) {
  AutomationProposal proposal;
  proposal.id = UUID::random();
  proposal.method = AIAutomationMethod::script;
  proposal.title = "List files";
  proposal.summary = "ls -la";
  proposal.steps = {"Run the generated local automation script."};
  proposal.requirements = {"Local script execution"};
  proposal.interpreter = ScriptAutomationInterpreter::shell;
  proposal.script = "{\"command\":\"ls -la\",\"title\":\"List files\"}";
  const nlohmann::json proposalJSON = proposal;
  EXPECT_FALSE(proposalJSON.contains("warning"));
  EXPECT_EQ(proposalJSON.at("interpreter"), "shell");
  EXPECT_EQ(proposalJSON.get<AutomationProposal>(), proposal);

  AutomationExecutionResult result;
  result.executionID = proposal.id;
  result.method = AIAutomationMethod::script;
  result.exitCode = 3;
  result.stdout = "out";
  result.stderr = "err";
  const nlohmann::json bare = result;
  EXPECT_FALSE(bare.contains("terminalWindow"));
  EXPECT_FALSE(bare.contains("title"));
  EXPECT_EQ(bare.get<AutomationExecutionResult>(), result);

  result.title = "List files";
  result.terminalWindow = AutomationExecutionResult::TerminalWindowRef{4242, "com.mitchellh.ghostty"};
  EXPECT_EQ(nlohmann::json(result).get<AutomationExecutionResult>(), result);
  EXPECT_FALSE(result.succeeded());
}

TEST(AutomationRecordsTest, TerminalApplicationsNameTheirDisplayNameAndBundle) {
  EXPECT_EQ(displayName(ScriptAutomationTerminalApplication::terminal), "Terminal");
  EXPECT_EQ(displayName(ScriptAutomationTerminalApplication::iTerm), "iTerm");
  EXPECT_EQ(displayName(ScriptAutomationTerminalApplication::ghostty), "Ghostty");
  EXPECT_EQ(bundleIdentifier(ScriptAutomationTerminalApplication::iTerm), "com.googlecode.iterm2");

  ScriptAutomationOptions options{ScriptAutomationTerminalApplication::ghostty, true};
  EXPECT_EQ(nlohmann::json(options).get<ScriptAutomationOptions>(), options);
  EXPECT_EQ(nlohmann::json::object().get<ScriptAutomationOptions>(), ScriptAutomationOptions{});
}

TEST(AutomationRecordsTest, DependencyReadinessKeepsItsNumberingAndStatusRoundTrips) {
  EXPECT_EQ(static_cast<int>(AutomationDependencyReadiness::notInstalled), 1);
  EXPECT_EQ(static_cast<int>(AutomationDependencyReadiness::ready), 6);
  EXPECT_EQ(static_cast<int>(AutomationDependencyReadiness::failed), 7);

  AutomationDependencyStatus status;
  status.readiness = AutomationDependencyReadiness::failed;
  status.version = "1.2.3";
  status.accessibilityPermission = CUAPermissionState::granted;
  status.screenRecordingPermission = CUAPermissionState::missing;
  status.nativeHostStatus = "Missing";
  status.lastCheckedAt = std::chrono::system_clock::time_point(std::chrono::milliseconds(1700000000000));
  status.lastError = "doctor failed";
  EXPECT_EQ(nlohmann::json(status).get<AutomationDependencyStatus>(), status);
  EXPECT_EQ(nlohmann::json(status).at("readiness"), "failed");
}

}  // namespace
}  // namespace orvid
