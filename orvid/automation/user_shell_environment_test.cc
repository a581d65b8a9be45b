#include "orvid/automation/user_shell_environment.h"

#include <atomic>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/automation/process_test_support.h"
#include "orvid/platform/temporary_directory.h"

namespace orvid {
namespace {

using testing::ChildProcessTest;
using testing::writeShellScript;

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
    UserShellEnvironmentResolver resolver(sources(c.host, c.databaseShell));
    EXPECT_EQ(resolver.currentUserShellPath(), c.expected);
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

class UserShellEnvironmentResolutionTest : public ChildProcessTest {
 protected:
  TemporaryDirectory folder_{"orvid-shell"};
};

TEST_F(UserShellEnvironmentResolutionTest, FallsBackToThePlainModeWhenTheLoginModeFails) {
  // The fake shell refuses "-lc" and prints a fixed environment for "-c".
  auto shell = writeShellScript(folder_.path(), "fake-shell",
                                "[ \"$1\" = \"-lc\" ] && exit 3\n"
                                "[ \"$1\" = \"-c\" ] && [ \"$2\" = \"/usr/bin/env -0\" ] || exit 9\n"
                                "printf 'FROM=plain\\0HOST=%s\\0' \"$HOST_VALUE\"\n");
  UserShellEnvironmentResolver resolver(sources({{"SHELL", shell.string()}, {"HOST_VALUE", "passed"}}, std::nullopt));
  EXPECT_EQ(resolver.resolveEnvironment(), (ProcessEnvironment{{"FROM", "plain"}, {"HOST", "passed"}}));
}

TEST_F(UserShellEnvironmentResolutionTest, UsesTheLoginModeWhenItWorks) {
  auto shell = writeShellScript(folder_.path(), "login-shell",
                                "[ \"$1\" = \"-lc\" ] || exit 9\n"
                                "printf 'FROM=login\\0'\n");
  UserShellEnvironmentResolver resolver(sources({{"SHELL", shell.string()}}, std::nullopt));
  EXPECT_EQ(resolver.resolveEnvironment(), (ProcessEnvironment{{"FROM", "login"}}));
}

TEST_F(UserShellEnvironmentResolutionTest, GivesNothingWithoutAWorkingShell) {
  auto failing = writeShellScript(folder_.path(), "failing-shell", "exit 1\n");
  auto notExecutable = folder_.path() / "plain";
  writeShellScript(folder_.path(), "plain", "printf 'A=1\\0'\n");
  std::filesystem::permissions(notExecutable, std::filesystem::perms::owner_read);
  for (const std::string& shell : {failing.string(), notExecutable.string(), (folder_.path() / "absent").string()}) {
    UserShellEnvironmentResolver resolver(sources({{"SHELL", shell}}, std::nullopt));
    EXPECT_EQ(resolver.resolveEnvironment(), ProcessEnvironment{}) << shell;
  }
  UserShellEnvironmentResolver noShell(sources({}, std::nullopt));
  EXPECT_EQ(noShell.environment(), ProcessEnvironment{});
}

TEST_F(UserShellEnvironmentResolutionTest, ResolvesOnceAndCachesTheAnswer) {
  auto counter = folder_.path() / "runs";
  auto shell = writeShellScript(folder_.path(), "counting-shell",
                                "echo run >> '" + counter.string() + "'\n"
                                "printf 'COUNTED=yes\\0'\n");
  UserShellEnvironmentResolver resolver(sources({{"SHELL", shell.string()}}, std::nullopt));
  EXPECT_EQ(resolver.environment(), (ProcessEnvironment{{"COUNTED", "yes"}}));
  EXPECT_EQ(resolver.environment(), (ProcessEnvironment{{"COUNTED", "yes"}}));
  EXPECT_EQ(testing::readFile(counter), "run\n");
}

TEST_F(UserShellEnvironmentResolutionTest, TheProcessWideResolverAnswersWithTheRealShell) {
  UserShellEnvironmentResolver& resolver = shellEnvironmentResolver();
  EXPECT_EQ(&resolver, &shellEnvironmentResolver());
  EXPECT_EQ(resolver.environment(), resolver.environment());
}

}  // namespace
}  // namespace orvid
