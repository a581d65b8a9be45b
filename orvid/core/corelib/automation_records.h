#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/cua_driver_status.h"
#include "orvid/platform/uuid.h"

namespace orvid {

// How a spoken request is turned into an action on the computer.
enum class AIAutomationMethod {
  // Let the host choose per request (raw value "auto").
  automatic,
  computerUse,
  browserUse,
  script,
};

// "auto", "computerUse", "browserUse", "script".
std::string rawValue(AIAutomationMethod method);
std::optional<AIAutomationMethod> aiAutomationMethodFromRawValue(const std::string& text);
// "Auto", "Computer Use", "Browser Use", "Script Automation".
std::string displayName(AIAutomationMethod method);

// The user's automation preferences.
struct AIAutomationConfiguration {
  bool computerUseEnabled = false;
  bool browserUseEnabled = false;
  bool scriptAutomationEnabled = false;
  AIAutomationMethod method = AIAutomationMethod::automatic;
  // The language model that plans automations.
  std::optional<AIModelReference> automationModel;
  // Ask the user before anything runs.
  bool requiresConfirmation = true;
  // Transcripts less confident than this need an explicit confirmation (0…1).
  double minimumTranscriptionConfidence = 0.55;

  // At least one automation method is switched on.
  bool isAutomationEnabled() const { return computerUseEnabled || browserUseEnabled || scriptAutomationEnabled; }
  // An automation model is set and both its model and provider identifiers are
  // non-empty after trimming white space and line ends.
  bool hasConfiguredAutomationModel() const;

  bool operator==(const AIAutomationConfiguration&) const = default;
};

// The terminal application a script runs in.
enum class ScriptAutomationTerminalApplication { terminal, iTerm, ghostty };

std::string rawValue(ScriptAutomationTerminalApplication application);
// "Terminal", "iTerm", "Ghostty".
std::string displayName(ScriptAutomationTerminalApplication application);
// The application's reverse-DNS bundle identifier, used to find its process.
std::string bundleIdentifier(ScriptAutomationTerminalApplication application);

// The language a generated script is written in.
enum class ScriptAutomationInterpreter { appleScript, shell, python, ruby };

std::string rawValue(ScriptAutomationInterpreter interpreter);

// How a confirmed script runs.
struct ScriptAutomationOptions {
  ScriptAutomationTerminalApplication terminalApplication = ScriptAutomationTerminalApplication::terminal;
  // Run in the background through the user's shell instead of a terminal window.
  bool runsWithoutTerminalWindow = false;

  bool operator==(const ScriptAutomationOptions&) const = default;
};

// A planned automation, shown to the user before it runs.
struct AutomationProposal {
  UUID id;
  AIAutomationMethod method = AIAutomationMethod::computerUse;
  std::string title;
  // What will be done; for computer and browser use the instruction itself.
  std::string summary;
  // The steps the automation takes, in order.
  std::vector<std::string> steps;
  // What must be installed or granted for it to run.
  std::vector<std::string> requirements;
  // The proposal can be run as it stands.
  bool isExecutable = true;
  std::optional<ScriptAutomationInterpreter> interpreter;
  // The script (or canonical proposal text) to run.
  std::optional<std::string> script;
  // A caution to show with the proposal.
  std::optional<std::string> warning;
  bool requiresConfirmation = true;

  bool operator==(const AutomationProposal&) const = default;
};

// The terminal window a script ran in.
struct AutomationTerminalWindowRef {
  std::int32_t processIdentifier = 0;
  std::string bundleIdentifier;

  bool operator==(const AutomationTerminalWindowRef&) const = default;
};

// The outcome of running an automation.
struct AutomationExecutionResult {
  // The window type lives at namespace scope: clang before 16 rejects decoding a
  // type nested in one that is still being defined.
  using TerminalWindowRef = AutomationTerminalWindowRef;

  UUID executionID;
  AIAutomationMethod method = AIAutomationMethod::computerUse;
  std::int32_t exitCode = 0;
  std::string stdout;
  std::string stderr;
  std::optional<long long> durationMilliseconds;
  std::optional<std::string> title;
  std::optional<TerminalWindowRef> terminalWindow;

  bool succeeded() const { return exitCode == 0; }

  bool operator==(const AutomationExecutionResult&) const = default;
};

// How far an automation tool is from being usable.
enum class AutomationDependencyReadiness {
  unknown,
  notInstalled,
  permissionsMissing,
  nativeHostMissing,
  extensionMissing,
  browserNotConnected,
  ready,
  failed,
};

std::string rawValue(AutomationDependencyReadiness readiness);

// The state of an automation tool as its status probe found it.
struct AutomationDependencyStatus {
  AutomationDependencyReadiness readiness = AutomationDependencyReadiness::unknown;
  std::optional<std::string> version;
  std::optional<std::string> binaryPath;
  CUAPermissionState accessibilityPermission = CUAPermissionState::unknown;
  CUAPermissionState screenRecordingPermission = CUAPermissionState::unknown;
  std::optional<std::string> nativeHostStatus;
  std::optional<std::string> extensionStatus;
  std::optional<std::string> extensionVersion;
  std::optional<std::string> activeSessionPath;
  std::optional<std::chrono::system_clock::time_point> lastCheckedAt;
  // Set only when readiness is failed.
  std::optional<std::string> lastError;

  bool operator==(const AutomationDependencyStatus&) const = default;
};

void to_json(nlohmann::json& json, const AIAutomationMethod& method);
void from_json(const nlohmann::json& json, AIAutomationMethod& method);
void to_json(nlohmann::json& json, const AIAutomationConfiguration& configuration);
void from_json(const nlohmann::json& json, AIAutomationConfiguration& configuration);
void to_json(nlohmann::json& json, const ScriptAutomationTerminalApplication& application);
void from_json(const nlohmann::json& json, ScriptAutomationTerminalApplication& application);
void to_json(nlohmann::json& json, const ScriptAutomationInterpreter& interpreter);
void from_json(const nlohmann::json& json, ScriptAutomationInterpreter& interpreter);
void to_json(nlohmann::json& json, const ScriptAutomationOptions& options);
void from_json(const nlohmann::json& json, ScriptAutomationOptions& options);
void to_json(nlohmann::json& json, const AutomationProposal& proposal);
void from_json(const nlohmann::json& json, AutomationProposal& proposal);
void to_json(nlohmann::json& json, const AutomationTerminalWindowRef& window);
void from_json(const nlohmann::json& json, AutomationTerminalWindowRef& window);
void to_json(nlohmann::json& json, const AutomationExecutionResult& result);
void from_json(const nlohmann::json& json, AutomationExecutionResult& result);
void to_json(nlohmann::json& json, const AutomationDependencyReadiness& readiness);
void from_json(const nlohmann::json& json, AutomationDependencyReadiness& readiness);
void to_json(nlohmann::json& json, const AutomationDependencyStatus& status);
void from_json(const nlohmann::json& json, AutomationDependencyStatus& status);

}  // namespace orvid
