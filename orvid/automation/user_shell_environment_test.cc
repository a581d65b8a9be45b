#include "orvid/automation/user_shell_environment.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/automation/process_test_support.h"

namespace orvid {
namespace {

UserShellEnvironmentResolver::Sources sources(ProcessEnvironment host, std::optional<std::string> databaseShell) {
  return {[host] { return host; }, [databaseShell] { return databaseShell; }};
}

TEST(UserShellEnvironmentResolverTest, TakesTheShellFromSHELLOrElseFromTheUserDatabase) {
  struct Case {
    ProcessEnvironment host;
    std::optional<std::string> databaseShell;
    std::optional<std::string> expected;
  };
  const std::vector<Case> cases = {
      {{{"SHELL", "  /bin/zsh\n"}}, "/bin/bash", "/bin/zsh"},
      {{{"SHELL", " \t\n"}}, "/bin/bash", "/bin/bash"},
      {{}, "/usr/bin/fish", "/usr/bin/fish"},
      {{{"SHELL", ""}}, std::nullopt, std::nullopt},
      {{}, "", std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(UserShellEnvironmentResolver(sources(c.host, c.databaseShell)).currentUserShellPath(), c.expected);
  }
}

TEST(UserShellEnvironmentResolverTest, ParsesNulSeparatedEntriesKeepingEqualsSignsAndLineBreaks) {
  const std::string output = std::string("PATH=/usr/bin:/bin\0", 19) + std::string("EQ=a=b=c\0", 9) +
                             std::string("MULTI=line one\nline two\0", 24) + std::string("\0\0", 2) +
                             std::string("NOEQUALS\0", 9) + std::string("EMPTY=\0", 7) + "PATH=/later";
  ProcessEnvironment expected = {
      {"PATH", "/later"}, {"EQ", "a=b=c"}, {"MULTI", "line one\nline two"}, {"EMPTY", ""}};
  EXPECT_EQ(UserShellEnvironmentResolver::parseEnvironment(bytesFromString(output)), expected);
  EXPECT_EQ(UserShellEnvironmentResolver::parseEnvironment(bytesFromString("A=\xff")), ProcessEnvironment{});
}

class UserShellEnvironmentResolutionTest : public testing::ChildProcessTest {};

TEST_F(UserShellEnvironmentResolutionTest, AsksTheLoginShellThenThePlainOneAndGivesNothingWithoutAWorkingShell) {
  // The plain shell refuses "-lc" and prints an environment for "-c" that shows the host's.
  auto login = script("login-shell", "[ \"$1\" = \"-lc\" ] || exit 9\nprintf 'FROM=login\\0'\n");
  auto plain = script("plain-shell",
                      "[ \"$1\" = \"-lc\" ] && exit 3\n"
                      "[ \"$1\" = \"-c\" ] && [ \"$2\" = \"/usr/bin/env -0\" ] || exit 9\n"
                      "printf 'FROM=plain\\0HOST=%s\\0' \"$HOST_VALUE\"\n");
  auto failing = script("failing-shell", "exit 1\n");
  auto notExecutable = script("not-executable", "printf 'A=1\\0'\n");
  std::filesystem::permissions(notExecutable, std::filesystem::perms::owner_read);
  const std::vector<std::pair<std::filesystem::path, ProcessEnvironment>> cases = {
      {login, {{"FROM", "login"}}},
      {plain, {{"FROM", "plain"}, {"HOST", "passed"}}},
      {failing, {}},
      {notExecutable, {}},
      {folder_ / "absent", {}},
  };
  for (const auto& [shell, expected] : cases) {
    UserShellEnvironmentResolver resolver(sources({{"SHELL", shell.string()}, {"HOST_VALUE", "passed"}}, std::nullopt));
    EXPECT_EQ(resolver.resolveEnvironment(), expected) << shell;
  }
  EXPECT_EQ(UserShellEnvironmentResolver(sources({}, std::nullopt)).environment(), ProcessEnvironment{});
}

TEST_F(UserShellEnvironmentResolutionTest, ResolvesOnceAndCachesTheAnswer) {
  auto counter = folder_ / "runs";
  auto shell = script("counting-shell", "echo run >> '" + counter.string() + "'\nprintf 'COUNTED=yes\\0'\n");
  UserShellEnvironmentResolver resolver(sources({{"SHELL", shell.string()}}, std::nullopt));
  EXPECT_EQ(resolver.environment(), (ProcessEnvironment{{"COUNTED", "yes"}}));
  EXPECT_EQ(resolver.environment(), (ProcessEnvironment{{"COUNTED", "yes"}}));
  EXPECT_EQ(testing::readFile(counter), "run\n");
}

}  // namespace
}  // namespace orvid
