#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "orvid/automation/child_process.h"
#include "orvid/platform/bytes.h"

namespace orvid {

// The environment of the user's login shell. A program started by the desktop
// rather than from a terminal lacks the PATH entries that the user's shell profile
// adds; asking the shell to print its environment recovers them. The answer is
// computed once and kept for the life of the object. Thread-safe.
class UserShellEnvironmentResolver {
 public:
  // Where the resolver looks: the environment of this process and the login shell
  // of the current user's entry in the user database.
  struct Sources {
    std::function<ProcessEnvironment()> hostEnvironment;
    std::function<std::optional<std::string>()> userDatabaseShell;
  };

  // Reads this process's environment and getpwuid(getuid()).
  UserShellEnvironmentResolver();
  explicit UserShellEnvironmentResolver(Sources sources);

  // The login-shell environment: resolved on the first call (blocking, up to twice
  // 5 seconds), then the cached map. Empty when the shell cannot tell.
  ProcessEnvironment environment();

  // The host's SHELL trimmed of white space; when missing or blank, the user
  // database's login shell; absent when neither gives one.
  std::optional<std::string> currentUserShellPath() const;

  // Runs the shell with "-lc" "/usr/bin/env -0" (then "-c" when that fails), each
  // with the host's environment and a 5-second limit, and parses what it printed.
  // Empty when there is no executable shell or both runs fail.
  ProcessEnvironment resolveEnvironment() const;

  // Parses the output of "env -0": NUL-separated "NAME=value" entries. The value
  // is everything after the first "=" (line breaks and further "=" included);
  // entries without "=" are skipped; a later duplicate wins. Empty when the data
  // is not UTF-8.
  static ProcessEnvironment parseEnvironment(const Bytes& data);

 private:
  Sources sources_;
  std::mutex mutex_;
  std::optional<ProcessEnvironment> cachedEnvironment_;
};

// The process-wide resolver, created on first use.
UserShellEnvironmentResolver& shellEnvironmentResolver();

}  // namespace orvid
