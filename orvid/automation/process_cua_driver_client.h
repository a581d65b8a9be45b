#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "orvid/automation/child_process.h"
#include "orvid/automation/cua_driver_client.h"

namespace orvid {

// The error of a CUA driver run. It has no message of its own: what() is the
// generic "The operation couldn’t be completed. (orvid.CUADriverClientError error 0.)".
class CUADriverClientError : public std::exception {
 public:
  enum class Case { timedOut };

  // The run's time limit passed; `seconds` is the limit as the request gave it.
  static CUADriverClientError timedOut(int seconds) { return CUADriverClientError(Case::timedOut, seconds); }

  Case errorCase() const { return case_; }
  int seconds() const { return seconds_; }
  const char* what() const noexcept override;

  bool operator==(const CUADriverClientError& other) const {
    return case_ == other.case_ && seconds_ == other.seconds_;
  }

 private:
  CUADriverClientError(Case errorCase, int seconds) : case_(errorCase), seconds_(seconds) {}

  Case case_;
  int seconds_;
};

// Drives the computer-use tool "cua-driver" as a child process. status() asks it
// "--version", "doctor --json" and, when the doctor report is not JSON, "status";
// run() starts "cua-driver run --json" with this process's environment, writes the
// request as one compact JSON object to its standard input, closes it, and collects
// both outputs until the tool exits. Every text that comes from the tool is
// redacted with SecretRedactor. Thread-safe; the object must outlive its calls.
class ProcessCUADriverClient : public CUADriverClient {
 public:
  static constexpr const char* executableName = "cua-driver";

  // `executableCandidates` are tried first when looking for the tool, in order;
  // `now` gives the time of each status check (the system clock when empty).
  explicit ProcessCUADriverClient(std::vector<std::string> executableCandidates = {},
                                  std::function<std::chrono::system_clock::time_point()> now = {});

  const std::vector<std::string>& executableCandidates() const { return executableCandidates_; }

  // Runs the three status commands (no time limit; the commands of concurrent
  // calls run one after another) and parses their answers with
  // CUADriverStatusParser. A tool that is not found reports notInstalled. Stopping
  // `stop` ends the command that runs; the status is then made from what was
  // printed before. Never throws: a failure of this process (no descriptors left,
  // say) gives readiness error with the failure as last error.
  CUADriverStatus status(std::stop_token stop = {}) override;

  // Runs one instruction. Throws std::system_error with
  // std::errc::no_such_file_or_directory when the tool is not found,
  // ProcessLaunchError when it cannot be started, CUADriverClientError::timedOut
  // as soon as max(timeoutSeconds, 1) seconds pass (the tool is then sent the
  // terminate signal and left to end), and nlohmann::json::exception when the
  // request cannot be encoded (its text is not UTF-8; nothing is started then).
  // A run ended by cancel() or by `stop` returns the tool's own result once it has
  // ended: its termination status (the signal's number when a signal ended it) and
  // what it printed.
  CUAExecutionResult run(const CUAExecutionRequest& request, std::stop_token stop = {}) override;

  // Sends the run of `executionID` the terminate signal, and no kill signal
  // afterwards. Does nothing for an identifier that is not running.
  void cancel(const UUID& executionID) override;

  // True while a run of `executionID` is in progress.
  bool isRunning(const UUID& executionID) const;

  // The tool's path: the first executable file among the candidates (a candidate
  // "/usr/bin/which" is skipped), else what "/usr/bin/which cua-driver" answers
  // (trimmed, not checked further). Absent when the tool is not found. Blocking.
  std::optional<std::string> resolveExecutable() const;

 private:
  struct CommandOutput {
    std::string stdout;
    std::string stderr;
  };
  CUADriverStatus checkStatus(std::stop_token stop);
  CommandOutput runStatusCommand(const std::string& path, const std::vector<std::string>& arguments,
                                 std::stop_token stop);

  std::vector<std::string> executableCandidates_;
  std::function<std::chrono::system_clock::time_point()> now_;
  // Held while a status command runs, so that those of concurrent calls take turns.
  std::mutex statusCommandMutex_;
  mutable std::mutex runningMutex_;
  std::map<UUID, std::shared_ptr<ChildProcessTerminator>> running_;
};

}  // namespace orvid
