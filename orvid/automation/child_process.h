#pragma once

#include <sys/types.h>

#include <chrono>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace orvid {

// Environment variables by name.
using ProcessEnvironment = std::map<std::string, std::string>;

// The environment of this process, read now.
ProcessEnvironment currentProcessEnvironment();

// An owned file descriptor, closed when the object is destroyed or reset.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept;

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  // Gives up ownership without closing.
  int release() noexcept;
  // Closes the held descriptor and takes `fd`.
  void reset(int fd = -1) noexcept;

 private:
  int fd_ = -1;
};

// A child process could not be started. what() is the user-facing description,
// e.g. "The file “tool” could not be launched: No such file or directory."
class ProcessLaunchError : public std::exception {
 public:
  ProcessLaunchError(std::string path, int errorNumber);

  const std::string& path() const { return path_; }
  // The errno value of the failure.
  int errorNumber() const { return errorNumber_; }
  const char* what() const noexcept override { return message_.c_str(); }
  bool operator==(const ProcessLaunchError& other) const {
    return path_ == other.path_ && errorNumber_ == other.errorNumber_;
  }

 private:
  std::string path_;
  int errorNumber_;
  std::string message_;
};

class ChildProcessTerminator;

// What to start.
struct ChildProcessLaunch {
  // The executable; run as given (no search of PATH). It is also the program's argv[0].
  std::string path;
  std::vector<std::string> arguments;
  // Absent: the child inherits this process's environment.
  std::optional<ProcessEnvironment> environment;
  // Data for the child's standard input, written while the child runs and then
  // closed. Absent: the child reads from /dev/null.
  std::optional<std::string> standardInput;
  // The child's terminator, when the caller hands it out before the child exists (so
  // that a cancel arriving during the launch is not lost). Absent: a new one.
  std::shared_ptr<ChildProcessTerminator> terminator;
};

// Asks a supervised child to end, from any thread, at any time (also before
// supervision starts or after the child ended, when it does nothing more).
class ChildProcessTerminator {
 public:
  ChildProcessTerminator();
  ChildProcessTerminator(const ChildProcessTerminator&) = delete;
  ChildProcessTerminator& operator=(const ChildProcessTerminator&) = delete;

  void requestTermination() noexcept;
  bool terminationRequested() const noexcept;
  // Readable once termination was requested.
  int wakeDescriptor() const { return wake_.get(); }

 private:
  UniqueFd wake_;
};

// How a supervised child ended.
struct ChildProcessOutcome {
  // The exit status, or the number of the signal that ended the child.
  int terminationStatus = 0;
  bool endedBySignal = false;
  // The deadline passed before the child ended.
  bool deadlinePassed = false;
  // The child was sent the terminate signal (deadline, termination request or stop).
  bool terminated = false;
  // Supervision returned at the deadline while the child was still running
  // (Supervision::returnAtDeadline); terminationStatus is then meaningless.
  bool stillRunning = false;
};

// One child process in a process group of its own, with pipes for its standard
// output and error (and input when data is given). The object owns the process:
// destroying it before the child was reaped kills the whole group and reaps the
// child, so no process outlives its owner unnoticed and none is left a zombie.
class ChildProcess {
 public:
  // Time between the terminate signal and the kill signal.
  static constexpr std::chrono::milliseconds terminationGracePeriod{800};

  // Starts the child. Throws ProcessLaunchError when it cannot be started (missing
  // or non-executable file, no resources).
  static ChildProcess launch(const ChildProcessLaunch& launch);

  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }
  // Shared with whoever may ask for termination (a registry, a cancel call).
  const std::shared_ptr<ChildProcessTerminator>& terminator() const { return terminator_; }

  // Called with each chunk of output as it is read: `toStdout` tells the stream.
  using OutputHandler = std::function<void(std::string_view chunk, bool toStdout)>;

  struct Supervision {
    OutputHandler onOutput;
    // When it passes first, `onDeadline` is called once and the child is terminated.
    std::optional<std::chrono::steady_clock::time_point> deadline;
    std::function<void()> onDeadline;
    // Stopping terminates the child, like a termination request.
    std::stop_token stop;
    // Time between the terminate signal and the kill signal; absent: no kill signal
    // while the child runs (a child that ignores the terminate signal runs on).
    std::optional<std::chrono::milliseconds> killAfter = terminationGracePeriod;
    // Return as soon as the deadline has passed and the terminate signal was sent,
    // without waiting for the child to end.
    bool returnAtDeadline = false;
  };

  // Blocks until the child has ended and been reaped, writing its standard input,
  // reading both output pipes as data arrives (so a child with a lot to say never
  // stalls on a full pipe) and ending it when asked. Ending sends the terminate
  // signal to the child's process group, and the kill signal to the group when
  // the child is still running `killAfter` later; once the child has ended after
  // a terminate signal, what is left of its group is killed. Output
  // still buffered in the pipes when the child exits is read before returning;
  // output of descendants that keep the pipes open afterwards is not waited for.
  // Call at most once.
  ChildProcessOutcome supervise(Supervision supervision);

  // Leaves a child that is still running alone: nothing signals it any more, the
  // destructor no longer kills it, and a background thread reaps it once it ends.
  void reapWhenEnded();

 private:
  class Supervisor;
  ChildProcess() = default;
  void killAndReap() noexcept;

  pid_t pid_ = -1;
  bool reaped_ = false;
  UniqueFd exitDescriptor_;
  UniqueFd stdin_;
  UniqueFd stdout_;
  UniqueFd stderr_;
  std::string standardInput_;
  std::shared_ptr<ChildProcessTerminator> terminator_;
};

}  // namespace orvid
