#pragma once

#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

namespace orvid {

// How a finished process ended and what it wrote.
struct OrvidProcessResult {
  // The exit status, or the number of the signal that ended the process.
  std::int32_t terminationStatus = 0;
  std::string stdout;
  std::string stderr;

  bool operator==(const OrvidProcessResult&) const = default;
};

// Runs a program to its end: the general process seam (speech engines that run
// a command-line program use it; tests hand in fakes).
class OrvidProcessRunning {
 public:
  virtual ~OrvidProcessRunning() = default;

  // Runs `executableURL` with exactly `arguments`, this process's environment and
  // no time limit, and returns when it has ended. Output that is not UTF-8 reads as
  // empty text. Throws ProcessLaunchError when the program cannot be started, and
  // CancellationError when `stop` is requested (the program is then terminated).
  virtual OrvidProcessResult run(const std::filesystem::path& executableURL, const std::vector<std::string>& arguments,
                                 std::stop_token stop = {}) = 0;
};

// The real runner: starts the program with posix_spawn, in a process group of its
// own, and reads its pipes while it runs.
class PosixSpawnOrvidProcessRunner : public OrvidProcessRunning {
 public:
  OrvidProcessResult run(const std::filesystem::path& executableURL, const std::vector<std::string>& arguments,
                         std::stop_token stop = {}) override;
};

// The name under which the host's code knows the default runner.
using FoundationOrvidProcessRunner = PosixSpawnOrvidProcessRunner;

}  // namespace orvid
