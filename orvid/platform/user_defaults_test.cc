#include "orvid/platform/user_defaults.h"

#include <sys/stat.h>

#include <fstream>
#include <optional>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void writeText(const fs::path& file, const std::string& text) { std::ofstream(file, std::ios::binary) << text; }

std::ptrdiff_t entryCount(const fs::path& folder) { return std::distance(fs::directory_iterator(folder), {}); }

// Restores the process umask that `::umask` replaced.
struct ScopedUmask { mode_t previous; ~ScopedUmask() { ::umask(previous); } };

TEST(UserDefaultsTest, ReadsSwitchesTheWayTheMacDoes) {
  const std::vector<std::pair<nlohmann::json, std::optional<bool>>> cases = {
      {false, false},  {-3, true},    {0.5, true},    {"YES", true},          {" \t+007", true},
      {"-0.0", false}, {"on", false}, {"   ", false}, {nullptr, std::nullopt}, {nlohmann::json::array(), std::nullopt},
  };
  for (const auto& [value, expected] : cases) EXPECT_EQ(UserDefaults::booleanValue(value), expected) << value.dump();
}

TEST(UserDefaultsTest, ValuesReachASecondInstanceThroughTheFile) {
  TemporaryDirectory folder;
  const fs::path file = folder / "nested" / "deeper" / "settings.json";
  UserDefaults writer(file);
  writer.set("selectedProvider", "openai");
  writer.set("legacyFlag", 1);
  UserDefaults reader(file);
  EXPECT_EQ(reader.string("selectedProvider"), "openai");
  EXPECT_EQ(reader.string("legacyFlag"), std::nullopt);  // the wrong kind reads as absent

  writer.set("selectedProvider", "soniox");
  writer.remove("legacyFlag");
  EXPECT_EQ(reader.string("selectedProvider"), "openai");  // held until reloaded
  reader.reload();
  EXPECT_EQ(reader.dictionary(), (nlohmann::json{{"selectedProvider", "soniox"}}));
}

TEST(UserDefaultsTest, MissingOrCorruptFilesReadAsNoSettings) {
  TemporaryDirectory folder;
  const fs::path file = folder / "settings.json";
  for (const std::string contents : {"{\"truncated\": ", "[1, 2, 3]", ""}) {
    writeText(file, contents);
    UserDefaults defaults(file);
    EXPECT_EQ(defaults.dictionary(), nlohmann::json::object()) << contents;
    defaults.set("k", "v");
    EXPECT_EQ(nlohmann::json::parse(readText(file)), (nlohmann::json{{"k", "v"}}));
  }
}

TEST(UserDefaultsTest, ConcurrentSettersLoseNoKeysAndLeaveOnlyAnOwnerReadableFile) {
  TemporaryDirectory folder;
  const fs::path file = folder / "settings.json";
  ScopedUmask permissive{::umask(0)};
  UserDefaults defaults(file);
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 6; ++t) {
      threads.emplace_back([&defaults, t] {
        for (int i = 0; i < 25; ++i) defaults.set("t" + std::to_string(t) + "-" + std::to_string(i), i);
      });
    }
  }
  EXPECT_EQ(UserDefaults(file).dictionary().size(), 150u);
  EXPECT_EQ(entryCount(folder.path()), 1);
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
}

TEST(UserDefaultsTest, AFailedWriteThrowsAndKeepsTheHeldSettings) {
  TemporaryDirectory folder;
  writeText(folder / "blocker", "a file where a folder should be");
  UserDefaults defaults(folder / "blocker" / "settings.json");
  EXPECT_THROW(defaults.set("k", 1), fs::filesystem_error);
  EXPECT_EQ(defaults.value("k"), std::nullopt);
}

TEST(WriteFileAtomicallyTest, ReplacesContentsWithTheGivenPermissionsOrLeavesTheTargetAlone) {
  TemporaryDirectory folder;
  ScopedUmask strict{::umask(0077)};
  const fs::path file = folder / "sub" / "out.txt";
  const auto readable = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read;
  writeFileAtomically(file, "first");
  writeFileAtomically(file, std::string("second\0with nul", 15), readable);
  EXPECT_EQ(readText(file), std::string("second\0with nul", 15));
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, readable);
  // A non-empty folder cannot be replaced by a file: it stays, and no temporary file is left.
  fs::create_directory(folder / "sub" / "target");
  writeText(folder / "sub" / "target" / "inside", "kept");
  EXPECT_THROW(writeFileAtomically(folder / "sub" / "target", "data"), fs::filesystem_error);
  EXPECT_EQ(entryCount(folder / "sub"), 2);
}

TEST(UserDefaultsTest, ConfigDirectoryFollowsTheEnvironmentInOrder) {
  using Value = std::optional<std::string>;
  const testing::ScopedEnvironmentVariable home("HOME", "/home/someone");
  for (const auto& [own, xdg, expected] : std::vector<std::tuple<Value, Value, std::string>>{
           {"/tmp/orvid-own", "/tmp/xdg", "/tmp/orvid-own"},
           {"", "/tmp/xdg", "/tmp/xdg/orvid"},
           {std::nullopt, std::nullopt, "/home/someone/.config/orvid"}}) {
    const testing::ScopedEnvironmentVariable ownVariable("ORVID_CONFIG_HOME", own);
    const testing::ScopedEnvironmentVariable xdgVariable("XDG_CONFIG_HOME", xdg);
    EXPECT_EQ(UserDefaults::configDirectory(), fs::path(expected));
  }
}

}  // namespace
}  // namespace orvid
