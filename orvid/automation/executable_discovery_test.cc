#include "orvid/automation/executable_discovery.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/automation/process_test_support.h"

namespace orvid {
namespace {

using testing::writeShellScript;

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, ':');) parts.push_back(part);
  return parts;
}

TEST(ExecutableSearchPathsTest, TriesCandidatesThenPathDirectoriesEachOnce) {
  struct Case {
    std::vector<std::string> candidates;
    ProcessEnvironment environment;
    std::vector<std::string> expected;
  };
  const std::vector<Case> cases = {
      {{"/a/tool", "/b/tool"}, {{"PATH", "/b::/c"}}, {"/a/tool", "/b/tool", "/c/tool"}},
      {{}, {{"PATH", ":/x/:/y:/x/"}}, {"/x/tool", "/y/tool"}},
      {{"/only/tool", "/only/tool"}, {}, {"/only/tool"}},
      {{}, {{"PATH", ""}}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(executableSearchPaths("tool", c.candidates, c.environment), c.expected);
}

TEST(ExecutionEnvironmentTest, PutsTheToolDirectoryFirstAndEveryDirectoryOnce) {
  ProcessEnvironment base = {{"HOME", "/home/me"}, {"PATH", "/usr/bin:/custom::/bin:/custom"}, {"LANG", "C"}};
  ProcessEnvironment environment =
      executionEnvironment(base, "/opt/tools/bin/cua-driver", {"/candidate/one/cua-driver", "/opt/tools/bin/x"});
  EXPECT_EQ(split(environment.at("PATH")),
            (std::vector<std::string>{"/opt/tools/bin", "/candidate/one", "/home/me/.npm-global/bin",
                                      "/home/me/.local/bin", "/opt/homebrew/bin", "/usr/local/bin", "/usr/bin", "/bin",
                                      "/usr/sbin", "/sbin", "/custom"}));
  environment.erase("PATH");
  base.erase("PATH");
  EXPECT_EQ(environment, base);
}

class ResolveExecutableTest : public testing::ChildProcessTest {};

TEST_F(ResolveExecutableTest, FindsTheFirstExecutableFileAndSkipsEverythingElse) {
  std::filesystem::create_directories(folder_ / "first");
  std::filesystem::create_directories(folder_ / "second");
  std::filesystem::create_directories(folder_ / "third" / "tool");  // a directory of that name
  auto notExecutable = writeShellScript(folder_ / "first", "tool", "exit 0\n");
  std::filesystem::permissions(notExecutable, std::filesystem::perms::owner_read);
  auto found = writeShellScript(folder_ / "second", "tool", "exit 0\n");

  ProcessEnvironment environment = {
      {"HOME", "/home/me"},
      {"PATH", (folder_ / "third").string() + ":" + (folder_ / "second").string()},
  };
  auto resolved = resolveExecutable("tool", {notExecutable.string(), (folder_ / "missing").string()}, environment);
  ASSERT_TRUE(resolved);
  EXPECT_EQ(resolved->path, found.string());
  auto path = split(resolved->environment.at("PATH"));
  ASSERT_GE(path.size(), 2u);
  EXPECT_EQ(path[0], (folder_ / "second").string());
  EXPECT_EQ(path[1], (folder_ / "first").string());
  EXPECT_EQ(resolved->environment.at("HOME"), "/home/me");
}

TEST_F(ResolveExecutableTest, AToolThatIsNowhereIsNotFound) {
  ProcessEnvironment environment = {{"PATH", folder_.path().string()}};
  EXPECT_EQ(resolveExecutable("orvid-no-such-tool", {(folder_ / "orvid-no-such-tool").string()}, environment),
            std::nullopt);
  EXPECT_EQ(resolveExecutable("orvid-no-such-tool", {}), std::nullopt);
}

TEST_F(ResolveExecutableTest, FindsAToolOnTheLoginPath) {
  auto resolved = resolveExecutable("sh", {});
  ASSERT_TRUE(resolved);
  EXPECT_TRUE(isExecutableFile(resolved->path));
  EXPECT_EQ(split(resolved->environment.at("PATH")).front(),
            std::filesystem::path(resolved->path).parent_path().string());
}

}  // namespace
}  // namespace orvid
