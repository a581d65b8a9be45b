#include "orvid/automation/process_cua_driver_client.h"

#include <algorithm>
#include <system_error>
#include <string_view>

#include <nlohmann/json.hpp>

#include "orvid/ai/secret_redactor.h"
#include "orvid/automation/cua_driver_status_parser.h"
#include "orvid/automation/executable_discovery.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

constexpr const char* kWhichPath = "/usr/bin/which";

struct CollectedRun {
  std::string stdout;
  std::string stderr;
  ChildProcessOutcome outcome;
};

// Supervises `child` to its end, collecting both outputs whole.
CollectedRun collect(ChildProcess& child, ChildProcess::Supervision supervision) {
  CollectedRun collected;
  supervision.onOutput = [&collected](std::string_view chunk, bool toStdout) {
    (toStdout ? collected.stdout : collected.stderr).append(chunk);
  };
  collected.outcome = child.supervise(std::move(supervision));
  return collected;
}

}  // namespace

const char* CUADriverClientError::what() const noexcept {
  return "The operation couldn\u2019t be completed. (orvid.CUADriverClientError error 0.)";
}

ProcessCUADriverClient::ProcessCUADriverClient(std::vector<std::string> executableCandidates,
                                               std::function<std::chrono::system_clock::time_point()> now)
    : executableCandidates_(std::move(executableCandidates)), now_(std::move(now)) {
  if (!now_) now_ = [] { return std::chrono::system_clock::now(); };
}

std::optional<std::string> ProcessCUADriverClient::resolveExecutable() const {
  for (const auto& candidate : executableCandidates_) {
    if (candidate != kWhichPath && isExecutableFile(candidate)) return candidate;
  }
  try {
    ChildProcess which = ChildProcess::launch({kWhichPath, {executableName}, std::nullopt, std::nullopt, nullptr});
    CollectedRun answer = collect(which, {});
    if (answer.outcome.endedBySignal || answer.outcome.terminationStatus != 0) return std::nullopt;
    std::string path(internal::trimASCIIWhitespace(internal::decodeUTF8OrEmpty(answer.stdout)));
    if (path.empty()) return std::nullopt;
    return path;
  } catch (const std::exception&) {
    // Not launchable, or no descriptors or memory left to launch it with.
    return std::nullopt;
  }
}

ProcessCUADriverClient::CommandOutput ProcessCUADriverClient::runStatusCommand(
    const std::string& path, const std::vector<std::string>& arguments, std::stop_token stop) {
  std::lock_guard turn(statusCommandMutex_);
  if (stop.stop_requested()) return {};
  try {
    ChildProcess child = ChildProcess::launch({path, arguments, std::nullopt, std::nullopt, nullptr});
    ChildProcess::Supervision supervision;
    supervision.stop = std::move(stop);
    CollectedRun answer = collect(child, std::move(supervision));
    return {SecretRedactor::redact(internal::decodeUTF8OrEmpty(answer.stdout)),
            SecretRedactor::redact(internal::decodeUTF8OrEmpty(answer.stderr))};
  } catch (const std::exception& error) {
    // A launch that failed, also for want of descriptors or memory.
    return {"", SecretRedactor::redact(error.what())};
  }
}

CUADriverStatus ProcessCUADriverClient::status(std::stop_token stop) {
  try {
    return checkStatus(stop);
  } catch (const std::exception& error) {
    CUADriverStatus failed;
    failed.readiness = CUADriverReadiness::error;
    failed.checkedAt = now_();
    failed.lastError = SecretRedactor::redact(error.what());
    return failed;
  }
}

CUADriverStatus ProcessCUADriverClient::checkStatus(std::stop_token stop) {
  std::optional<std::string> path = resolveExecutable();
  if (!path) {
    CUADriverStatus notInstalled;
    notInstalled.readiness = CUADriverReadiness::notInstalled;
    notInstalled.checkedAt = now_();
    return notInstalled;
  }
  std::string versionOutput = runStatusCommand(*path, {"--version"}, stop).stdout;
  CommandOutput doctor = runStatusCommand(*path, {"doctor", "--json"}, stop);
  if (auto status = CUADriverStatusParser::parseDoctorJSON(doctor.stdout, path, now_())) return *status;
  CommandOutput plain = runStatusCommand(*path, {"status"}, stop);
  CUADriverStatus status = CUADriverStatusParser::parseText(plain.stdout + "\n" + plain.stderr, path, now_());
  if (!status.version) status.version = std::string(internal::trimASCIIWhitespace(versionOutput));
  return status;
}

CUAExecutionResult ProcessCUADriverClient::run(const CUAExecutionRequest& request, std::stop_token stop) {
  std::optional<std::string> path = resolveExecutable();
  if (!path) throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory), executableName);
  std::string encoded = nlohmann::json(request).dump();

  ChildProcess child = ChildProcess::launch({*path, {"run", "--json"}, std::nullopt, std::move(encoded), nullptr});
  std::shared_ptr<ChildProcessTerminator> terminator = child.terminator();
  {
    std::lock_guard lock(runningMutex_);
    running_[request.executionID] = terminator;
  }
  auto unregister = [&] {
    std::shared_ptr<ChildProcessTerminator> removed;  // released outside the lock
    std::lock_guard lock(runningMutex_);
    auto entry = running_.find(request.executionID);
    if (entry != running_.end() && entry->second == terminator) {
      removed = std::move(entry->second);
      running_.erase(entry);
    }
  };

  // Ending the run sends the terminate signal only; at the deadline the run fails at
  // once, and a tool that ignores the signal is left to end in its own time.
  ChildProcess::Supervision supervision;
  supervision.deadline = std::chrono::steady_clock::now() + std::chrono::seconds(std::max(request.timeoutSeconds, 1));
  supervision.stop = std::move(stop);
  supervision.killAfter.reset();
  supervision.returnAtDeadline = true;
  CollectedRun collected;
  try {
    collected = collect(child, std::move(supervision));
  } catch (...) {
    unregister();
    throw;
  }
  unregister();
  if (collected.outcome.stillRunning) child.reapWhenEnded();
  if (collected.outcome.deadlinePassed) throw CUADriverClientError::timedOut(request.timeoutSeconds);
  return {request.executionID, collected.outcome.terminationStatus,
          SecretRedactor::redact(internal::decodeUTF8OrEmpty(collected.stdout)),
          SecretRedactor::redact(internal::decodeUTF8OrEmpty(collected.stderr))};
}

void ProcessCUADriverClient::cancel(const UUID& executionID) {
  std::shared_ptr<ChildProcessTerminator> terminator;
  {
    std::lock_guard lock(runningMutex_);
    auto entry = running_.find(executionID);
    if (entry == running_.end()) return;
    terminator = entry->second;
  }
  terminator->requestTermination();
  std::lock_guard lock(runningMutex_);
  if (auto entry = running_.find(executionID); entry != running_.end() && entry->second == terminator) {
    running_.erase(entry);
  }
}

bool ProcessCUADriverClient::isRunning(const UUID& executionID) const {
  std::lock_guard lock(runningMutex_);
  return running_.contains(executionID);
}

}  // namespace orvid
