#include "orvid/automation/cua_driver_status_parser.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {

inline void PrintTo(const CUADriverStatus& status, std::ostream* stream) { *stream << nlohmann::json(status).dump(); }

namespace {

using Readiness = CUADriverReadiness;
using Permission = CUAPermissionState;

const std::chrono::system_clock::time_point kNow{std::chrono::seconds(1700000000)};

CUADriverStatus makeStatus(Readiness readiness, std::optional<std::string> version,
                           std::optional<std::string> binaryPath, std::optional<std::string> daemonState,
                           Permission accessibility, Permission screenRecording, std::optional<std::string> lastError) {
  return {readiness, std::move(version), std::move(binaryPath), std::move(daemonState), accessibility, screenRecording,
          kNow,      std::move(lastError)};
}

TEST(CUADriverStatusParserTest, ReadsTheDoctorReport) {
  struct Case {
    std::string report;
    std::optional<std::string> binaryPath;
    CUADriverStatus expected;
  };
  const std::vector<Case> cases = {
      {R"({"installed": false, "ready": true})", "/bin/cua",
       makeStatus(Readiness::notInstalled, {}, "/bin/cua", {}, Permission::unknown, Permission::unknown, {})},
      {R"({"ready": "Yes", "version": "1.4.0"})", "/bin/cua",
       makeStatus(Readiness::ready, "1.4.0", "/bin/cua", {}, Permission::unknown, Permission::unknown, {})},
      {R"({"ready": true, "installed": "yes", "accessibility": false})", "/bin/cua",
       makeStatus(Readiness::ready, {}, "/bin/cua", {}, Permission::missing, Permission::unknown, {})},
      {R"({"permissions": {"screenRecording": "denied", "accessibility": "Granted"}, "daemon": "running"})", {},
       makeStatus(Readiness::permissionsMissing, {}, {}, "running", Permission::granted, Permission::missing, {})},
      {R"({"status": "STOPPED"})", {},
       makeStatus(Readiness::daemonStopped, {}, {}, "STOPPED", Permission::unknown, Permission::unknown, {})},
      {R"({"error": "Authorization: Bearer sk-live-42"})", {},
       makeStatus(Readiness::error, {}, {}, {}, Permission::unknown, Permission::unknown,
                  "Authorization: Bearer [REDACTED]")},
      {R"({})", "/bin/cua",
       makeStatus(Readiness::daemonRunning, {}, "/bin/cua", {}, Permission::unknown, Permission::unknown, {})},
      // Non-text members read as their JSON text; "OK" counts as granted.
      {R"({"version": 3, "daemon_state": {"pid": 42}, "accessibility_permission": "OK", "path": "/p/cua"})", {},
       makeStatus(Readiness::daemonRunning, {}, "/p/cua", R"({"pid":42})", Permission::granted, Permission::unknown,
                  {})},
      // The error is kept whatever the readiness; the daemon state decides before it.
      {R"({"daemon": "Stopped", "error": "api_key=xyz123", "binary_path": "/a", "path": "/b"})", {},
       makeStatus(Readiness::daemonStopped, {}, "/a", "Stopped", Permission::unknown, Permission::unknown,
                  "api_key=[REDACTED]")},
      // Top-level permissions win over the "permissions" object; unclear words are unknown.
      {R"({"accessibility": "granted", "screen_recording": "pending",
           "permissions": {"accessibility": "denied", "screenRecording": "denied"}})",
       {}, makeStatus(Readiness::daemonRunning, {}, {}, {}, Permission::granted, Permission::unknown, {})},
      {R"({"permissions": {"screen_recording": "OK", "screenRecording": "denied"}, "daemon": "idle"})", {},
       makeStatus(Readiness::daemonRunning, {}, {}, "idle", Permission::unknown, Permission::granted, {})},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(CUADriverStatusParser::parseDoctorJSON(c.report, c.binaryPath, kNow), c.expected) << c.report;
  }
}

