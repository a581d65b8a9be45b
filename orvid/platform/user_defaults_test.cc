#include "orvid/platform/user_defaults.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
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
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

void writeText(const fs::path& file, const std::string& text) {
  std::ofstream out(file, std::ios::binary);
  out << text;
}

std::vector<std::string> entriesOf(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// Sets the process umask for the lifetime of the object.
class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : previous_(::umask(mask)) {}
  ~ScopedUmask() { ::umask(previous_); }

 private:
  mode_t previous_;
};

TEST(UserDefaultsTest, ReadsSwitchesTheWayTheMacDoes) {
  const std::vector<std::pair<nlohmann::json, std::optional<bool>>> cases = {
      {true, true},   {false, false},     {0, false},     {-3, true},    {0.5, true},   {"YES", true},
      {"T", true},    {" \t+007", true},  {"-0.0", false}, {"no", false}, {"on", false}, {"   ", false},
      {nullptr, std::nullopt}, {nlohmann::json::array({true}), std::nullopt}, {nlohmann::json::object(), std::nullopt},
  };
  for (const auto& [value, expected] : cases) {
    EXPECT_EQ(UserDefaults::booleanValue(value), expected) << value.dump();
  }
}

TEST(UserDefaultsTest, ValuesReachASecondInstanceThroughTheFile) {
  TemporaryDirectory folder;
  const fs::path file = folder / "nested" / "deeper" / "settings.json";
  UserDefaults writer(file);
  writer.set("selectedProvider", "openai");
  writer.set("legacyFlag", 1);
  writer.set("nested", {{"a", 1}, {"b", nullptr}});
  UserDefaults reader(file);
  EXPECT_EQ(reader.string("selectedProvider"), "openai");
  EXPECT_EQ(reader.boolean("legacyFlag"), true);
  EXPECT_EQ(reader.value("nested"), (nlohmann::json{{"a", 1}, {"b", nullptr}}));
  // Wrong kinds read as absent.
  EXPECT_EQ(reader.string("legacyFlag"), std::nullopt);
  EXPECT_EQ(reader.boolean("nested"), std::nullopt);

  writer.set("selectedProvider", "soniox");
  writer.remove("legacyFlag");
  writer.remove("never-set");
  EXPECT_EQ(reader.string("selectedProvider"), "openai");  // held until reloaded
  reader.reload();
  EXPECT_EQ(reader.dictionary(),
            (nlohmann::json{{"selectedProvider", "soniox"}, {"nested", {{"a", 1}, {"b", nullptr}}}}));
  EXPECT_EQ(nlohmann::json::parse(readText(file)), reader.dictionary());
}

TEST(UserDefaultsTest, MissingOrCorruptFilesReadAsNoSettings) {
  TemporaryDirectory folder;
  for (const std::string contents : {"{\"truncated\": ", "not json at all", "[1, 2, 3]", "\"text\"", ""}) {
    SCOPED_TRACE(contents);
    const fs::path file = folder / "settings.json";
    writeText(file, contents);
    UserDefaults defaults(file);
    EXPECT_EQ(defaults.dictionary(), nlohmann::json::object());
    // The next change writes a valid file again.
    defaults.set("k", "v");
    EXPECT_EQ(nlohmann::json::parse(readText(file)), (nlohmann::json{{"k", "v"}}));
  }
  UserDefaults missing(folder / "absent.json");
  EXPECT_EQ(missing.dictionary(), nlohmann::json::object());
  missing.remove("anything");
  EXPECT_FALSE(fs::exists(folder / "absent.json"));
}

TEST(UserDefaultsTest, ConcurrentSettersLoseNoKeysAndLeaveOnlyAnOwnerReadableFile) {
  TemporaryDirectory folder;
  const fs::path file = folder / "settings.json";
  ScopedUmask permissive(0);
  constexpr int kThreads = 6;
  constexpr int kKeysPerThread = 25;
  UserDefaults defaults(file);
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&defaults, t] {
        for (int i = 0; i < kKeysPerThread; ++i) defaults.set("t" + std::to_string(t) + "-" + std::to_string(i), i);
      });
    }
  }
  auto all = UserDefaults(file).dictionary();
  EXPECT_EQ(all, defaults.dictionary());
  EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads * kKeysPerThread));
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kKeysPerThread; ++i) {
      EXPECT_EQ(all.value("t" + std::to_string(t) + "-" + std::to_string(i), -1), i);
    }
  }
  EXPECT_EQ(entriesOf(folder.path()), std::vector<std::string>{"settings.json"});
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
  ScopedUmask strict(0077);
  const fs::path file = folder / "sub" / "out.txt";
  const auto readable = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read;
  writeFileAtomically(file, "first");
  writeFileAtomically(file, std::string("second\0with nul", 15), readable);
  EXPECT_EQ(readText(file), std::string("second\0with nul", 15));
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, readable);
  EXPECT_EQ(entriesOf(folder / "sub"), std::vector<std::string>{"out.txt"});

  // A non-empty folder cannot be replaced by a file: it stays, and no temporary file is left.
  fs::create_directory(folder / "sub" / "target");
  writeText(folder / "sub" / "target" / "inside", "kept");
  EXPECT_THROW(writeFileAtomically(folder / "sub" / "target", "data"), fs::filesystem_error);
  EXPECT_EQ(readText(folder / "sub" / "target" / "inside"), "kept");
  EXPECT_EQ(entriesOf(folder / "sub"), (std::vector<std::string>{"out.txt", "target"}));
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
