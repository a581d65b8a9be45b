#pragma once

// Helpers for tests that start real child processes: scripts in a temporary
// folder, waiting for a process to end, and the check that a test left no child
// process (running or zombie) behind.

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/automation/process_tree.h"

#include "orvid/platform/temporary_directory.h"

namespace orvid::testing {

// Writes an executable /bin/sh script `name` with `body` into `folder`.
inline std::filesystem::path writeShellScript(const std::filesystem::path& folder, const std::string& name,
                                              const std::string& body) {
  auto path = folder / name;
  std::ofstream(path, std::ios::binary | std::ios::trunc) << "#!/bin/sh\n" << body;
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  return path;
}

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

inline std::optional<pid_t> parsePid(const std::string& text) {
  std::istringstream parsed(text);
  long value = 0;
  if (!(parsed >> value) || value <= 0) return std::nullopt;
  return static_cast<pid_t>(value);
}

// The pid a script wrote into the file `path`, or absent.
inline std::optional<pid_t> readPid(const std::filesystem::path& path) { return parsePid(readFile(path)); }

inline std::filesystem::path makeFifo(const std::filesystem::path& path) {
  if (::mkfifo(path.c_str(), 0600) != 0) ADD_FAILURE() << "mkfifo " << path;
  return path;
}

// The pid a process writes into the named pipe `path` before closing it; absent
// when nothing arrives within `limit`.
inline std::optional<pid_t> readPidFromFifo(const std::filesystem::path& path,
                                            std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (true) {
    auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd event{fd, POLLIN, 0};
    if (remaining.count() <= 0 || ::poll(&event, 1, static_cast<int>(remaining.count())) <= 0) break;
    char buffer[64];
    ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count > 0) {
      text.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EAGAIN) {
      break;
    }
  }
  ::close(fd);
  return parsePid(text);
}

// The processes (zombies included) whose parent is `parent`.
inline std::vector<pid_t> childrenOf(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& process : runningProcesses()) {
    if (process.parent == parent) children.push_back(process.pid);
  }
  return children;
}

// Waits until process `pid` (any process, not only a child) has ended or become a
// zombie; false when it is still running at the deadline.
inline bool waitForProcessEnd(pid_t pid, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
  int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (fd < 0) return errno == ESRCH;
  pollfd event{fd, POLLIN, 0};
  int ready = ::poll(&event, 1, static_cast<int>(limit.count()));
  ::close(fd);
  return ready == 1;
}

// A test that starts child processes from scripts in its own folder: after the
// test, this process must have no child left, neither running nor unreaped.
class ChildProcessTest : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(childrenOf(::getpid()), std::vector<pid_t>{}) << "a child process outlived the test";
  }
  std::filesystem::path script(const std::string& name, const std::string& body) const {
    return writeShellScript(folder_.path(), name, body);
  }
  // The process a script started in the background and named in `pidFile` has ended.
  static void expectEnded(const std::filesystem::path& pidFile) {
    auto pid = readPid(pidFile);
    ASSERT_TRUE(pid) << pidFile;
    EXPECT_TRUE(waitForProcessEnd(*pid)) << "process " << *pid << " outlived the run";
  }

  TemporaryDirectory folder_{"orvid-process-test"};
};

}  // namespace orvid::testing
