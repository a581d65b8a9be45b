#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "orvid/automation/child_process.h"

namespace orvid {

// Finds the whisper.cpp command-line program on this machine. Every candidate must
// be an executable regular file (after following links); the first one wins:
//   1. `explicitExecutableURL`;
//   2. "whisper-cli", "whisper-cpp", "main" in `bundledResourcesDirectory`;
//   3. the same three names in each search directory: the PATH entries (empty ones
//      dropped), then `fixedSearchDirectories`, each directory once;
//   4. <version>/bin/ with the three names in each Cellar folder, the most recently
//      modified version first.
struct WhisperCPPExecutableLocator {
  // A program the host names; skipped when it is not executable.
  std::optional<std::filesystem::path> explicitExecutableURL;
  // Only "PATH" is read.
  ProcessEnvironment environment;
  // Programs shipped with the host application, when it ships any.
  std::optional<std::filesystem::path> bundledResourcesDirectory;
  std::vector<std::filesystem::path> fixedSearchDirectories = {"/opt/homebrew/bin", "/usr/local/bin", "/usr/bin"};
  std::vector<std::filesystem::path> cellarDirectories = {"/opt/homebrew/Cellar/whisper-cpp",
                                                          "/usr/local/Cellar/whisper-cpp"};

  // The program, or absent when none is installed. Never throws.
  std::optional<std::filesystem::path> executableURL() const;

  // The directories searched by name, in order, each once by its normalised path.
  std::vector<std::filesystem::path> searchDirectories() const;
};

}  // namespace orvid
