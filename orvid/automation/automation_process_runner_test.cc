#include "orvid/automation/automation_process_runner.h"

#include <signal.h>

#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/automation/orvid_process_running.h"
#include "orvid/automation/process_test_support.h"
#include "orvid/automation/synchronous_process.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {

void PrintTo(const AutomationProcessOutput& output, std::ostream* stream) {
  *stream << "{exitCode " << output.exitCode << ", stdout " << ::testing::PrintToString(output.stdout) << ", stderr "
          << ::testing::PrintToString(output.stderr) << "}";
}

namespace {

using testing::ChildProcessTest;
using testing::readPid;
using testing::waitForProcessEnd;
using testing::writeShellScript;
using Clock = std::chrono::steady_clock;

class AutomationProcessRunnerTest : public ChildProcessTest {
 protected:
  TemporaryDirectory folder_{"orvid-process-runner"};
  AutomationProcessRunner runner_;
};

TEST_F(AutomationProcessRunnerTest, ReturnsTheExitCodeAndBothOutputs) {
  struct Case {
    std::string body;
    AutomationProcessOutput expected;
  };
  const std::vector<Case> cases = {
      {"echo out; echo err >&2\n", {0, "out\n", "err\n", std::nullopt}},
      {"printf 'partial'; exit 3\n", {3, "partial", "", std::nullopt}},
      {"printf 'gr\\303\\274n\\n'\n", {0, "gr\xc3\xbcn\n", "", std::nullopt}},
      {"printf 'bad \\377 byte'; printf 'fine' >&2\n", {0, "", "fine", std::nullopt}},
      {"cat; echo eof\n", {0, "eof\n", "", std::nullopt}},
      {"kill -USR1 $$\n", {SIGUSR1, "", "", std::nullopt}},
  };
  for (std::size_t index = 0; index < cases.size(); ++index) {
    auto script = writeShellScript(folder_.path(), "case" + std::to_string(index) + ".sh", cases[index].body);
    EXPECT_EQ(runner_.run(script.string(), {}), cases[index].expected) << cases[index].body;
  }
}

TEST_F(AutomationProcessRunnerTest, UsesTheGivenEnvironmentOrInheritsThisOne) {
  auto script = writeShellScript(folder_.path(), "env.sh", "printf '%s|%s' \"$ORVID_RUNNER_VALUE\" \"$1\"\n");
  const testing::ScopedEnvironmentVariable value("ORVID_RUNNER_VALUE", "inherited");
  EXPECT_EQ(runner_.run(script.string(), {"arg"}).stdout, "inherited|arg");
  EXPECT_EQ(runner_.run(script.string(), {"arg"}, std::nullopt, ProcessEnvironment{{"ORVID_RUNNER_VALUE", "given"}})
                .stdout,
            "given|arg");
}

TEST_F(AutomationProcessRunnerTest, AProgramThatCannotBeLaunchedGivesExitCode127) {
  auto missing = folder_.path() / "no-such-tool";
  AutomationProcessOutput output = runner_.run(missing.string(), {}, 5, std::nullopt, {}, UUID::random());
  EXPECT_EQ(output.exitCode, 127);
  EXPECT_EQ(output.stdout, "");
  EXPECT_NE(output.stderr.find("no-such-tool"), std::string::npos) << output.stderr;
  EXPECT_NE(output.stderr.find("No such file or directory"), std::string::npos) << output.stderr;
}

TEST_F(AutomationProcessRunnerTest, LargeOutputOnBothStreamsArrivesWhole) {
  auto script = writeShellScript(folder_.path(), "big.sh",
                                 "head -c 2000000 /dev/zero | tr '\\0' o\n"
                                 "head -c 2000000 /dev/zero | tr '\\0' e >&2\n"
                                 "head -c 2000000 /dev/zero | tr '\\0' o\n");
  AutomationProcessOutput output = runner_.run(script.string(), {}, 60);
  EXPECT_EQ(output.exitCode, 0);
  EXPECT_EQ(output.stdout, std::string(4000000, 'o'));
  EXPECT_EQ(output.stderr, std::string(2000000, 'e'));
}

TEST_F(AutomationProcessRunnerTest, TheTimeLimitEndsTheRunWithCode124AndTheOutputSoFar) {
  struct Case {
    std::string body;
    int timeoutSeconds;
    std::string expectedStdout;
    std::string expectedStderr;
  };
  const std::vector<Case> cases = {
      {"echo working; echo warning >&2; sleep 30 & echo $! > \"$1\"; wait\n", 0, "working\n",
       "warning\n\nTimed out after 0 seconds."},
      {"sleep 30 & echo $! > \"$1\"; wait\n", -5, "", "Timed out after -5 seconds."},
      {"echo ok; sleep 30 & echo $! > \"$1\"; wait\n", 1, "ok\n", "Timed out after 1 seconds."},
  };
  for (std::size_t index = 0; index < cases.size(); ++index) {
    const Case& c = cases[index];
    auto script = writeShellScript(folder_.path(), "slow" + std::to_string(index) + ".sh", c.body);
    auto pidFile = folder_.path() / ("background" + std::to_string(index) + ".pid");
    UUID executionID = UUID::random();
    auto start = Clock::now();
    AutomationProcessOutput output =
        runner_.run(script.string(), {pidFile.string()}, c.timeoutSeconds, std::nullopt, {}, executionID);
    auto elapsed = Clock::now() - start;
    EXPECT_EQ(output, (AutomationProcessOutput{124, c.expectedStdout, c.expectedStderr, std::nullopt})) << c.body;
    // Limited to one second at least, and ended well before the script would have.
    EXPECT_GE(elapsed, std::chrono::seconds(1));
    EXPECT_LT(elapsed, std::chrono::seconds(5));
    EXPECT_FALSE(AutomationProcessRunner::isRegistered(executionID));
    auto background = readPid(pidFile);
    ASSERT_TRUE(background) << c.body;
    EXPECT_TRUE(waitForProcessEnd(*background)) << "the time limit left a process of the group running";
  }
}

// Runs `script` on a thread; `waitUntilStarted` returns once it has printed something.
class RunInBackground {
 public:
  RunInBackground(const AutomationProcessRunner& runner, std::string script, UUID executionID) {
    auto started = std::make_shared<std::promise<void>>();
    startedFuture_ = started->get_future();
    auto once = std::make_shared<std::once_flag>();
    thread_ = std::jthread([&runner, script = std::move(script), executionID, started, once, this,
                            stop = stop_.get_token()] {
      output_ = runner.run(
          script, {}, std::nullopt, std::nullopt,
          [started, once](const std::string&, const std::string&) {
            std::call_once(*once, [&] { started->set_value(); });
          },
          executionID, stop);
    });
  }
  ~RunInBackground() { stop_.request_stop(); }