TEST(CUADriverStatusParserTest, AnythingButAJSONObjectIsNoDoctorReport) {
  for (std::string output : {"", "doctor: unknown flag --json", "[1, 2]", "\"ready\"", "{\"ready\": true",
                                    "{\"a\": \"\xff\"}"}) {
    EXPECT_EQ(CUADriverStatusParser::parseDoctorJSON(output, "/bin/cua", kNow), std::nullopt) << output;
  }
  EXPECT_TRUE(CUADriverStatusParser::parseDoctorJSON(Bytes{'{', '}'}, std::nullopt, kNow));
}

TEST(CUADriverStatusParserTest, ReadsTheStatusTextByItsWords) {
  struct Case {
    std::string text;
    CUADriverStatus expected;
  };
  const std::vector<Case> cases = {
      {"Version: 1.2.3-beta, daemon running",
       makeStatus(Readiness::daemonRunning, "1.2.3-beta", "/bin/cua", "running", Permission::unknown,
                  Permission::unknown, {})},
      {"\nzsh: command not found: cua-driver",
       makeStatus(Readiness::notInstalled, {}, "/bin/cua", {}, Permission::unknown, Permission::unknown, {})},
      {"cua-driver is Not Installed (daemon stopped)",
       makeStatus(Readiness::notInstalled, {}, "/bin/cua", "stopped", Permission::unknown, Permission::unknown, {})},
      // The words count anywhere in the text: "denied" makes both permissions missing.
      {"Accessibility: granted\nScreen Recording: denied\nDaemon running",
       makeStatus(Readiness::permissionsMissing, {}, "/bin/cua", "running", Permission::missing, Permission::missing,
                  {})},
      {"Accessibility OK. VERSION 2.0 ready",
       makeStatus(Readiness::ready, "2.0", "/bin/cua", {}, Permission::granted, Permission::unknown, {})},
      {"screen recording: unknown; daemon stopped",
       makeStatus(Readiness::daemonStopped, {}, "/bin/cua", "stopped", Permission::unknown, Permission::unknown, {})},
      {"subversion: 9\nversion:\n\t 3.1_rc",
       makeStatus(Readiness::error, "3.1", "/bin/cua", {}, Permission::unknown, Permission::unknown,
                  "subversion: 9\nversion:\n\t 3.1_rc")},
      // Word boundaries and white space are Unicode's: a dash before the word is a
      // boundary, a letter is not; a no-break space separates.
      {"cua-driver \u2014version 4.2-b ready",
       makeStatus(Readiness::ready, "4.2-b", "/bin/cua", {}, Permission::unknown, Permission::unknown, {})},
      {"\u00e9version 3 ready",
       makeStatus(Readiness::ready, {}, "/bin/cua", {}, Permission::unknown, Permission::unknown, {})},
      {"Version:\u00a05.0 running",
       makeStatus(Readiness::daemonRunning, "5.0", "/bin/cua", "running", Permission::unknown, Permission::unknown,
                  {})},
      {"daemon crashed; token abc.123 rejected",
       makeStatus(Readiness::error, {}, "/bin/cua", {}, Permission::unknown, Permission::unknown,
                  "daemon crashed; token [REDACTED] rejected")},
      {"\n", makeStatus(Readiness::error, {}, "/bin/cua", {}, Permission::unknown, Permission::unknown, "\n")},
      // The secret after "token" is gone before the version is looked for.
      {"token version:9 version 1.0 running",
       makeStatus(Readiness::daemonRunning, "1.0", "/bin/cua", "running", Permission::unknown, Permission::unknown,
                  {})},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(CUADriverStatusParser::parseText(c.text, "/bin/cua", kNow), c.expected) << c.text;
  }
  EXPECT_EQ(CUADriverStatusParser::parseText("ready", std::nullopt, kNow).binaryPath, std::nullopt);
}

}  // namespace
}  // namespace orvid
