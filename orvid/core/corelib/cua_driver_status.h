#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

// How far the computer-use driver is from being usable, in escalating order.
enum class CUADriverReadiness {
  notInstalled,
  installedNotOnPath,
  daemonStopped,
  daemonRunning,
  permissionsMissing,
  ready,
  error,
};

// The case's own name, e.g. "permissionsMissing".
std::string rawValue(CUADriverReadiness readiness);
std::optional<CUADriverReadiness> cuaDriverReadinessFromRawValue(const std::string& text);

enum class CUAPermissionState { unknown, granted, missing };

std::string rawValue(CUAPermissionState state);

// The driver's state as its status commands report it.
struct CUADriverStatus {
  CUADriverReadiness readiness = CUADriverReadiness::notInstalled;
  std::optional<std::string> version;
  std::optional<std::string> binaryPath;
  std::optional<std::string> daemonState;
  CUAPermissionState accessibilityPermission = CUAPermissionState::unknown;
  CUAPermissionState screenRecordingPermission = CUAPermissionState::unknown;
  std::optional<std::chrono::system_clock::time_point> checkedAt;
  std::optional<std::string> lastError;

  bool operator==(const CUADriverStatus&) const = default;
};

void to_json(nlohmann::json& json, const CUADriverReadiness& readiness);
void from_json(const nlohmann::json& json, CUADriverReadiness& readiness);
void to_json(nlohmann::json& json, const CUAPermissionState& state);
void from_json(const nlohmann::json& json, CUAPermissionState& state);
void to_json(nlohmann::json& json, const CUADriverStatus& status);
void from_json(const nlohmann::json& json, CUADriverStatus& status);

}  // namespace orvid
