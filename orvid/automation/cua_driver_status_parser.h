#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "orvid/core/corelib/cua_driver_status.h"
#include "orvid/platform/bytes.h"

// Turns the answers of the "cua-driver" tool into a CUADriverStatus. Every text
// taken from the tool is redacted with SecretRedactor first.
namespace orvid::CUADriverStatusParser {

// Reads the JSON object printed by "cua-driver doctor --json":
// - version: "version" when it is a string;
// - daemon state: the first present of "daemon", "daemon_state", "status";
// - accessibility: the first present of "accessibility", "accessibility_permission",
//   "permissions"."accessibility"; screen recording: "screen_recording",
//   "screenRecording", then the same two inside "permissions";
// - readiness, first rule that applies: "installed" false → notInstalled; "ready"
//   true → ready; a permission missing → permissionsMissing; a daemon state saying
//   running / stopped → daemonRunning / daemonStopped; an "error" member →
//   error; otherwise daemonRunning;
// - binary path: `binaryPath`, else "binary_path", else "path";
// - last error: "error" (redacted) whenever present; checked at: `now`.
// Members that are not strings read as their JSON text; "yes", "ok", "granted",
// "running"... and "no", "denied", "missing", "stopped"... count as Booleans.
// Absent when `data` is not JSON or not an object.
std::optional<CUADriverStatus> parseDoctorJSON(const Bytes& data, const std::optional<std::string>& binaryPath,
                                               std::chrono::system_clock::time_point now);
std::optional<CUADriverStatus> parseDoctorJSON(std::string_view data, const std::optional<std::string>& binaryPath,
                                               std::chrono::system_clock::time_point now);

// Reads the free text of "cua-driver status" by the words it contains (case
// ignored): "not installed" or "command not found" → notInstalled; a permission
// ("accessibility", "screen recording") mentioned with "missing" or "denied" →
// permissionsMissing; "ready" → ready; "running" → daemonRunning; "stopped" →
// daemonStopped; anything else → error, with the redacted text as last error.
// The version is the word after "version" ("Version: 1.2.3-beta"), when there is one.
CUADriverStatus parseText(std::string_view text, const std::optional<std::string>& binaryPath,
                          std::chrono::system_clock::time_point now);

}  // namespace orvid::CUADriverStatusParser
