#include "orvid/automation/child_process.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include "orvid/automation/process_test_support.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {
namespace {

using testing::ChildProcessTest;
using testing::makeFifo;
using testing::readPid;
using testing::readPidFromFifo;
using testing::waitForProcessEnd;
using testing::writeShellScript;
using Clock = std::chrono::steady_clock;

struct Collected {
  std::string stdout;
  std::string stderr;
  ChildProcessOutcome outcome;
};

Collected superviseToEnd(ChildProcess& child, ChildProcess::Supervision supervision = {}) {
  Collected collected;
  supervision.onOutput = [&](std::string_view chunk, bool toStdout) {
    (toStdout ? collected.stdout : collected.stderr).append(chunk);
  };
  collected.outcome = child.supervise(std::move(supervision));
  return collected;
}

class ChildProcessLifecycleTest : public ChildProcessTest {
 protected:
  TemporaryDirectory folder_{"orvid-child-process"};
};

TEST_F(ChildProcessLifecycleTest, PassesArgumentsEnvironmentAndInputAndReportsTheExitStatus) {
  auto script = writeShellScript(folder_.path(), "echo.sh",
                                 "printf '%s|' \"$@\"\n"
                                 "printf '%s' \"$GREETING\" >&2\n"
                                 "cat\n"
                                 "exit 7\n");
  ChildProcess child = ChildProcess::launch(
      {script.string(), {"one", "two words", ""}, ProcessEnvironment{{"GREETING", "hello=world"}}, "from stdin"});
  Collected result = superviseToEnd(child);
  EXPECT_EQ(result.stdout, "one|two words||from stdin");
  EXPECT_EQ(result.stderr, "hello=world");
  EXPECT_EQ(result.outcome.terminationStatus, 7);
  EXPECT_FALSE(result.outcome.endedBySignal);
  EXPECT_FALSE(result.outcome.terminated);
  EXPECT_FALSE(result.outcome.deadlinePassed);
}

TEST_F(ChildProcessLifecycleTest, WithoutInputTheChildReadsEndOfFile) {
  auto script = writeShellScript(folder_.path(), "read.sh", "cat; echo done\n");
  ChildProcess child = ChildProcess::launch({script.string(), {}, std::nullopt, std::nullopt});
  EXPECT_EQ(superviseToEnd(child).stdout, "done\n");
}

TEST_F(ChildProcessLifecycleTest, MovesMegabytesThroughAllThreePipesWithoutStalling) {
  // cat echoes its input while the script also floods standard error: every pipe
  // fills up many times over, so any stream left unread would stall the child.
  std::string input;
  for (int line = 0; input.size() < 3 * 1024 * 1024; ++line) input += "line " + std::to_string(line) + "\n";
  auto script = writeShellScript(folder_.path(), "flood.sh",
                                 "head -c 3000000 /dev/zero | tr '\\0' e >&2 &\n"
                                 "cat\n"
                                 "wait\n");
  ChildProcess child = ChildProcess::launch({script.string(), {}, std::nullopt, input});
  ChildProcess::Supervision supervision;
  supervision.deadline = Clock::now() + std::chrono::seconds(60);
  Collected result = superviseToEnd(child, std::move(supervision));
  EXPECT_FALSE(result.outcome.deadlinePassed);
  EXPECT_EQ(result.outcome.terminationStatus, 0);
  EXPECT_EQ(result.stdout.size(), input.size());
  EXPECT_TRUE(result.stdout == input);
  EXPECT_EQ(result.stderr, std::string(3000000, 'e'));
}

TEST_F(ChildProcessLifecycleTest, AChildThatClosesItsInputEarlyDoesNotHurtThisProcess) {
  auto script = writeShellScript(folder_.path(), "close.sh", "exec 0<&-\necho closed\nsleep 0.2\n");
  ChildProcess child = ChildProcess::launch({script.string(), {}, std::nullopt, std::string(4 * 1024 * 1024, 'x')});
  Collected result = superviseToEnd(child);
  EXPECT_EQ(result.stdout, "closed\n");
  EXPECT_EQ(result.outcome.terminationStatus, 0);
}

TEST_F(ChildProcessLifecycleTest, LaunchFailuresThrowWithTheReason) {
  auto notExecutable = folder_.path() / "plain.txt";
  writeShellScript(folder_.path(), "plain.txt", "echo never\n");
  std::filesystem::permissions(notExecutable, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  struct Case {
    std::string path;
    int errorNumber;
  };
  for (const Case& c : {Case{(folder_.path() / "missing-tool").string(), ENOENT},
                        Case{notExecutable.string(), EACCES}, Case{folder_.path().string(), EACCES}}) {
    try {
      ChildProcess::launch({c.path, {}, std::nullopt, std::nullopt});
      ADD_FAILURE() << c.path << " launched";
    } catch (const ProcessLaunchError& error) {
      EXPECT_EQ(error.errorNumber(), c.errorNumber) << c.path;
      EXPECT_EQ(error.path(), c.path);
      EXPECT_NE(std::string(error.what()).find("could not be launched"), std::string::npos) << error.what();
    }
  }
}

TEST_F(ChildProcessLifecycleTest, TheDeadlineEndsTheChildAndEveryProcessInItsGroup) {
  auto pidFile = folder_.path() / "background.pid";
  auto script = writeShellScript(folder_.path(), "hang.sh",
                                 "sleep 30 &\n"
                                 "echo $! > \"$1\"\n"
                                 "echo started\n"
                                 "wait\n");
  ChildProcess child = ChildProcess::launch({script.string(), {pidFile.string()}, std::nullopt, std::nullopt});
  int deadlineCalls = 0;
  ChildProcess::Supervision supervision;
  auto start = Clock::now();
  supervision.deadline = start + std::chrono::milliseconds(500);
  supervision.onDeadline = [&] { ++deadlineCalls; };
  Collected result = superviseToEnd(child, std::move(supervision));
  EXPECT_EQ(deadlineCalls, 1);
  EXPECT_TRUE(result.outcome.deadlinePassed);
  EXPECT_TRUE(result.outcome.terminated);
  EXPECT_TRUE(result.outcome.endedBySignal);
  EXPECT_EQ(result.outcome.terminationStatus, SIGTERM);
  EXPECT_EQ(result.stdout, "started\n");
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  auto background = readPid(pidFile);
  ASSERT_TRUE(background);
  EXPECT_TRUE(waitForProcessEnd(*background));
}

TEST_F(ChildProcessLifecycleTest, AChildIgnoringTheTerminateSignalIsKilledAfterTheGracePeriod) {
  auto script = writeShellScript(folder_.path(), "stubborn.sh",
                                 "trap '' TERM\n"
                                 "sleep 30 &\n"
                                 "echo $! > \"$1\"\n"
                                 "echo ready\n"
                                 "wait\n");
  auto pidFile = folder_.path() / "background.pid";
  ChildProcess child = ChildProcess::launch({script.string(), {pidFile.string()}, std::nullopt, std::nullopt});
  ChildProcess::Supervision supervision;
  supervision.onOutput = [&](std::string_view chunk, bool) {
    if (chunk.find("ready") != std::string_view::npos) child.terminator()->requestTermination();
  };
  auto start = Clock::now();
  ChildProcessOutcome outcome = child.supervise(std::move(supervision));
  auto elapsed = Clock::now() - start;
  EXPECT_TRUE(outcome.terminated);
  EXPECT_FALSE(outcome.deadlinePassed);
  EXPECT_TRUE(outcome.endedBySignal);
  EXPECT_EQ(outcome.terminationStatus, SIGKILL);
  EXPECT_GE(elapsed, ChildProcess::terminationGracePeriod);
  EXPECT_LT(elapsed, std::chrono::seconds(5));
  auto background = readPid(pidFile);
  ASSERT_TRUE(background);
  EXPECT_TRUE(waitForProcessEnd(*background));
}

TEST_F(ChildProcessLifecycleTest, ATerminationRequestFromAnotherThreadOrAStopEndsTheChild) {
  auto script = writeShellScript(folder_.path(), "wait.sh", "echo ready\nexec sleep 30\n");
  for (bool useStop : {false, true}) {
    ChildProcess child = ChildProcess::launch({script.string(), {}, std::nullopt, std::nullopt});
    std::stop_source stopSource;
    std::jthread requester;
    ChildProcess::Supervision supervision;
    supervision.stop = stopSource.get_token();
    supervision.onOutput = [&](std::string_view, bool) {
      requester = std::jthread([&, terminator = child.terminator()] {
        if (useStop) {
          stopSource.request_stop();
        } else {
          terminator->requestTermination();
        }
      });
    };
    ChildProcessOutcome outcome = child.supervise(std::move(supervision));
    EXPECT_TRUE(outcome.terminated) << useStop;
    EXPECT_EQ(outcome.terminationStatus, SIGTERM) << useStop;
    EXPECT_TRUE(child.terminator()->terminationRequested());
  }
}

TEST_F(ChildProcessLifecycleTest, ATerminationRequestedBeforeSupervisionStillEndsTheChild) {
  auto script = writeShellScript(folder_.path(), "sleep.sh", "exec sleep 30\n");
  ChildProcess child = ChildProcess::launch({script.string(), {}, std::nullopt, std::nullopt});
  child.terminator()->requestTermination();
  ChildProcessOutcome outcome = child.supervise({});
  EXPECT_TRUE(outcome.terminated);
  EXPECT_EQ(outcome.terminationStatus, SIGTERM);
}

TEST_F(ChildProcessLifecycleTest, DestroyingAnUnsupervisedChildKillsItsGroupAndReapsIt) {
  auto fifo = makeFifo(folder_.path() / "background.fifo");
  auto script = writeShellScript(folder_.path(), "daemon.sh", "sleep 30 &\necho $! > \"$1\"\nwait\n");
  pid_t pid = 0;
  std::optional<pid_t> background;
  {
    ChildProcess child = ChildProcess::launch({script.string(), {fifo.string()}, std::nullopt, std::nullopt});
    pid = child.pid();
    ChildProcess moved(std::move(child));
    EXPECT_EQ(moved.pid(), pid);
    background = readPidFromFifo(fifo);
  }
  EXPECT_TRUE(waitForProcessEnd(pid));
  ASSERT_TRUE(background);
  EXPECT_TRUE(waitForProcessEnd(*background));
}

TEST_F(ChildProcessLifecycleTest, ADescendantKeepingThePipesOpenDoesNotHoldUpTheEnd) {
  // The background process inherits standard output and keeps it open for 30 s;
  // the child itself exits at once and is reported without waiting for it.
  auto pidFile = folder_.path() / "background.pid";
  auto script = writeShellScript(folder_.path(), "leave.sh", "sleep 30 &\necho $! > \"$1\"\necho bye\n");
  auto start = Clock::now();
  {
    ChildProcess child = ChildProcess::launch({script.string(), {pidFile.string()}, std::nullopt, std::nullopt});
    Collected result = superviseToEnd(child);
    EXPECT_EQ(result.stdout, "bye\n");
    EXPECT_EQ(result.outcome.terminationStatus, 0);
  }
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  auto background = readPid(pidFile);
  ASSERT_TRUE(background);
  ::kill(*background, SIGKILL);
  EXPECT_TRUE(waitForProcessEnd(*background));
}

TEST(CurrentProcessEnvironmentTest, ReadsVariablesOfThisProcess) {
  {
    const testing::ScopedEnvironmentVariable variable("ORVID_CHILD_PROCESS_TEST", "a=b");
    EXPECT_EQ(currentProcessEnvironment().at("ORVID_CHILD_PROCESS_TEST"), "a=b");
  }
  EXPECT_FALSE(currentProcessEnvironment().contains("ORVID_CHILD_PROCESS_TEST"));
}

}  // namespace
}  // namespace orvid
