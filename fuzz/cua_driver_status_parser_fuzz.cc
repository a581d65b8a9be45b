// Feeds arbitrary bytes to CUADriverStatusParser as the output of "cua-driver
// doctor --json" and of "cua-driver status". The first byte says whether a binary
// path is known; the rest is the output. Neither parser may throw. The JSON parser
// answers exactly for a JSON object; both stamp the given time and path; every
// text they keep from the tool is already redacted; the text parser reports an
// error with the redacted text, and a version only as one word.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/automation/cua_driver_status_parser.h"
#include "orvid/platform/internal/text.h"

namespace {

using orvid::fuzz::require;

using orvid::CUADriverReadiness;
using orvid::CUADriverStatus;
namespace CUADriverStatusParser = orvid::CUADriverStatusParser;

const std::chrono::system_clock::time_point kNow{std::chrono::milliseconds(1'795'000'000'000)};

std::vector<std::uint8_t> withPath(std::uint8_t path, std::string_view output) {
  std::vector<std::uint8_t> input = {path};
  input.insert(input.end(), output.begin(), output.end());
  return input;
}

bool isRedacted(const std::optional<std::string>& text) {
  return !text || orvid::SecretRedactor::redact(*text) == *text;
}

orvid::fuzz::Seeds seeds() {
  return {
      {"doctor-ready", withPath(1, R"({"version":"1.4.0","installed":true,"ready":true,"daemon":"running",)"
                                   R"("permissions":{"accessibility":"granted","screen_recording":true}})")},
      {"doctor-missing", withPath(0, R"({"installed":"yes","accessibility_permission":"denied",)"
                                     R"("screenRecording":"ok","binary_path":"/usr/local/bin/cua-driver"})")},
      {"doctor-error", withPath(0, R"({"status":{"state":3},"error":"Authorization: Bearer abc.def","path":7})")},
      {"status-text", withPath(1, "cua-driver Version: 1.2.3-beta\nDaemon: running\nAccessibility: missing\n")},
      {"not-found", withPath(0, "bash: cua-driver: command not found")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::optional<std::string> binaryPath =
      data[0] % 2 == 1 ? std::optional<std::string>("/opt/cua/bin/cua-driver") : std::nullopt;
  const std::vector<std::uint8_t> output(data + 1, data + size);
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  const std::optional<CUADriverStatus> doctor = CUADriverStatusParser::parseDoctorJSON(output, binaryPath, kNow);
  require(CUADriverStatusParser::parseDoctorJSON(text, binaryPath, kNow) == doctor,
          "both doctor overloads agree");
  const auto json = nlohmann::json::parse(output.begin(), output.end(), nullptr, false);
  require(doctor.has_value() == (!json.is_discarded() && json.is_object()), "doctor output is read iff an object");
  if (doctor) {
    require(doctor->checkedAt == kNow, "doctor status is stamped with the given time");
    require(!binaryPath || doctor->binaryPath == binaryPath, "a given binary path wins");
    require(isRedacted(doctor->lastError), "the doctor's error is redacted");
    require(doctor->lastError.has_value() == json.contains("error"), "the last error is the error member");
  }

  const CUADriverStatus status = CUADriverStatusParser::parseText(text, binaryPath, kNow);
  require(status.checkedAt == kNow, "text status is stamped with the given time");
  require(status.binaryPath == binaryPath, "text status carries the given binary path");
  require(isRedacted(status.lastError), "the status text's error is redacted");
  if (status.readiness == CUADriverReadiness::error) {
    require(status.lastError == orvid::SecretRedactor::redact(text), "an error keeps the whole redacted text");
  }
  if (status.version) {
    require(!status.version->empty(), "a version is not empty");
    for (const char c : *status.version) {
      require(!orvid::internal::isASCIIWhitespace(c), "a version is one word");
    }
  }
  return 0;
}
