#include "orvid/automation/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

extern char** environ;

namespace orvid {
namespace {

constexpr std::size_t kReadChunkSize = 64 * 1024;

std::string errorText(int errorNumber) {
  char buffer[256];
  // The GNU variant returns the message, which may or may not live in `buffer`.
  return ::strerror_r(errorNumber, buffer, sizeof buffer);
}

std::string fileName(const std::string& path) {
  auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

[[noreturn]] void throwSystemError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void setNonBlocking(int fd) {
  int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) throwSystemError("fcntl");
}

struct Pipe {
  UniqueFd read;
  UniqueFd write;
};

Pipe makePipe() {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) throwSystemError("pipe2");
  return {UniqueFd(fds[0]), UniqueFd(fds[1])};
}

// posix_spawn's file actions and attributes, released on every path.
class SpawnSetup {
 public:
  SpawnSetup() {
    if (int rc = ::posix_spawn_file_actions_init(&actions_); rc != 0) {
      throw std::system_error(rc, std::generic_category(), "posix_spawn_file_actions_init");
    }
    if (int rc = ::posix_spawnattr_init(&attributes_); rc != 0) {
      ::posix_spawn_file_actions_destroy(&actions_);
      throw std::system_error(rc, std::generic_category(), "posix_spawnattr_init");
    }
  }
  ~SpawnSetup() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  posix_spawn_file_actions_t* actions() { return &actions_; }
  posix_spawnattr_t* attributes() { return &attributes_; }

  static void check(int rc, const char* what) {
    if (rc != 0) throw std::system_error(rc, std::generic_category(), what);
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

// Writing to a pipe whose reader has gone raises SIGPIPE, which would end this
// process. While an object of this class lives the calling thread has SIGPIPE
// blocked; a SIGPIPE raised meanwhile is consumed before the mask is restored.
class SigpipeSuppression {
 public:
  SigpipeSuppression() {
    sigset_t pending;
    sigemptyset(&pending);
    ::sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    sigset_t block;
    sigemptyset(&block);
    sigaddset(&block, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &block, &previous_);
  }
  ~SigpipeSuppression() {
    if (!wasPending_) {
      sigset_t pending;
      sigemptyset(&pending);
      ::sigpending(&pending);
      if (sigismember(&pending, SIGPIPE) == 1) {
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, SIGPIPE);
        timespec zero{0, 0};
        while (::sigtimedwait(&only, nullptr, &zero) < 0 && errno == EINTR) {
        }
      }
    }
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }
  SigpipeSuppression(const SigpipeSuppression&) = delete;
  SigpipeSuppression& operator=(const SigpipeSuppression&) = delete;

 private:
  sigset_t previous_;
  bool wasPending_ = false;
};

int openProcessDescriptor(pid_t pid) { return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)); }

int waitForStatus(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

// Sends `signal` to the child and to its process group. Only valid while the
// child is not reaped, so that neither number can belong to another process.
void signalChildAndGroup(pid_t pid, int signal) {
  ::kill(-pid, signal);
  ::kill(pid, signal);
}

}  // namespace

ProcessEnvironment currentProcessEnvironment() {
  ProcessEnvironment environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    std::string_view text(*entry);
    auto equals = text.find('=');
    if (equals == std::string_view::npos || equals == 0) continue;
    environment.emplace(std::string(text.substr(0, equals)), std::string(text.substr(equals + 1)));
  }
  return environment;
}

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) reset(other.release());
  return *this;
}

int UniqueFd::release() noexcept { return std::exchange(fd_, -1); }

void UniqueFd::reset(int fd) noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

ProcessLaunchError::ProcessLaunchError(std::string path, int errorNumber)
    : path_(std::move(path)),
      errorNumber_(errorNumber),
      message_("The file \u201c" + fileName(path_) + "\u201d could not be launched: " + errorText(errorNumber) + ".") {}

ChildProcessTerminator::ChildProcessTerminator() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wake_) throwSystemError("eventfd");
}

void ChildProcessTerminator::requestTermination() noexcept {
  std::uint64_t one = 1;
  // An eventfd write only fails when the counter would overflow, which means the
  // request is already there.
  [[maybe_unused]] auto written = ::write(wake_.get(), &one, sizeof one);
}

