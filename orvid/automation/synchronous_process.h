#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orvid/automation/child_process.h"
#include "orvid/platform/bytes.h"

namespace orvid {

// The outcome of runSynchronousProcess.
struct SynchronousProcessOutput {
  // The exit status (or the number of the signal that ended the process); 124 when
  // the time limit ended it; 127 when it could not be launched.
  std::int32_t exitCode = 0;
  Bytes stdout;
  Bytes stderr;

  bool operator==(const SynchronousProcessOutput&) const = default;
};

// Runs `path` with `arguments` and exactly `environment`, blocking until it ends,
// for at most max(`timeoutSeconds`, 1) seconds. A process still running then is
// sent the terminate signal (the kill signal 0.8 s later) and reported with exit
// code 124 and whatever it wrote. A launch failure gives exit code 127, no output
// and the failure's description as standard error. Never throws for the child's
// sake; only resource exhaustion (no pipes, no memory) throws std::system_error.
SynchronousProcessOutput runSynchronousProcess(const std::string& path, const std::vector<std::string>& arguments,
                                               const ProcessEnvironment& environment, int timeoutSeconds);

}  // namespace orvid
