#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvid/automation/child_process.h"

namespace orvid {

// A tool found on this machine and the environment it must be started with.
struct ResolvedAutomationExecutable {
  std::string path;
  ProcessEnvironment environment;

  bool operator==(const ResolvedAutomationExecutable&) const = default;
};

// Finds the tool `name`: the first executable file among `candidates`, then among
// the directories of PATH (this process's environment overlaid with the user's
// login-shell environment), then whatever "/usr/bin/which" answers. Absent when
// the tool is not installed. Blocking (the first call may resolve the login shell).
std::optional<ResolvedAutomationExecutable> resolveExecutable(const std::string& name,
                                                              const std::vector<std::string>& candidates);

// The same search with `environment` as the merged environment.
std::optional<ResolvedAutomationExecutable> resolveExecutable(const std::string& name,
                                                              const std::vector<std::string>& candidates,
                                                              const ProcessEnvironment& environment);

// The paths tried, in order: `candidates`, then each non-empty directory of the
// environment's PATH joined with `name`; duplicates removed keeping the first.
std::vector<std::string> executableSearchPaths(const std::string& name, const std::vector<std::string>& candidates,
                                               const ProcessEnvironment& environment);

// `base` with PATH rebuilt: the executable's directory, each candidate's
// directory, ~/.npm-global/bin, ~/.local/bin, /opt/homebrew/bin, /usr/local/bin,
// /usr/bin, /bin, /usr/sbin, /sbin, then the base PATH entries, each once.
// The home directory is the base HOME, or the user database's when that is blank.
ProcessEnvironment executionEnvironment(const ProcessEnvironment& base, const std::string& executablePath,
                                        const std::vector<std::string>& candidates);

// True for a regular file (after following links) that this process may execute.
bool isExecutableFile(const std::string& path);

}  // namespace orvid