bool ChildProcessTerminator::terminationRequested() const noexcept {
  pollfd fd{wake_.get(), POLLIN, 0};
  return ::poll(&fd, 1, 0) == 1 && (fd.revents & POLLIN) != 0;
}

ChildProcess ChildProcess::launch(const ChildProcessLaunch& launch) {
  ChildProcess child;
  child.terminator_ = launch.terminator ? launch.terminator : std::make_shared<ChildProcessTerminator>();
  Pipe output = makePipe();
  Pipe error = makePipe();
  std::optional<Pipe> input;
  if (launch.standardInput) input = makePipe();

  SpawnSetup setup;
  if (input) {
    SpawnSetup::check(::posix_spawn_file_actions_adddup2(setup.actions(), input->read.get(), STDIN_FILENO),
                      "posix_spawn_file_actions_adddup2");
  } else {
    SpawnSetup::check(
        ::posix_spawn_file_actions_addopen(setup.actions(), STDIN_FILENO, "/dev/null", O_RDONLY, 0),
        "posix_spawn_file_actions_addopen");
  }
  SpawnSetup::check(::posix_spawn_file_actions_adddup2(setup.actions(), output.write.get(), STDOUT_FILENO),
                    "posix_spawn_file_actions_adddup2");
  SpawnSetup::check(::posix_spawn_file_actions_adddup2(setup.actions(), error.write.get(), STDERR_FILENO),
                    "posix_spawn_file_actions_adddup2");
  // Descriptors that other threads opened without close-on-exec stay out of the child.
  SpawnSetup::check(::posix_spawn_file_actions_addclosefrom_np(setup.actions(), STDERR_FILENO + 1),
                    "posix_spawn_file_actions_addclosefrom_np");

  sigset_t noSignals;
  sigemptyset(&noSignals);
  sigset_t allSignals;
  sigfillset(&allSignals);
  SpawnSetup::check(::posix_spawnattr_setflags(setup.attributes(),
                                               POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF),
                    "posix_spawnattr_setflags");
  SpawnSetup::check(::posix_spawnattr_setpgroup(setup.attributes(), 0), "posix_spawnattr_setpgroup");
  SpawnSetup::check(::posix_spawnattr_setsigmask(setup.attributes(), &noSignals), "posix_spawnattr_setsigmask");
  SpawnSetup::check(::posix_spawnattr_setsigdefault(setup.attributes(), &allSignals), "posix_spawnattr_setsigdefault");

  std::vector<std::string> argumentStorage;
  argumentStorage.reserve(launch.arguments.size() + 1);
  argumentStorage.push_back(launch.path);
  argumentStorage.insert(argumentStorage.end(), launch.arguments.begin(), launch.arguments.end());
  std::vector<char*> argv;
  for (auto& argument : argumentStorage) argv.push_back(argument.data());
  argv.push_back(nullptr);

  std::vector<std::string> environmentStorage;
  std::vector<char*> envp;
  char** environment = environ;
  if (launch.environment) {
    for (const auto& [name, value] : *launch.environment) environmentStorage.push_back(name + "=" + value);
    for (auto& entry : environmentStorage) envp.push_back(entry.data());
    envp.push_back(nullptr);
    environment = envp.data();
  }

  pid_t pid = -1;
  int rc = ::posix_spawn(&pid, launch.path.c_str(), setup.actions(), setup.attributes(), argv.data(), environment);
  if (rc != 0) throw ProcessLaunchError(launch.path, rc);
  child.pid_ = pid;
  // From here on the destructor of `child` ends and reaps the process on any failure.
  child.exitDescriptor_.reset(openProcessDescriptor(pid));
  if (!child.exitDescriptor_) {
    int openError = errno;
    child.killAndReap();
    throw ProcessLaunchError(launch.path, openError);
  }
  output.write.reset();
  error.write.reset();
  setNonBlocking(output.read.get());
  setNonBlocking(error.read.get());
  child.stdout_ = std::move(output.read);
  child.stderr_ = std::move(error.read);
  if (input) {
    input->read.reset();
    setNonBlocking(input->write.get());
    child.stdin_ = std::move(input->write);
    child.standardInput_ = *launch.standardInput;
  }
  return child;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      reaped_(std::exchange(other.reaped_, false)),
      exitDescriptor_(std::move(other.exitDescriptor_)),
      stdin_(std::move(other.stdin_)),
      stdout_(std::move(other.stdout_)),
      stderr_(std::move(other.stderr_)),
      standardInput_(std::move(other.standardInput_)),
      terminator_(std::move(other.terminator_)) {}

ChildProcess::~ChildProcess() { killAndReap(); }

void ChildProcess::killAndReap() noexcept {
  if (pid_ <= 0 || reaped_) return;
  signalChildAndGroup(pid_, SIGKILL);
  waitForStatus(pid_);
  reaped_ = true;
}

// One supervision of a child: its pipes, its timers and how it is being ended.
class ChildProcess::Supervisor {
 public:
  using Clock = std::chrono::steady_clock;

  Supervisor(ChildProcess& child, Supervision& supervision)
      : child_(child), supervision_(supervision), deadlineHandled_(!supervision.deadline.has_value()) {
    if (child_.stdin_ && child_.standardInput_.empty()) child_.stdin_.reset();
  }

  // Waits for the child's exit (or, with returnAtDeadline, for the deadline) while
  // moving data through the pipes. True when the child exited.
  bool runUntilExit() {
    while (true) {
      if (pollOnce()) return true;
      if (handleTimers()) return false;
    }
  }

  // Reads what the child wrote before it exited, which is in the pipes now; only
  // that, since a descendant may keep writing for as long as it likes.
  void drainAfterExit() {
    child_.stdin_.reset();
    for (auto [fd, toStdout] : {std::pair<UniqueFd*, bool>{&child_.stdout_, true},
                                std::pair<UniqueFd*, bool>{&child_.stderr_, false}}) {
      if (!*fd) continue;
      int available = 0;
      if (::ioctl(fd->get(), FIONREAD, &available) < 0) available = 0;
      std::string rest(static_cast<std::size_t>(available), '\0');
      std::size_t got = 0;
      while (got < rest.size()) {
        ssize_t n = ::read(fd->get(), rest.data() + got, rest.size() - got);
        if (n > 0) {
          got += static_cast<std::size_t>(n);
        } else if (n < 0 && errno == EINTR) {
          continue;
        } else {
          break;
        }
      }
      if (got > 0 && supervision_.onOutput) supervision_.onOutput(std::string_view(rest.data(), got), toStdout);
      fd->reset();
    }
  }

  ChildProcessOutcome& outcome() { return outcome_; }

  void beginTermination() {
    if (outcome_.terminated) return;
    outcome_.terminated = true;
    signalChildAndGroup(child_.pid_, SIGTERM);
    if (supervision_.killAfter) killAt_ = Clock::now() + *supervision_.killAfter;
  }

 private:
  // One wait for the pipes, the exit descriptor and the termination request. True on exit.
  bool pollOnce() {
    std::array<pollfd, 5> fds{};
    nfds_t count = 0;
    int outIndex = -1, errIndex = -1, inIndex = -1, wakeIndex = -1;
    auto add = [&](int fd, short events) {
      fds[count] = {fd, events, 0};
      return static_cast<int>(count++);
    };
    if (child_.stdout_) outIndex = add(child_.stdout_.get(), POLLIN);
    if (child_.stderr_) errIndex = add(child_.stderr_.get(), POLLIN);
    if (child_.stdin_) inIndex = add(child_.stdin_.get(), POLLOUT);
    int exitIndex = add(child_.exitDescriptor_.get(), POLLIN);
    if (!outcome_.terminated) wakeIndex = add(child_.terminator_->wakeDescriptor(), POLLIN);

    int ready = ::poll(fds.data(), count, pollTimeout());
    if (ready < 0) {
      if (errno == EINTR) return false;
      throwSystemError("poll");
    }
    constexpr short readable = POLLIN | POLLHUP | POLLERR;
    if (outIndex >= 0 && (fds[outIndex].revents & readable)) readOnce(child_.stdout_, true);
    if (errIndex >= 0 && (fds[errIndex].revents & readable)) readOnce(child_.stderr_, false);
    if (inIndex >= 0 && (fds[inIndex].revents & (POLLOUT | POLLHUP | POLLERR))) writeInput();
    if (wakeIndex >= 0 && (fds[wakeIndex].revents & POLLIN)) beginTermination();
    return (fds[exitIndex].revents & POLLIN) != 0;
  }

  // Milliseconds until the next timer, or -1 for none.
  int pollTimeout() const {
    std::optional<Clock::time_point> next;
    if (!deadlineHandled_) next = supervision_.deadline;
    if (killAt_ && !killed_) next = next ? std::min(*next, *killAt_) : *killAt_;
    if (!next) return -1;
    auto remaining = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(remaining, 0, 24 * 60 * 60 * 1000));
  }

  // Acts on the deadline and the kill timer; true when supervision should return now.
  bool handleTimers() {
    auto now = Clock::now();
    if (!deadlineHandled_ && now >= *supervision_.deadline) {
      deadlineHandled_ = true;
      outcome_.deadlinePassed = true;
      if (supervision_.onDeadline) supervision_.onDeadline();
      beginTermination();
      if (supervision_.returnAtDeadline) return true;
    }
    if (killAt_ && !killed_ && now >= *killAt_) {
      signalChildAndGroup(child_.pid_, SIGKILL);
      killed_ = true;
    }
    return false;
  }

  // Reads once from `fd`; closes it at end of file or on a read error.
  void readOnce(UniqueFd& fd, bool toStdout) {
    char buffer[kReadChunkSize];
    ssize_t count = ::read(fd.get(), buffer, sizeof buffer);
    if (count > 0) {
      if (supervision_.onOutput) {
        supervision_.onOutput(std::string_view(buffer, static_cast<std::size_t>(count)), toStdout);
      }
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      fd.reset();
    }
  }

  void writeInput() {
    SigpipeSuppression suppression;
    const std::string& input = child_.standardInput_;
    while (inputWritten_ < input.size()) {
      ssize_t count = ::write(child_.stdin_.get(), input.data() + inputWritten_, input.size() - inputWritten_);
      if (count > 0) {
        inputWritten_ += static_cast<std::size_t>(count);
      } else if (count < 0 && errno == EINTR) {
        continue;
      } else if (count < 0 && errno == EAGAIN) {
        return;
      } else {
        break;  // The child closed its end: the rest of the input is not wanted.
      }
    }
    child_.stdin_.reset();
  }

  ChildProcess& child_;
  Supervision& supervision_;
  ChildProcessOutcome outcome_;
  std::size_t inputWritten_ = 0;
  bool deadlineHandled_;
  std::optional<Clock::time_point> killAt_;
  bool killed_ = false;
};

