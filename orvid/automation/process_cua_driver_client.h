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
  // printed before. Never throws.
  CUADriverStatus status(std::stop_token stop = {}) override;

  // Runs one instruction. Throws ProcessLaunchError when the tool is not found
  // (error number ENOENT) or cannot be started, CUADriverClientError::timedOut
  // when max(timeoutSeconds, 1) seconds pass first (the tool is then terminated),
  // and nlohmann::json::exception when the request cannot be encoded (its text is
  // not UTF-8; nothing is started then). A run ended by cancel() or by `stop`
  // returns the tool's own result: its termination status (the signal's number
  // when a signal ended it) and what it printed. When this returns or throws the
  // tool and every process of its group have ended.
  CUAExecutionResult run(const CUAExecutionRequest& request, std::stop_token stop = {}) override;

  // Sends the run of `executionID` the terminate signal (the kill signal follows
  // 0.8 s later when it is still running). Does nothing for an identifier that is
  // not running.
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
