#include "orvid/automation/cua_driver_status_parser.h"

#include <initializer_list>
#include <memory>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <unicode/regex.h>
#include <unicode/utext.h>

#include "orvid/ai/secret_redactor.h"
#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/text.h"

namespace orvid::CUADriverStatusParser {
namespace {

using nlohmann::json;

bool contains(std::string_view text, std::string_view word) { return text.find(word) != std::string_view::npos; }

using json_support::member;

// The first of `keys` that `object` has.
const json* firstPresent(const json& object, std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    if (const json* value = member(object, key)) return value;
  }
  return nullptr;
}

// Text as itself, any other value as its JSON text.
std::optional<std::string> stringValue(const json* value) {
  if (value == nullptr) return std::nullopt;
  if (value->is_string()) return value->get<std::string>();
  return value->dump();
}

std::optional<bool> boolValue(const json* value) {
  if (value == nullptr) return std::nullopt;
  if (value->is_boolean()) return value->get<bool>();
  if (!value->is_string()) return std::nullopt;
  std::string lower = internal::lowercaseASCII(value->get_ref<const std::string&>());
  for (const char* yes : {"true", "yes", "ok", "ready", "granted", "running"}) {
    if (lower == yes) return true;
  }
  for (const char* no : {"false", "no", "missing", "denied", "stopped"}) {
    if (lower == no) return false;
  }
  return std::nullopt;
}

CUAPermissionState permissionState(const json* value) {
  if (value == nullptr) return CUAPermissionState::unknown;
  if (auto flag = boolValue(value)) return *flag ? CUAPermissionState::granted : CUAPermissionState::missing;
  std::string lower = internal::lowercaseASCII(stringValue(value).value_or(""));
  if (contains(lower, "granted") || contains(lower, "ok")) return CUAPermissionState::granted;
  if (contains(lower, "missing") || contains(lower, "denied")) return CUAPermissionState::missing;
  return CUAPermissionState::unknown;
}

// Capture group 1 of the first match of the version pattern, over the UTF-8 bytes.
std::optional<std::string> version(const std::string& text) {
  static const std::unique_ptr<icu::RegexPattern> pattern = [] {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(
        icu::UnicodeString::fromUTF8("(?i)\\bversion[:\\s]+([0-9A-Za-z.\\-]+)"), 0, parseError, status));
    if (U_FAILURE(status)) throw std::logic_error(std::string("version pattern does not compile: ") + u_errorName(status));
    return compiled;
  }();
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UText, decltype(&utext_close)> input(
      utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status), &utext_close);
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(status));
  if (U_FAILURE(status)) return std::nullopt;
  matcher->reset(input.get());
  if (!matcher->find(status) || U_FAILURE(status)) return std::nullopt;
  const int64_t start = matcher->start64(1, status);
  const int64_t end = matcher->end64(1, status);
  if (U_FAILURE(status)) return std::nullopt;
  return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

std::optional<std::string> daemonState(std::string_view lower) {
  if (contains(lower, "running")) return "running";
  if (contains(lower, "stopped")) return "stopped";
  return std::nullopt;
}

CUAPermissionState textPermission(std::string_view lower, std::string_view subject) {
  if (!contains(lower, subject)) return CUAPermissionState::unknown;
  if (contains(lower, "missing") || contains(lower, "denied")) return CUAPermissionState::missing;
  if (contains(lower, "granted") || contains(lower, "ok")) return CUAPermissionState::granted;
  return CUAPermissionState::unknown;
}

}  // namespace

std::optional<CUADriverStatus> parseDoctorJSON(std::string_view data, const std::optional<std::string>& binaryPath,
                                               std::chrono::system_clock::time_point now) {
  json report = json::parse(data, nullptr, /*allow_exceptions=*/false);
  if (!report.is_object()) return std::nullopt;

  CUADriverStatus status;
  if (const json* value = member(report, "version"); value != nullptr && value->is_string()) {
    status.version = value->get<std::string>();
  }
  status.daemonState = stringValue(firstPresent(report, {"daemon", "daemon_state", "status"}));

  const json* permissions = member(report, "permissions");
  const json* accessibility = firstPresent(report, {"accessibility", "accessibility_permission"});
  if (accessibility == nullptr && permissions != nullptr) accessibility = member(*permissions, "accessibility");
  status.accessibilityPermission = permissionState(accessibility);
  const json* screenRecording = firstPresent(report, {"screen_recording", "screenRecording"});
  if (screenRecording == nullptr && permissions != nullptr) {
    screenRecording = firstPresent(*permissions, {"screen_recording", "screenRecording"});
  }
  status.screenRecordingPermission = permissionState(screenRecording);

  const json* error = member(report, "error");
  std::string daemon = internal::lowercaseASCII(status.daemonState.value_or(""));
  if (boolValue(member(report, "installed")) == false) {
    status.readiness = CUADriverReadiness::notInstalled;
  } else if (boolValue(member(report, "ready")) == true) {
    status.readiness = CUADriverReadiness::ready;
  } else if (status.accessibilityPermission == CUAPermissionState::missing ||
             status.screenRecordingPermission == CUAPermissionState::missing) {
    status.readiness = CUADriverReadiness::permissionsMissing;
  } else if (status.daemonState && contains(daemon, "running")) {
    status.readiness = CUADriverReadiness::daemonRunning;
  } else if (status.daemonState && contains(daemon, "stopped")) {
    status.readiness = CUADriverReadiness::daemonStopped;
  } else if (error != nullptr) {
    status.readiness = CUADriverReadiness::error;
  } else {
    status.readiness = CUADriverReadiness::daemonRunning;
  }

  status.binaryPath = binaryPath;
  if (!status.binaryPath) status.binaryPath = stringValue(member(report, "binary_path"));
  if (!status.binaryPath) status.binaryPath = stringValue(member(report, "path"));
  status.checkedAt = now;
  if (auto errorText = stringValue(error)) status.lastError = SecretRedactor::redact(*errorText);
  return status;
}

std::optional<CUADriverStatus> parseDoctorJSON(const Bytes& data, const std::optional<std::string>& binaryPath,
                                               std::chrono::system_clock::time_point now) {
  return parseDoctorJSON(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()), binaryPath, now);
}

CUADriverStatus parseText(std::string_view text, const std::optional<std::string>& binaryPath,
                          std::chrono::system_clock::time_point now) {
  std::string redacted = SecretRedactor::redact(text);
  std::string lower = internal::lowercaseASCII(redacted);

  CUADriverStatus status;
  status.accessibilityPermission = textPermission(lower, "accessibility");
  status.screenRecordingPermission = textPermission(lower, "screen recording");
  if (contains(lower, "not installed") || contains(lower, "command not found")) {
    status.readiness = CUADriverReadiness::notInstalled;
  } else if (status.accessibilityPermission == CUAPermissionState::missing ||
             status.screenRecordingPermission == CUAPermissionState::missing) {
    status.readiness = CUADriverReadiness::permissionsMissing;
  } else if (contains(lower, "ready")) {
    status.readiness = CUADriverReadiness::ready;
  } else if (contains(lower, "running")) {
    status.readiness = CUADriverReadiness::daemonRunning;
  } else if (contains(lower, "stopped")) {
    status.readiness = CUADriverReadiness::daemonStopped;
  } else {
    status.readiness = CUADriverReadiness::error;
  }
  status.version = version(redacted);
  status.daemonState = daemonState(lower);
  status.binaryPath = binaryPath;
  status.checkedAt = now;
  if (status.readiness == CUADriverReadiness::error) status.lastError = redacted;
  return status;
}

}  // namespace orvid::CUADriverStatusParser
