#include "orvid/automation/child_process.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "orvid/automation/process_test_support.h"
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {
namespace {

using testing::waitForProcessEnd;
using Clock = std::chrono::steady_clock;

struct Collected { std::string stdout; std::string stderr; ChildProcessOutcome outcome; };

Collected superviseToEnd(ChildProcess& child, ChildProcess::Supervision supervision = {}) {
  Collected collected;
  supervision.onOutput = [&](std::string_view chunk, bool toStdout) {
    (toStdout ? collected.stdout : collected.stderr).append(chunk);
  };
  collected.outcome = child.supervise(std::move(supervision));
  return collected;
}

class ChildProcessLifecycleTest : public testing::ChildProcessTest {
 protected:
  // Launches the script `body`, giving it `folder_/background.pid` as its argument.
  ChildProcess launch(const std::string& body, std::optional<std::string> input = std::nullopt) {
    return ChildProcess::launch({script("child.sh", body).string(), {pidFile_.string()}, std::nullopt, input, nullptr});
  }

  std::filesystem::path pidFile_ = folder_ / "background.pid";
};

TEST_F(ChildProcessLifecycleTest, PassesArgumentsEnvironmentAndInputAndReportsTheExitStatus) {
  auto path = script("echo.sh", "printf '%s|' \"$@\"\nprintf '%s' \"$GREETING\" >&2\ncat\nexit 7\n");
  ChildProcess child = ChildProcess::launch(
      {path.string(), {"one", "two words", ""}, ProcessEnvironment{{"GREETING", "hello=world"}}, "from stdin", nullptr});
  Collected result = superviseToEnd(child);
  EXPECT_EQ(result.stdout, "one|two words||from stdin");
  EXPECT_EQ(result.stderr, "hello=world");
  EXPECT_EQ(result.outcome.terminationStatus, 7);
  EXPECT_FALSE(result.outcome.endedBySignal || result.outcome.terminated || result.outcome.deadlinePassed);
}

TEST_F(ChildProcessLifecycleTest, MovesMegabytesThroughAllThreePipesWithoutStalling) {
  // cat echoes its input while the script also floods standard error: every pipe
  // fills up many times over, so any stream left unread would stall the child.
  std::string input;
  for (int line = 0; input.size() < 3 * 1024 * 1024; ++line) input += "line " + std::to_string(line) + "\n";
  ChildProcess child = launch("head -c 3000000 /dev/zero | tr '\\0' e >&2 &\ncat\nwait\n", input);
  ChildProcess::Supervision supervision;
  supervision.deadline = Clock::now() + std::chrono::seconds(60);
  Collected result = superviseToEnd(child, std::move(supervision));
  EXPECT_FALSE(result.outcome.deadlinePassed);
  EXPECT_EQ(result.outcome.terminationStatus, 0);
  EXPECT_TRUE(result.stdout == input) << result.stdout.size() << " of " << input.size() << " bytes";
  EXPECT_EQ(result.stderr, std::string(3000000, 'e'));
}

TEST_F(ChildProcessLifecycleTest, AChildThatClosesItsInputEarlyDoesNotHurtThisProcess) {
  ChildProcess child = launch("exec 0<&-\necho closed\nsleep 0.2\n", std::string(4 * 1024 * 1024, 'x'));
  Collected result = superviseToEnd(child);
  EXPECT_EQ(result.stdout, "closed\n");
  EXPECT_EQ(result.outcome.terminationStatus, 0);
}

TEST_F(ChildProcessLifecycleTest, LaunchFailuresThrowWithTheReason) {
  auto notExecutable = script("plain.txt", "echo never\n");
  std::filesystem::permissions(notExecutable, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  for (const auto& [path, errorNumber] :
       {std::pair{(folder_ / "missing-tool").string(), ENOENT}, std::pair{notExecutable.string(), EACCES}}) {
    try {
      ChildProcess::launch({path, {}, std::nullopt, std::nullopt, nullptr});
      ADD_FAILURE() << path << " launched";
    } catch (const ProcessLaunchError& error) {
      EXPECT_EQ(error, ProcessLaunchError(path, errorNumber));
    }
  }
}

TEST_F(ChildProcessLifecycleTest, TheDeadlineEndsTheChildAndEveryProcessInItsGroup) {
  ChildProcess child = launch("sleep 30 &\necho $! > \"$1\"\necho started\nwait\n");
  int deadlineCalls = 0;
  ChildProcess::Supervision supervision;
  auto start = Clock::now();
  supervision.deadline = start + std::chrono::milliseconds(500);
  supervision.onDeadline = [&] { ++deadlineCalls; };
  Collected result = superviseToEnd(child, std::move(supervision));
  EXPECT_EQ(deadlineCalls, 1);
  EXPECT_TRUE(result.outcome.deadlinePassed && result.outcome.terminated);
  EXPECT_EQ(result.outcome.terminationStatus, SIGTERM);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  expectEnded(pidFile_);
}

TEST_F(ChildProcessLifecycleTest, AChildIgnoringTheTerminateSignalIsKilledAfterTheGracePeriod) {
  ChildProcess child = launch("trap '' TERM\nsleep 30 &\necho $! > \"$1\"\necho ready\nwait\n");
  ChildProcess::Supervision supervision;
  supervision.onOutput = [&](std::string_view, bool) { child.terminator()->requestTermination(); };
  auto start = Clock::now();
  ChildProcessOutcome outcome = child.supervise(std::move(supervision));
  auto elapsed = Clock::now() - start;
  EXPECT_EQ(outcome.terminationStatus, SIGKILL);
  EXPECT_GE(elapsed, ChildProcess::terminationGracePeriod);
  EXPECT_LT(elapsed, std::chrono::seconds(5));
  expectEnded(pidFile_);
}

TEST_F(ChildProcessLifecycleTest, ATerminationRequestedBeforeSupervisionEndsTheChild) {
  ChildProcess child = launch("echo ready\nexec sleep 30\n");
  child.terminator()->requestTermination();
  ChildProcessOutcome outcome = child.supervise({});
  EXPECT_TRUE(outcome.terminated);
  EXPECT_EQ(outcome.terminationStatus, SIGTERM);
}

TEST_F(ChildProcessLifecycleTest, DestroyingAnUnsupervisedChildKillsItsGroupAndReapsIt) {
  auto fifo = testing::makeFifo(folder_ / "background.fifo");
  auto path = script("daemon.sh", "sleep 30 &\necho $! > \"$1\"\nwait\n");
  pid_t pid = 0;
  std::optional<pid_t> background;
  {
    ChildProcess child = ChildProcess::launch({path.string(), {fifo.string()}, std::nullopt, std::nullopt, nullptr});
    pid = child.pid();
    ChildProcess moved(std::move(child));
    background = testing::readPidFromFifo(fifo);
  }
  EXPECT_TRUE(waitForProcessEnd(pid));
  ASSERT_TRUE(background);
  EXPECT_TRUE(waitForProcessEnd(*background));
}

TEST_F(ChildProcessLifecycleTest, ADescendantKeepingThePipesOpenDoesNotHoldUpTheEnd) {
  // The background process inherits standard output and keeps it open for 30 s;
  // the child itself exits at once and is reported without waiting for it.
  auto start = Clock::now();
  {
    ChildProcess child = launch("sleep 30 &\necho $! > \"$1\"\necho bye\n");
    Collected result = superviseToEnd(child);
    EXPECT_EQ(result.stdout, "bye\n");
    EXPECT_EQ(result.outcome.terminationStatus, 0);
  }
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  auto background = testing::readPid(pidFile_);
  ASSERT_TRUE(background);
  ::kill(*background, SIGKILL);
  EXPECT_TRUE(waitForProcessEnd(*background));
}

TEST(CurrentProcessEnvironmentTest, ReadsVariablesOfThisProcess) {
  const testing::ScopedEnvironmentVariable variable("ORVID_CHILD_PROCESS_TEST", "a=b");
  EXPECT_EQ(currentProcessEnvironment().at("ORVID_CHILD_PROCESS_TEST"), "a=b");
}

}  // namespace
}  // namespace orvid
