#include "orvid/automation/synchronous_process.h"

#include <algorithm>
#include <chrono>

namespace orvid {

SynchronousProcessOutput runSynchronousProcess(const std::string& path, const std::vector<std::string>& arguments,
                                               const ProcessEnvironment& environment, int timeoutSeconds) {
  SynchronousProcessOutput output;
  std::optional<ChildProcess> child;
  try {
    child.emplace(ChildProcess::launch({path, arguments, environment, std::nullopt, nullptr}));
  } catch (const ProcessLaunchError& error) {
    output.exitCode = 127;
    output.stderr = bytesFromString(error.what());
    return output;
  }
  ChildProcess::Supervision supervision;
  supervision.onOutput = [&output](std::string_view chunk, bool toStdout) {
    Bytes& target = toStdout ? output.stdout : output.stderr;
    target.insert(target.end(), chunk.begin(), chunk.end());
  };
  supervision.deadline = std::chrono::steady_clock::now() + std::chrono::seconds(std::max(timeoutSeconds, 1));
  ChildProcessOutcome outcome = child->supervise(std::move(supervision));
  output.exitCode = outcome.deadlinePassed ? 124 : outcome.terminationStatus;
  return output;
}

}  // namespace orvid
