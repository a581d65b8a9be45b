#include "orvid/automation/cua_driver_status_parser.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {

inline void PrintTo(const CUADriverStatus& status, std::ostream* stream) { *stream << nlohmann::json(status).dump(); }

namespace {

using R = CUADriverReadiness;
using P = CUAPermissionState;
const std::chrono::system_clock::time_point kNow{std::chrono::seconds(1700000000)};

struct Row {
  std::string input;
  R readiness;
  std::optional<std::string> version;
  P accessibility = P::unknown;
  P screenRecording = P::unknown;
  std::optional<std::string> daemonState = std::nullopt;
  std::optional<std::string> lastError = std::nullopt;

  CUADriverStatus expected() const {
    return {readiness, version, "/bin/cua", daemonState, accessibility, screenRecording, kNow, lastError};
  }
};

TEST(CUADriverStatusParserTest, ReadsTheDoctorReport) {
  const std::vector<Row> rows = {
      {R"({"installed": false, "ready": true})", R::notInstalled, {}},
      {R"({"ready": "Yes", "version": "1.4.0"})", R::ready, "1.4.0"},
      {R"({"ready": true, "installed": "yes", "accessibility": false})", R::ready, {}, P::missing},
      {R"({"permissions": {"screenRecording": "denied", "accessibility": "Granted"}, "daemon": "running"})",
       R::permissionsMissing, {}, P::granted, P::missing, "running"},
      {R"({"status": "STOPPED"})", R::daemonStopped, {}, P::unknown, P::unknown, "STOPPED"},
      {R"({"error": "Authorization: Bearer sk-live-42"})", R::error, {}, P::unknown, P::unknown, {},
       "Authorization: Bearer [REDACTED]"},
      {R"({})", R::daemonRunning, {}},
      {R"({"version": 3, "daemon_state": {"pid": 42}, "accessibility_permission": "OK"})", R::daemonRunning, {},
       P::granted, P::unknown, R"({"pid":42})"},
      {R"({"daemon": "Stopped", "error": "api_key=xyz123"})", R::daemonStopped, {}, P::unknown, P::unknown,
       "Stopped", "api_key=[REDACTED]"},
      {R"({"accessibility": "granted", "screen_recording": "pending",
           "permissions": {"accessibility": "denied", "screenRecording": "denied"}})",
       R::daemonRunning, {}, P::granted, P::unknown},
      {R"({"permissions": {"screen_recording": "OK", "screenRecording": "denied"}, "daemon": "idle"})",
       R::daemonRunning, {}, P::unknown, P::granted, "idle"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(CUADriverStatusParser::parseDoctorJSON(row.input, "/bin/cua", kNow), row.expected()) << row.input;
  }
  const auto paths = R"({"binary_path": "/a", "path": "/b"})";
  EXPECT_EQ(CUADriverStatusParser::parseDoctorJSON(paths, std::nullopt, kNow)->binaryPath, "/a");
  EXPECT_EQ(CUADriverStatusParser::parseDoctorJSON(Bytes{'{', '}'}, std::nullopt, kNow)->binaryPath, std::nullopt);
  for (std::string output : {"", "doctor: unknown flag --json", "[1, 2]", "\"ready\"", "{\"ready\": true",
                             "{\"a\": \"\xff\"}"}) {
    EXPECT_EQ(CUADriverStatusParser::parseDoctorJSON(output, "/bin/cua", kNow), std::nullopt) << output;
  }
}

TEST(CUADriverStatusParserTest, ReadsTheStatusTextByItsWords) {
  const std::vector<Row> rows = {
      {"Version: 1.2.3-beta, daemon running", R::daemonRunning, "1.2.3-beta", P::unknown, P::unknown, "running"},
      {"cua-driver is Not Installed (daemon stopped)", R::notInstalled, {}, P::unknown, P::unknown, "stopped"},
      {"Accessibility: granted\nScreen Recording: denied\nDaemon running", R::permissionsMissing, {}, P::missing,
       P::missing, "running"},
      {"Accessibility OK. VERSION 2.0 ready", R::ready, "2.0", P::granted},
      {"screen recording: unknown; daemon stopped", R::daemonStopped, {}, P::unknown, P::unknown, "stopped"},
      {"subversion: 9\nversion:\n\t 3.1_rc", R::error, "3.1", P::unknown, P::unknown, {},
       "subversion: 9\nversion:\n\t 3.1_rc"},
      {"cua-driver \u2014version 4.2-b ready", R::ready, "4.2-b"},
      {"\u00e9version 3 ready", R::ready, {}},
      {"Version:\u00a05.0 running", R::daemonRunning, "5.0", P::unknown, P::unknown, "running"},
      {"daemon crashed; token abc.123 rejected", R::error, {}, P::unknown, P::unknown, {},
       "daemon crashed; token [REDACTED] rejected"},
      {"token version:9 version 1.0 running", R::daemonRunning, "1.0", P::unknown, P::unknown, "running"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(CUADriverStatusParser::parseText(row.input, "/bin/cua", kNow), row.expected()) << row.input;
  }
  EXPECT_EQ(CUADriverStatusParser::parseText("ready", std::nullopt, kNow).binaryPath, std::nullopt);
}

}  // namespace
}  // namespace orvid
