#include "orvid/transcription/local/engines/whisper_cpp_executable_locator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "orvid/platform/temporary_directory.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;

class LocalEngineWhisperCPPLocatorTest : public ::testing::Test {
 protected:
  fs::path program(const fs::path& relative, bool executable = true) {
    const fs::path path = folder / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "#!/bin/sh\n";
    fs::permissions(path, executable ? fs::perms::owner_all : fs::perms::owner_read | fs::perms::owner_write);
    return path;
  }

  // Searches only inside the temporary folder.
  WhisperCPPExecutableLocator locator() const {
    WhisperCPPExecutableLocator locator;
    locator.fixedSearchDirectories = {folder / "opt", folder / "local", folder / "usr"};
    locator.cellarDirectories = {folder / "cellar1", folder / "cellar2"};
    return locator;
  }

  TemporaryDirectory folder{"orvid-whisper-locator"};
};

TEST_F(LocalEngineWhisperCPPLocatorTest, SearchesEachPathDirectoryOnceThenTheFixedOnes) {
  WhisperCPPExecutableLocator search = locator();
  const std::string a = (folder / "a").string();
  const std::string usr = (folder / "usr").string();
  search.environment = {{"PATH", a + "::" + usr + ":" + a + "/:" + usr + "/./"}};
  EXPECT_EQ(search.searchDirectories(),
            (std::vector<fs::path>{folder / "a", folder / "usr", folder / "opt", folder / "local"}));

  search.environment = {};
  EXPECT_EQ(search.searchDirectories(), (std::vector<fs::path>{folder / "opt", folder / "local", folder / "usr"}));
}

TEST_F(LocalEngineWhisperCPPLocatorTest, PrefersTheFirstExecutableInSearchOrder) {
  WhisperCPPExecutableLocator search = locator();
  EXPECT_EQ(search.executableURL(), std::nullopt);

  program("cellar2/1.0/bin/whisper-cli");
  EXPECT_EQ(search.executableURL(), folder / "cellar2/1.0/bin/whisper-cli");
  program("usr/main");
  EXPECT_EQ(search.executableURL(), folder / "usr/main");
  program("local/whisper-cpp");
  EXPECT_EQ(search.executableURL(), folder / "local/whisper-cpp");
  program("local/whisper-cli", false);
  EXPECT_EQ(search.executableURL(), folder / "local/whisper-cpp") << "not executable";
  program("path/main");
  search.environment = {{"PATH", (folder / "path").string()}};
  EXPECT_EQ(search.executableURL(), folder / "path/main");
  search.bundledResourcesDirectory = folder / "bundle";
  program("bundle/whisper-cpp");
  EXPECT_EQ(search.executableURL(), folder / "bundle/whisper-cpp");
  search.explicitExecutableURL = program("chosen", false);
  EXPECT_EQ(search.executableURL(), folder / "bundle/whisper-cpp") << "an explicit program must be executable";
  search.explicitExecutableURL = program("chosen");
  EXPECT_EQ(search.executableURL(), folder / "chosen");
}

TEST_F(LocalEngineWhisperCPPLocatorTest, TriesTheMostRecentlyModifiedCellarVersionFirst) {
  program("cellar1/1.7.5/bin/whisper-cli");
  program("cellar1/1.5.0/bin/main");
  program("cellar1/.hidden/bin/whisper-cli");
  const auto now = fs::file_time_type::clock::now();
  fs::last_write_time(folder / "cellar1/1.7.5", now - std::chrono::hours(48));
  fs::last_write_time(folder / "cellar1/1.5.0", now - std::chrono::hours(1));
  fs::last_write_time(folder / "cellar1/.hidden", now);
  EXPECT_EQ(locator().executableURL(), folder / "cellar1/1.5.0/bin/main");
}

}  // namespace
}  // namespace orvid
