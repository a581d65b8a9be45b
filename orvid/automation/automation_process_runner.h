#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/automation/automation_execution_progress.h"
#include "orvid/automation/child_process.h"
#include "orvid/automation/utf8_chunk_decoder.h"
#include "orvid/core/corelib/automation_records.h"
#include "orvid/platform/uuid.h"

namespace orvid {

// The result of one AutomationProcessRunner run.
struct AutomationProcessOutput {
  // The exit status (or the number of the signal that ended the process); 124 when
  // the time limit ended the run; 127 when the process could not be launched.
  std::int32_t exitCode = 0;
  // Everything written to standard output, decoded as UTF-8 chunk by chunk.
  std::string stdout;
  // Standard error likewise, or the runner's own message (time-out, launch failure).
  std::string stderr;
  // Left empty by the runner; filled by callers that run scripts in a terminal window.
  std::optional<AutomationExecutionResult::TerminalWindowRef> terminalWindow;

  bool operator==(const AutomationProcessOutput&) const = default;
};

// The output of one run, accumulated as it arrives. Each chunk is decoded as UTF-8
// on its own (a character split between chunks is completed by the next one); a
// malformed chunk is dropped. After every non-empty addition the progress callback
// gets copies of both texts, called outside the lock. Thread-safe.
class AutomationProcessOutputBuffer {
 public:
  explicit AutomationProcessOutputBuffer(ProcessOutputCallback progress = {});

  void append(std::string_view chunk, bool toStdout);
  // Copies of (stdout, stderr) as they are now.
  std::pair<std::string, std::string> snapshot() const;

 private:
  mutable std::mutex mutex_;
  std::string stdout_;
  std::string stderr_;
  UTF8ChunkDecoder stdoutDecoder_;
  UTF8ChunkDecoder stderrDecoder_;
  ProcessOutputCallback progress_;
};

// Runs automation tools as child processes with streamed output, an optional time
// limit and cancellation by execution identifier. The registry of running
// processes is process-wide: `cancel` reaches a run started by any runner.
class AutomationProcessRunner {
 public:
  virtual ~AutomationProcessRunner() = default;

  // Runs `path` with `arguments` and blocks until it ends. `environment` absent:
  // the process inherits this one's. Standard input is /dev/null. `progress` gets
  // the whole output so far after each chunk, from the calling thread.
  // With `timeoutSeconds`, a run still going after max(timeoutSeconds, 1) seconds
  // returns exit code 124, the output so far and as stderr "Timed out after <n>
  // seconds." (after the stderr so far and a line feed when there is any), n being
  // the value given; the process is sent the terminate signal and, 0.8 s later,
  // the kill signal. With `executionID` the run is registered while it runs, so
  // `cancel(executionID)` ends it the same way (its result is then the process's
  // own: status, usually the terminate signal's number, and output). `stop` acts
  // like `cancel`. A launch failure returns exit code 127 with the failure's
  // description as stderr. Never throws for the process's sake; the process has
  // always ended and been reaped when this returns.
  virtual AutomationProcessOutput run(const std::string& path, const std::vector<std::string>& arguments,
                                      std::optional<int> timeoutSeconds = std::nullopt,
                                      std::optional<ProcessEnvironment> environment = std::nullopt,
                                      ProcessOutputCallback progress = {},
                                      std::optional<UUID> executionID = std::nullopt,
                                      std::stop_token stop = {}) const;

  // Registers a running process under `executionID`, replacing an earlier entry.
  static void registerProcess(const UUID& executionID, std::shared_ptr<ChildProcessTerminator> process);
  // Removes the entry of `executionID`; with `process` given, only when the entry is that process.
  static void unregister(const UUID& executionID, const ChildProcessTerminator* process = nullptr);
  // Removes the entry of `executionID` and asks its process to terminate. Returns
  // false (and does nothing) when no process is registered under it.
  static bool cancel(const UUID& executionID);
  static bool isRegistered(const UUID& executionID);
};

}  // namespace orvid
