#include "orvid/automation/executable_discovery.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "orvid/automation/synchronous_process.h"
#include "orvid/automation/user_shell_environment.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

std::vector<std::string> pathEntries(const ProcessEnvironment& environment) {
  std::vector<std::string> entries;
  auto path = environment.find("PATH");
  if (path == environment.end()) return entries;
  std::string_view text = path->second;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(':', start);
    if (end == std::string_view::npos) end = text.size();
    if (end > start) entries.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return entries;
}

void appendOnce(std::vector<std::string>& list, std::set<std::string>& seen, std::string entry) {
  if (seen.insert(entry).second) list.push_back(std::move(entry));
}

std::string directoryOf(const std::string& path) { return std::filesystem::path(path).parent_path().string(); }

std::string homeDirectory(const ProcessEnvironment& base) {
  if (auto home = base.find("HOME"); home != base.end() && !internal::trimASCIIWhitespace(home->second).empty()) {
    return home->second;
  }
  long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
  passwd entry{};
  passwd* result = nullptr;
  while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (result != nullptr && result->pw_dir != nullptr) return result->pw_dir;
  return {};
}

}  // namespace

bool isExecutableFile(const std::string& path) {
  struct stat info{};
  return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

std::vector<std::string> executableSearchPaths(const std::string& name, const std::vector<std::string>& candidates,
                                               const ProcessEnvironment& environment) {
  std::vector<std::string> paths;
  std::set<std::string> seen;
  for (const auto& candidate : candidates) appendOnce(paths, seen, candidate);
  for (const auto& directory : pathEntries(environment)) {
    appendOnce(paths, seen, (std::filesystem::path(directory) / name).string());
  }
  return paths;
}

ProcessEnvironment executionEnvironment(const ProcessEnvironment& base, const std::string& executablePath,
                                        const std::vector<std::string>& candidates) {
  std::vector<std::string> directories;
  std::set<std::string> seen;
  appendOnce(directories, seen, directoryOf(executablePath));
  for (const auto& candidate : candidates) appendOnce(directories, seen, directoryOf(candidate));
  std::string home = homeDirectory(base);
  appendOnce(directories, seen, home + "/.npm-global/bin");
  appendOnce(directories, seen, home + "/.local/bin");
  for (const char* fixed : {"/opt/homebrew/bin", "/usr/local/bin", "/usr/bin", "/bin", "/usr/sbin", "/sbin"}) {
    appendOnce(directories, seen, fixed);
  }
  for (auto& entry : pathEntries(base)) appendOnce(directories, seen, std::move(entry));

  std::string path;
  for (const auto& directory : directories) {
    if (!path.empty()) path += ':';
    path += directory;
  }
  ProcessEnvironment environment = base;
  environment["PATH"] = path;
  return environment;
}

std::optional<ResolvedAutomationExecutable> resolveExecutable(const std::string& name,
                                                              const std::vector<std::string>& candidates,
                                                              const ProcessEnvironment& environment) {
  std::optional<std::string> found;
  for (const auto& path : executableSearchPaths(name, candidates, environment)) {
    if (isExecutableFile(path)) {
      found = path;
      break;
    }
  }
  if (!found) {
    SynchronousProcessOutput which = runSynchronousProcess("/usr/bin/which", {name}, environment, 5);
    if (which.exitCode != 0) return std::nullopt;
    std::string answer(internal::trimASCIIWhitespace(internal::decodeUTF8OrEmpty(which.stdout)));
    if (answer.empty()) return std::nullopt;
    found = answer;
  }
  return ResolvedAutomationExecutable{*found, executionEnvironment(environment, *found, candidates)};
}

std::optional<ResolvedAutomationExecutable> resolveExecutable(const std::string& name,
                                                              const std::vector<std::string>& candidates) {
  ProcessEnvironment merged = currentProcessEnvironment();
  for (auto& [key, value] : shellEnvironmentResolver().environment()) merged[key] = value;
  return resolveExecutable(name, candidates, merged);
}

}  // namespace orvid
