#include "orvid/core/corelib/cua_driver_status.h"

#include <array>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"

namespace orvid {
namespace {

constexpr std::array<const char*, 7> kReadinessNames{
    "notInstalled", "installedNotOnPath", "daemonStopped", "daemonRunning", "permissionsMissing", "ready", "error"};
constexpr std::array<const char*, 3> kPermissionNames{"unknown", "granted", "missing"};

}  // namespace

std::string rawValue(CUADriverReadiness readiness) { return kReadinessNames[static_cast<std::size_t>(readiness)]; }

std::optional<CUADriverReadiness> cuaDriverReadinessFromRawValue(const std::string& text) {
  for (std::size_t i = 0; i < kReadinessNames.size(); ++i) {
    if (text == kReadinessNames[i]) return static_cast<CUADriverReadiness>(i);
  }
  return std::nullopt;
}

std::string rawValue(CUAPermissionState state) { return kPermissionNames[static_cast<std::size_t>(state)]; }

void to_json(nlohmann::json& json, const CUADriverReadiness& readiness) { json = rawValue(readiness); }

void from_json(const nlohmann::json& json, CUADriverReadiness& readiness) {
  auto parsed = cuaDriverReadinessFromRawValue(json.get<std::string>());
  if (!parsed) throw nlohmann::json::other_error::create(501, "unknown readiness: " + json.dump(), &json);
  readiness = *parsed;
}

void to_json(nlohmann::json& json, const CUAPermissionState& state) { json = rawValue(state); }

void from_json(const nlohmann::json& json, CUAPermissionState& state) {
  auto text = json.get<std::string>();
  for (std::size_t i = 0; i < kPermissionNames.size(); ++i) {
    if (text == kPermissionNames[i]) {
      state = static_cast<CUAPermissionState>(i);
      return;
    }
  }
  throw nlohmann::json::other_error::create(501, "unknown permission state: " + text, &json);
}

void to_json(nlohmann::json& json, const CUADriverStatus& status) {
  json = nlohmann::json::object();
  json["readiness"] = status.readiness;
  json_support::putOptional(json, "version", status.version);
  json_support::putOptional(json, "binaryPath", status.binaryPath);
  json_support::putOptional(json, "daemonState", status.daemonState);
  json["accessibilityPermission"] = status.accessibilityPermission;
  json["screenRecordingPermission"] = status.screenRecordingPermission;
  json_support::putOptional(json, "checkedAt", status.checkedAt);
  json_support::putOptional(json, "lastError", status.lastError);
}

void from_json(const nlohmann::json& json, CUADriverStatus& status) {
  status = {};
  json.at("readiness").get_to(status.readiness);
  json_support::getOptional(json, "version", status.version);
  json_support::getOptional(json, "binaryPath", status.binaryPath);
  json_support::getOptional(json, "daemonState", status.daemonState);
  json_support::getIfPresent(json, "accessibilityPermission", status.accessibilityPermission);
  json_support::getIfPresent(json, "screenRecordingPermission", status.screenRecordingPermission);
  json_support::getOptional(json, "checkedAt", status.checkedAt);
  json_support::getOptional(json, "lastError", status.lastError);
}

}  // namespace orvid