ChildProcessOutcome ChildProcess::supervise(Supervision supervision) {
  std::stop_callback onStop(supervision.stop, [terminator = terminator_] { terminator->requestTermination(); });
  Supervisor supervisor(*this, supervision);
  if (!supervisor.runUntilExit()) {
    supervisor.outcome().stillRunning = true;
    return supervisor.outcome();
  }
  supervisor.drainAfterExit();
  ChildProcessOutcome outcome = supervisor.outcome();
  // The child is a zombie until reaped, so its group id cannot be taken by
  // anyone else yet: end what is left of a group that was asked to terminate.
  if (outcome.terminated) signalChildAndGroup(pid_, SIGKILL);
  int status = waitForStatus(pid_);
  reaped_ = true;
  exitDescriptor_.reset();
  if (status >= 0 && WIFSIGNALED(status)) {
    outcome.endedBySignal = true;
    outcome.terminationStatus = WTERMSIG(status);
  } else if (status >= 0 && WIFEXITED(status)) {
    outcome.terminationStatus = WEXITSTATUS(status);
  } else {
    outcome.terminationStatus = -1;
  }
  return outcome;
}

void ChildProcess::reapWhenEnded() {
  if (pid_ <= 0 || reaped_) return;
  reaped_ = true;
  stdin_.reset();
  stdout_.reset();
  stderr_.reset();
  exitDescriptor_.reset();
  std::thread([pid = pid_] { waitForStatus(pid); }).detach();
}

}  // namespace orvid
