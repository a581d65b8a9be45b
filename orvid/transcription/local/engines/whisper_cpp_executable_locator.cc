#include "orvid/transcription/local/engines/whisper_cpp_executable_locator.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "orvid/automation/executable_discovery.h"

namespace orvid {
namespace {

constexpr std::array<std::string_view, 3> kExecutableNames = {"whisper-cli", "whisper-cpp", "main"};

bool isExecutable(const std::filesystem::path& path) { return isExecutableFile(path.string()); }

std::optional<std::filesystem::path> executableIn(const std::filesystem::path& directory) {
  for (std::string_view name : kExecutableNames) {
    std::filesystem::path candidate = directory / name;
    if (isExecutable(candidate)) return candidate;
  }
  return std::nullopt;
}

// The directory's path without "." and ".." parts and without a trailing separator.
std::string standardised(const std::filesystem::path& directory) {
  std::string text = directory.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

std::optional<std::filesystem::path> newestVersionedInstall(const std::filesystem::path& cellar) {
  std::error_code error;
  std::filesystem::directory_iterator entries(cellar, error);
  if (error) return std::nullopt;

  std::vector<std::pair<std::filesystem::file_time_type, std::filesystem::path>> versions;
  for (; entries != std::filesystem::directory_iterator(); entries.increment(error)) {
    if (error) break;
    const std::filesystem::path& path = entries->path();
    if (path.filename().string().starts_with(".")) continue;
    std::error_code timeError;
    std::filesystem::file_time_type modified = std::filesystem::last_write_time(path, timeError);
    versions.emplace_back(timeError ? std::filesystem::file_time_type::min() : modified, path);
  }
  std::stable_sort(versions.begin(), versions.end(),
                   [](const auto& left, const auto& right) { return left.first > right.first; });
  for (const auto& [modified, version] : versions) {
    if (auto found = executableIn(version / "bin")) return found;
  }
  return std::nullopt;
}

}  // namespace

std::vector<std::filesystem::path> WhisperCPPExecutableLocator::searchDirectories() const {
  std::vector<std::filesystem::path> candidates;
  const auto path = environment.find("PATH");
  const std::string_view value = path == environment.end() ? std::string_view() : std::string_view(path->second);
  std::size_t start = 0;
  while (start <= value.size()) {
    const std::size_t end = std::min(value.find(':', start), value.size());
    if (end > start) candidates.emplace_back(std::string(value.substr(start, end - start)));
    start = end + 1;
  }
  candidates.insert(candidates.end(), fixedSearchDirectories.begin(), fixedSearchDirectories.end());

  std::vector<std::filesystem::path> directories;
  std::set<std::string> seen;
  for (const std::filesystem::path& candidate : candidates) {
    if (seen.insert(standardised(candidate)).second) directories.push_back(candidate);
  }
  return directories;
}

std::optional<std::filesystem::path> WhisperCPPExecutableLocator::executableURL() const {
  try {
    if (explicitExecutableURL && isExecutable(*explicitExecutableURL)) return explicitExecutableURL;
    if (bundledResourcesDirectory) {
      if (auto found = executableIn(*bundledResourcesDirectory)) return found;
    }
    for (const std::filesystem::path& directory : searchDirectories()) {
      if (auto found = executableIn(directory)) return found;
    }
    for (const std::filesystem::path& cellar : cellarDirectories) {
      if (auto found = newestVersionedInstall(cellar)) return found;
    }
  } catch (const std::exception&) {
    // An unreadable location counts as "not installed".
  }
  return std::nullopt;
}

}  // namespace orvid
