#include "orvid/core/corelib/automation_records.h"

#include <array>
#include <string_view>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

constexpr std::array<const char*, 4> kMethodNames{"auto", "computerUse", "browserUse", "script"};
constexpr std::array<const char*, 4> kMethodDisplayNames{"Auto", "Computer Use", "Browser Use", "Script Automation"};
constexpr std::array<const char*, 3> kTerminalNames{"terminal", "iTerm", "ghostty"};
constexpr std::array<const char*, 3> kTerminalDisplayNames{"Terminal", "iTerm", "Ghostty"};
constexpr std::array<const char*, 3> kTerminalBundleIdentifiers{"com.apple.Terminal", "com.googlecode.iterm2",
                                                                "com.mitchellh.ghostty"};
constexpr std::array<const char*, 4> kInterpreterNames{"appleScript", "shell", "python", "ruby"};
constexpr std::array<const char*, 8> kReadinessNames{"unknown",          "notInstalled",     "permissionsMissing",
                                                     "nativeHostMissing", "extensionMissing", "browserNotConnected",
                                                     "ready",            "failed"};

template <typename E, std::size_t N>
std::string nameOf(const std::array<const char*, N>& names, E value) {
  return names[static_cast<std::size_t>(value)];
}

template <typename E, std::size_t N>
std::optional<E> valueNamed(const std::array<const char*, N>& names, std::string_view text) {
  for (std::size_t i = 0; i < N; ++i) {
    if (text == names[i]) return static_cast<E>(i);
  }
  return std::nullopt;
}

template <typename E, std::size_t N>
void decodeNamed(const nlohmann::json& json, const std::array<const char*, N>& names, E& value, const char* what) {
  auto parsed = valueNamed<E>(names, json.get<std::string>());
  if (!parsed) throw nlohmann::json::other_error::create(501, std::string("unknown ") + what + ": " + json.dump(), &json);
  value = *parsed;
}

bool isBlank(const std::string& text) { return internal::trimASCIIWhitespace(text).empty(); }

}  // namespace

std::string rawValue(AIAutomationMethod method) { return nameOf(kMethodNames, method); }

std::optional<AIAutomationMethod> aiAutomationMethodFromRawValue(const std::string& text) {
  return valueNamed<AIAutomationMethod>(kMethodNames, text);
}

std::string displayName(AIAutomationMethod method) { return nameOf(kMethodDisplayNames, method); }

bool AIAutomationConfiguration::hasConfiguredAutomationModel() const {
  return automationModel && !isBlank(automationModel->modelID) && !isBlank(automationModel->providerID);
}

std::string rawValue(ScriptAutomationTerminalApplication application) { return nameOf(kTerminalNames, application); }
std::string displayName(ScriptAutomationTerminalApplication application) {
  return nameOf(kTerminalDisplayNames, application);
}
std::string bundleIdentifier(ScriptAutomationTerminalApplication application) {
  return nameOf(kTerminalBundleIdentifiers, application);
}

std::string rawValue(ScriptAutomationInterpreter interpreter) { return nameOf(kInterpreterNames, interpreter); }

std::string rawValue(AutomationDependencyReadiness readiness) { return nameOf(kReadinessNames, readiness); }

void to_json(nlohmann::json& json, const AIAutomationMethod& method) { json = rawValue(method); }
void from_json(const nlohmann::json& json, AIAutomationMethod& method) {
  decodeNamed(json, kMethodNames, method, "automation method");
}

void to_json(nlohmann::json& json, const AIAutomationConfiguration& configuration) {
  json = nlohmann::json::object();
  json["computerUseEnabled"] = configuration.computerUseEnabled;
  json["browserUseEnabled"] = configuration.browserUseEnabled;
  json["scriptAutomationEnabled"] = configuration.scriptAutomationEnabled;
  json["method"] = configuration.method;
  json_support::putOptional(json, "automationModel", configuration.automationModel);
  json["requiresConfirmation"] = configuration.requiresConfirmation;
  json["minimumTranscriptionConfidence"] = configuration.minimumTranscriptionConfidence;
}

void from_json(const nlohmann::json& json, AIAutomationConfiguration& configuration) {
  configuration = {};
  json_support::getIfPresent(json, "computerUseEnabled", configuration.computerUseEnabled);
  json_support::getIfPresent(json, "browserUseEnabled", configuration.browserUseEnabled);
  json_support::getIfPresent(json, "scriptAutomationEnabled", configuration.scriptAutomationEnabled);
  json_support::getIfPresent(json, "method", configuration.method);
  json_support::getOptional(json, "automationModel", configuration.automationModel);
  json_support::getIfPresent(json, "requiresConfirmation", configuration.requiresConfirmation);
  json_support::getIfPresent(json, "minimumTranscriptionConfidence", configuration.minimumTranscriptionConfidence);
}

void to_json(nlohmann::json& json, const ScriptAutomationTerminalApplication& application) {
  json = rawValue(application);
}
void from_json(const nlohmann::json& json, ScriptAutomationTerminalApplication& application) {
  decodeNamed(json, kTerminalNames, application, "terminal application");
}

void to_json(nlohmann::json& json, const ScriptAutomationInterpreter& interpreter) { json = rawValue(interpreter); }
void from_json(const nlohmann::json& json, ScriptAutomationInterpreter& interpreter) {
  decodeNamed(json, kInterpreterNames, interpreter, "interpreter");
}

void to_json(nlohmann::json& json, const ScriptAutomationOptions& options) {
  json = {{"terminalApplication", options.terminalApplication},
          {"runsWithoutTerminalWindow", options.runsWithoutTerminalWindow}};
}

