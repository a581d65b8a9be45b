// orvid cua status [--executable PATH] [--json]
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "orvid/automation/executable_discovery.h"
#include "orvid/automation/process_cua_driver_client.h"
#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/cancellation.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

struct CuaOptions {
  std::string executable;
  bool json = false;
};

// `text` on one line: line ends become spaces, outer white space goes.
std::string oneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  }
  auto first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string orDash(const std::optional<std::string>& text) {
  if (!text) return "-";
  std::string line = oneLine(*text);
  return line.empty() ? "\"\"" : line;
}

ProcessCUADriverClient makeClient(const CuaOptions& options) {
  std::vector<std::string> candidates;
  if (!options.executable.empty()) {
    if (!isExecutableFile(options.executable)) {
      throw CommandError{"--executable '" + options.executable + "' is not an executable file"};
    }
    candidates.push_back(options.executable);
  }
  return ProcessCUADriverClient(std::move(candidates));
}

void printStatus(const CUADriverStatus& status) {
  std::cout << "readiness: " << rawValue(status.readiness) << "\n"
            << "version: " << orDash(status.version) << "\n"
            << "binary path: " << orDash(status.binaryPath) << "\n"
            << "daemon state: " << orDash(status.daemonState) << "\n"
            << "accessibility permission: " << rawValue(status.accessibilityPermission) << "\n"
            << "screen recording permission: " << rawValue(status.screenRecordingPermission) << "\n"
            << "checked at: "
            << (status.checkedAt ? json_support::iso8601(*status.checkedAt) : std::string("-")) << "\n"
            << "last error: " << orDash(status.lastError) << "\n";
}

}  // namespace

void addCuaCommands(CLI::App& app) {
  auto options = std::make_shared<CuaOptions>();
  auto* cua = app.add_subcommand("cua", "Check the computer-use driver (cua-driver)");
  cua->require_subcommand(1);

  auto* status = cua->add_subcommand(
      "status", "Ask cua-driver for its version, daemon and permissions (found on PATH unless --executable is given)");
  status->add_option("--executable", options->executable, "The cua-driver program to ask");
  status->add_flag("--json", options->json, "Print the status as one JSON object");
  status->callback([options] {
    ProcessCUADriverClient client = makeClient(*options);
    InterruptScope interrupts;
    CUADriverStatus result = client.status(interrupts.token());
    // A status cut short is not worth showing.
    if (interrupts.interrupted()) throw CancellationError();
    if (options->json) {
      std::cout << nlohmann::json(result).dump() << "\n";
    } else {
      printStatus(result);
    }
  });
}

}  // namespace orvid::cli
