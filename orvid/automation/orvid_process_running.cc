#include "orvid/automation/orvid_process_running.h"

#include "orvid/automation/child_process.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"

namespace orvid {

OrvidProcessResult PosixSpawnOrvidProcessRunner::run(const std::filesystem::path& executableURL,
                                                     const std::vector<std::string>& arguments, std::stop_token stop) {
  checkCancellation(stop);
  ChildProcess child = ChildProcess::launch({executableURL.string(), arguments, std::nullopt, std::nullopt, nullptr});
  std::string stdout, stderr;
  ChildProcess::Supervision supervision;
  supervision.onOutput = [&](std::string_view chunk, bool toStdout) { (toStdout ? stdout : stderr).append(chunk); };
  supervision.stop = stop;
  ChildProcessOutcome outcome = child.supervise(std::move(supervision));
  if (outcome.terminated) throw CancellationError();
  return {outcome.terminationStatus, internal::decodeUTF8OrEmpty(stdout), internal::decodeUTF8OrEmpty(stderr)};
}

}  // namespace orvid
