#include "orvid/automation/automation_process_runner.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

namespace orvid {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<UUID, std::shared_ptr<ChildProcessTerminator>> processes;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

AutomationProcessOutputBuffer::AutomationProcessOutputBuffer(ProcessOutputCallback progress)
    : progress_(std::move(progress)) {}

void AutomationProcessOutputBuffer::append(std::string_view chunk, bool toStdout) {
  if (chunk.empty()) return;
  std::string stdoutCopy, stderrCopy;
  {
    std::lock_guard lock(mutex_);
    std::string text = (toStdout ? stdoutDecoder_ : stderrDecoder_).decode(chunk);
    if (text.empty()) return;
    (toStdout ? stdout_ : stderr_) += text;
    if (!progress_) return;
    stdoutCopy = stdout_;
    stderrCopy = stderr_;
  }
  progress_(stdoutCopy, stderrCopy);
}

std::pair<std::string, std::string> AutomationProcessOutputBuffer::snapshot() const {
  std::lock_guard lock(mutex_);
  return {stdout_, stderr_};
}

AutomationProcessOutput AutomationProcessRunner::run(const std::string& path, const std::vector<std::string>& arguments,
                                                     std::optional<int> timeoutSeconds,
                                                     std::optional<ProcessEnvironment> environment,
                                                     ProcessOutputCallback progress, std::optional<UUID> executionID,
                                                     std::stop_token stop) const {
  AutomationProcessOutputBuffer buffer(std::move(progress));
  std::optional<ChildProcess> child;
  // Registered before the launch: a cancel must reach a child that is already running.
  auto sharedTerminator = std::make_shared<ChildProcessTerminator>();
  const ChildProcessTerminator* terminator = sharedTerminator.get();
  if (executionID) registerProcess(*executionID, sharedTerminator);
  try {
    child.emplace(ChildProcess::launch({path, arguments, std::move(environment), std::nullopt, sharedTerminator}));
  } catch (const ProcessLaunchError& error) {
    if (executionID) unregister(*executionID, terminator);
    return {127, "", error.what(), std::nullopt};
  }

  std::optional<AutomationProcessOutput> timedOut;
  ChildProcess::Supervision supervision;
  supervision.onOutput = [&buffer](std::string_view chunk, bool toStdout) { buffer.append(chunk, toStdout); };
  supervision.stop = std::move(stop);
  if (timeoutSeconds) {
    supervision.deadline = std::chrono::steady_clock::now() + std::chrono::seconds(std::max(*timeoutSeconds, 1));
    supervision.onDeadline = [&] {
      auto [stdout, stderr] = buffer.snapshot();
      if (executionID) unregister(*executionID, terminator);
      std::string sentence = "Timed out after " + std::to_string(*timeoutSeconds) + " seconds.";
      timedOut = AutomationProcessOutput{124, std::move(stdout), stderr.empty() ? sentence : stderr + "\n" + sentence,
                                         std::nullopt};
    };
  }

  ChildProcessOutcome outcome;
  try {
    outcome = child->supervise(std::move(supervision));
  } catch (...) {
    if (executionID) unregister(*executionID, terminator);
    throw;
  }
  if (executionID) unregister(*executionID, terminator);
  if (timedOut) return *timedOut;
  auto [stdout, stderr] = buffer.snapshot();
  return {outcome.terminationStatus, std::move(stdout), std::move(stderr), std::nullopt};
}

void AutomationProcessRunner::registerProcess(const UUID& executionID, std::shared_ptr<ChildProcessTerminator> process) {
  std::lock_guard lock(registry().mutex);
  registry().processes[executionID] = std::move(process);
}

void AutomationProcessRunner::unregister(const UUID& executionID, const ChildProcessTerminator* process) {
  std::shared_ptr<ChildProcessTerminator> removed;  // released outside the lock
  std::lock_guard lock(registry().mutex);
  auto entry = registry().processes.find(executionID);
  if (entry == registry().processes.end()) return;
  if (process != nullptr && entry->second.get() != process) return;
  removed = std::move(entry->second);
  registry().processes.erase(entry);
}

bool AutomationProcessRunner::cancel(const UUID& executionID) {
  std::shared_ptr<ChildProcessTerminator> process;
  {
    std::lock_guard lock(registry().mutex);
    auto entry = registry().processes.find(executionID);
    if (entry == registry().processes.end()) return false;
    process = std::move(entry->second);
    registry().processes.erase(entry);
  }
  process->requestTermination();
  return true;
}

bool AutomationProcessRunner::isRegistered(const UUID& executionID) {
  std::lock_guard lock(registry().mutex);
  return registry().processes.contains(executionID);
}

}  // namespace orvid