  bool waitUntilStarted() { return startedFuture_.wait_for(std::chrono::seconds(10)) == std::future_status::ready; }
  void stop() { stop_.request_stop(); }
  AutomationProcessOutput finish() {
    thread_.join();
    return output_;
  }

 private:
  std::stop_source stop_;
  std::future<void> startedFuture_;
  AutomationProcessOutput output_;
  std::jthread thread_;
};

TEST_F(AutomationProcessRunnerTest, CancellingTheExecutionIdentifierEndsTheRun) {
  auto script = writeShellScript(folder_.path(), "wait.sh", "echo ready\nexec sleep 30\n");
  UUID executionID = UUID::random();
  auto start = Clock::now();
  RunInBackground run(runner_, script.string(), executionID);
  ASSERT_TRUE(run.waitUntilStarted());
  EXPECT_TRUE(AutomationProcessRunner::isRegistered(executionID));
  EXPECT_TRUE(AutomationProcessRunner::cancel(executionID));
  EXPECT_FALSE(AutomationProcessRunner::isRegistered(executionID));
  AutomationProcessOutput output = run.finish();
  EXPECT_EQ(output, (AutomationProcessOutput{SIGTERM, "ready\n", "", std::nullopt}));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  EXPECT_FALSE(AutomationProcessRunner::cancel(executionID));
}

TEST_F(AutomationProcessRunnerTest, StoppingTheCallerEndsTheRun) {
  auto script = writeShellScript(folder_.path(), "wait.sh", "echo ready\nexec sleep 30\n");
  auto start = Clock::now();
  RunInBackground run(runner_, script.string(), UUID::random());
  ASSERT_TRUE(run.waitUntilStarted());
  run.stop();
  EXPECT_EQ(run.finish().exitCode, SIGTERM);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST_F(AutomationProcessRunnerTest, CancellingAnUnknownIdentifierDoesNothing) {
  auto script = writeShellScript(folder_.path(), "quick.sh", "echo done\n");
  UUID running = UUID::random();
  EXPECT_FALSE(AutomationProcessRunner::cancel(UUID::random()));
  EXPECT_EQ(runner_.run(script.string(), {}, std::nullopt, std::nullopt, {}, running).stdout, "done\n");
  EXPECT_FALSE(AutomationProcessRunner::isRegistered(running));
}

TEST_F(AutomationProcessRunnerTest, ASecondRunUnderTheSameIdentifierReplacesTheFirstEntry) {
  auto script = writeShellScript(folder_.path(), "wait.sh", "echo ready\nexec sleep 30\n");
  UUID shared = UUID::random();
  RunInBackground first(runner_, script.string(), shared);
  ASSERT_TRUE(first.waitUntilStarted());
  RunInBackground second(runner_, script.string(), shared);
  ASSERT_TRUE(second.waitUntilStarted());
  EXPECT_TRUE(AutomationProcessRunner::cancel(shared));
  EXPECT_EQ(second.finish().exitCode, SIGTERM);
  EXPECT_FALSE(AutomationProcessRunner::cancel(shared));

  // An entry registered by someone else under the identifier outlives the end of
  // the first run: a run removes only its own entry.
  auto other = std::make_shared<ChildProcessTerminator>();
  AutomationProcessRunner::registerProcess(shared, other);
  first.stop();
  EXPECT_EQ(first.finish().exitCode, SIGTERM);
  EXPECT_TRUE(AutomationProcessRunner::isRegistered(shared));
  EXPECT_FALSE(other->terminationRequested());
  AutomationProcessRunner::unregister(shared);
  EXPECT_FALSE(AutomationProcessRunner::isRegistered(shared));
}

TEST_F(AutomationProcessRunnerTest, ProgressReportsTheWholeOutputSoFarWithSecretsRedacted) {
  auto script = writeShellScript(folder_.path(), "secret.sh",
                                 "echo 'step one'\n"
                                 "echo 'Authorization: Bearer sk-live-123456' >&2\n"
                                 "echo 'api_key=abcdef123 step two'\n");
  UUID executionID = UUID::random();
  std::vector<AutomationExecutionProgress> reports;
  auto progress = processProgressHandler(executionID, AIAutomationMethod::script,
                                         [&](const AutomationExecutionProgress& report) { reports.push_back(report); });
  ASSERT_TRUE(progress);
  AutomationProcessOutput output = runner_.run(script.string(), {}, 10, std::nullopt, progress, executionID);
  EXPECT_EQ(output.exitCode, 0);
  ASSERT_FALSE(reports.empty());
  for (std::size_t index = 0; index < reports.size(); ++index) {
    const auto& report = reports[index];
    EXPECT_EQ(report.executionID, executionID);
    EXPECT_EQ(report.method, AIAutomationMethod::script);
    EXPECT_EQ(report.stdout.find("abcdef123"), std::string::npos) << report.stdout;
    EXPECT_EQ(report.stderr.find("sk-live-123456"), std::string::npos) << report.stderr;
    EXPECT_EQ(report.stdout.rfind("step one\n", 0), 0u) << "not the whole output so far: " << report.stdout;
    if (index > 0) {
      EXPECT_GE(report.stdout.size() + report.stderr.size(),
                reports[index - 1].stdout.size() + reports[index - 1].stderr.size());
    }
  }
  EXPECT_EQ(reports.back().stdout, "step one\napi_key=[REDACTED] step two\n");
  EXPECT_EQ(reports.back().stderr, "Authorization: Bearer [REDACTED]\n");
  EXPECT_FALSE(processProgressHandler(executionID, AIAutomationMethod::script, {}));
}

TEST(AutomationProcessOutputBufferTest, JoinsCharactersSplitAcrossChunksAndDropsMalformedChunks) {
  std::vector<std::pair<std::string, std::string>> calls;
  AutomationProcessOutputBuffer buffer([&](const std::string& out, const std::string& err) { calls.emplace_back(out, err); });
  buffer.append("", true);
  buffer.append("gr\xc3", true);
  buffer.append("\xbc", true);
  buffer.append("\xff\xfe", false);
  buffer.append("\xe2\x82", false);
  buffer.append("\xac!", false);
  EXPECT_EQ(buffer.snapshot(), std::make_pair(std::string("gr\xc3\xbc"), std::string("\xe2\x82\xac!")));
  std::vector<std::pair<std::string, std::string>> expected = {
      {"gr", ""}, {"gr\xc3\xbc", ""}, {"gr\xc3\xbc", "\xe2\x82\xac!"}};
  EXPECT_EQ(calls, expected);
}

class SynchronousProcessTest : public ChildProcessTest {
 protected:
  TemporaryDirectory folder_{"orvid-sync-process"};
};

TEST_F(SynchronousProcessTest, ReturnsStatusAndRawBytes) {
  auto script = writeShellScript(folder_.path(), "bytes.sh", "printf 'a\\377b'; printf \"$V\" >&2; exit 4\n");
  SynchronousProcessOutput output = runSynchronousProcess(script.string(), {}, {{"V", "value"}}, 5);
  EXPECT_EQ(output.exitCode, 4);
  EXPECT_EQ(output.stdout, (Bytes{'a', 0xff, 'b'}));
  EXPECT_EQ(stringFromBytes(output.stderr), "value");
}

TEST_F(SynchronousProcessTest, LaunchFailureGives127AndTheReasonAsStandardError) {
  SynchronousProcessOutput output = runSynchronousProcess((folder_.path() / "absent").string(), {}, {}, 5);
  EXPECT_EQ(output.exitCode, 127);
  EXPECT_TRUE(output.stdout.empty());
  EXPECT_NE(stringFromBytes(output.stderr).find("No such file or directory"), std::string::npos);
}

TEST_F(SynchronousProcessTest, TheTimeLimitEndsTheProcessWithCode124AndKeepsItsOutput) {
  auto pidFile = folder_.path() / "background.pid";
  auto script = writeShellScript(folder_.path(), "slow.sh", "echo before\nsleep 30 &\necho $! > \"$1\"\nwait\n");
  auto start = Clock::now();
  SynchronousProcessOutput output = runSynchronousProcess(script.string(), {pidFile.string()}, {}, 0);
  EXPECT_EQ(output.exitCode, 124);
  EXPECT_EQ(stringFromBytes(output.stdout), "before\n");
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  auto background = readPid(pidFile);
  ASSERT_TRUE(background);
  EXPECT_TRUE(waitForProcessEnd(*background));
}

class OrvidProcessRunningTest : public ChildProcessTest {
 protected:
  TemporaryDirectory folder_{"orvid-process-running"};
  FoundationOrvidProcessRunner runner_;
};

TEST_F(OrvidProcessRunningTest, RunsToTheEndAndDecodesTheOutput) {
  auto script = writeShellScript(folder_.path(), "tool.sh", "echo \"$1\"; printf '\\377' >&2; exit 2\n");
  OrvidProcessRunning& running = runner_;
  EXPECT_EQ(running.run(script, {"--model x"}), (OrvidProcessResult{2, "--model x\n", ""}));
}

TEST_F(OrvidProcessRunningTest, ALaunchFailureIsThrown) {
  EXPECT_THROW(runner_.run(folder_.path() / "whisper-cli", {}), ProcessLaunchError);
}

TEST_F(OrvidProcessRunningTest, StoppingTerminatesTheProgramAndThrowsCancellation) {
  auto fifo = testing::makeFifo(folder_.path() / "started.fifo");
  auto script = writeShellScript(folder_.path(), "slow.sh", "echo $$ > \"$1\"\nexec sleep 30\n");
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(runner_.run(script, {fifo.string()}, stopped.get_token()), CancellationError);

  std::stop_source later;
  auto started = Clock::now();
  auto running = std::async(std::launch::async, [&] { return runner_.run(script, {fifo.string()}, later.get_token()); });
  auto pid = testing::readPidFromFifo(fifo);
  EXPECT_TRUE(pid);
  later.request_stop();
  EXPECT_THROW(running.get(), CancellationError);
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(5));
  if (pid) {
    EXPECT_TRUE(waitForProcessEnd(*pid));
  }
}

}  // namespace
}  // namespace orvid