void from_json(const nlohmann::json& json, ScriptAutomationOptions& options) {
  options = {};
  json_support::getIfPresent(json, "terminalApplication", options.terminalApplication);
  json_support::getIfPresent(json, "runsWithoutTerminalWindow", options.runsWithoutTerminalWindow);
}

void to_json(nlohmann::json& json, const AutomationProposal& proposal) {
  json = nlohmann::json::object();
  json["id"] = proposal.id;
  json["method"] = proposal.method;
  json["title"] = proposal.title;
  json["summary"] = proposal.summary;
  json["steps"] = proposal.steps;
  json["requirements"] = proposal.requirements;
  json["isExecutable"] = proposal.isExecutable;
  json_support::putOptional(json, "interpreter", proposal.interpreter);
  json_support::putOptional(json, "script", proposal.script);
  json_support::putOptional(json, "warning", proposal.warning);
  json["requiresConfirmation"] = proposal.requiresConfirmation;
}

void from_json(const nlohmann::json& json, AutomationProposal& proposal) {
  proposal = {};
  json.at("id").get_to(proposal.id);
  json.at("method").get_to(proposal.method);
  json.at("title").get_to(proposal.title);
  json.at("summary").get_to(proposal.summary);
  json_support::getIfPresent(json, "steps", proposal.steps);
  json_support::getIfPresent(json, "requirements", proposal.requirements);
  json_support::getIfPresent(json, "isExecutable", proposal.isExecutable);
  json_support::getOptional(json, "interpreter", proposal.interpreter);
  json_support::getOptional(json, "script", proposal.script);
  json_support::getOptional(json, "warning", proposal.warning);
  json_support::getIfPresent(json, "requiresConfirmation", proposal.requiresConfirmation);
}

void to_json(nlohmann::json& json, const AutomationTerminalWindowRef& window) {
  json = {{"processIdentifier", window.processIdentifier}, {"bundleIdentifier", window.bundleIdentifier}};
}

void from_json(const nlohmann::json& json, AutomationTerminalWindowRef& window) {
  window.processIdentifier = json_support::integer<std::int32_t>(json.at("processIdentifier"));
  json.at("bundleIdentifier").get_to(window.bundleIdentifier);
}

void to_json(nlohmann::json& json, const AutomationExecutionResult& result) {
  json = nlohmann::json::object();
  json["executionID"] = result.executionID;
  json["method"] = result.method;
  json["exitCode"] = result.exitCode;
  json["stdout"] = result.stdout;
  json["stderr"] = result.stderr;
  json_support::putOptional(json, "durationMilliseconds", result.durationMilliseconds);
  json_support::putOptional(json, "title", result.title);
  json_support::putOptional(json, "terminalWindow", result.terminalWindow);
}

void from_json(const nlohmann::json& json, AutomationExecutionResult& result) {
  result = {};
  json.at("executionID").get_to(result.executionID);
  json.at("method").get_to(result.method);
  result.exitCode = json_support::integer<std::int32_t>(json.at("exitCode"));
  json_support::getIfPresent(json, "stdout", result.stdout);
  json_support::getIfPresent(json, "stderr", result.stderr);
  json_support::getOptional(json, "durationMilliseconds", result.durationMilliseconds);
  json_support::getOptional(json, "title", result.title);
  json_support::getOptional(json, "terminalWindow", result.terminalWindow);
}

void to_json(nlohmann::json& json, const AutomationDependencyReadiness& readiness) { json = rawValue(readiness); }
void from_json(const nlohmann::json& json, AutomationDependencyReadiness& readiness) {
  decodeNamed(json, kReadinessNames, readiness, "dependency readiness");
}

void to_json(nlohmann::json& json, const AutomationDependencyStatus& status) {
  json = nlohmann::json::object();
  json["readiness"] = status.readiness;
  json_support::putOptional(json, "version", status.version);
  json_support::putOptional(json, "binaryPath", status.binaryPath);
  json["accessibilityPermission"] = status.accessibilityPermission;
  json["screenRecordingPermission"] = status.screenRecordingPermission;
  json_support::putOptional(json, "nativeHostStatus", status.nativeHostStatus);
  json_support::putOptional(json, "extensionStatus", status.extensionStatus);
  json_support::putOptional(json, "extensionVersion", status.extensionVersion);
  json_support::putOptional(json, "activeSessionPath", status.activeSessionPath);
  json_support::putOptional(json, "lastCheckedAt", status.lastCheckedAt);
  json_support::putOptional(json, "lastError", status.lastError);
}

void from_json(const nlohmann::json& json, AutomationDependencyStatus& status) {
  status = {};
  json.at("readiness").get_to(status.readiness);
  json_support::getOptional(json, "version", status.version);
  json_support::getOptional(json, "binaryPath", status.binaryPath);
  json_support::getIfPresent(json, "accessibilityPermission", status.accessibilityPermission);
  json_support::getIfPresent(json, "screenRecordingPermission", status.screenRecordingPermission);
  json_support::getOptional(json, "nativeHostStatus", status.nativeHostStatus);
  json_support::getOptional(json, "extensionStatus", status.extensionStatus);
  json_support::getOptional(json, "extensionVersion", status.extensionVersion);
  json_support::getOptional(json, "activeSessionPath", status.activeSessionPath);
  json_support::getOptional(json, "lastCheckedAt", status.lastCheckedAt);
  json_support::getOptional(json, "lastError", status.lastError);
}

}  // namespace orvid
