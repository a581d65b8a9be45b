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
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {

void PrintTo(const AutomationProcessOutput& output, std::ostream* stream) {
  *stream << "{exitCode " << output.exitCode << ", stdout " << ::testing::PrintToString(output.stdout) << ", stderr "
          << ::testing::PrintToString(output.stderr) << "}";
}

namespace {

using testing::ChildProcessTest;
using testing::waitForProcessEnd;
using Clock = std::chrono::steady_clock;

class AutomationProcessRunnerTest : public ChildProcessTest {
 protected:
  AutomationProcessRunner runner_;
};

TEST_F(AutomationProcessRunnerTest, ReturnsTheExitCodeAndBothOutputsDecodedAsUTF8) {
  struct Case {
    std::string body;
    std::optional<ProcessEnvironment> environment;
    AutomationProcessOutput expected;
  };
  const std::vector<Case> cases = {
      {"echo out; echo err >&2\n", std::nullopt, {0, "out\n", "err\n", std::nullopt}},
      {"printf 'partial'; exit 3\n", std::nullopt, {3, "partial", "", std::nullopt}},
      {"printf 'gr\\303\\274n\\n'\n", std::nullopt, {0, "gr\xc3\xbcn\n", "", std::nullopt}},
      {"printf 'bad \\377 byte'; printf 'fine' >&2\n", std::nullopt, {0, "", "fine", std::nullopt}},
      {"cat; echo eof\n", std::nullopt, {0, "eof\n", "", std::nullopt}},  // standard input is empty
      {"kill -USR1 $$\n", std::nullopt, {SIGUSR1, "", "", std::nullopt}},
      {"printf '%s|%s' \"$ORVID_RUNNER_VALUE\" \"$1\"\n", std::nullopt, {0, "inherited|arg", "", std::nullopt}},
      {"printf '%s|%s' \"$ORVID_RUNNER_VALUE\" \"$1\"\n", ProcessEnvironment{{"ORVID_RUNNER_VALUE", "given"}},
       {0, "given|arg", "", std::nullopt}},
  };
  const testing::ScopedEnvironmentVariable value("ORVID_RUNNER_VALUE", "inherited");
  for (std::size_t index = 0; index < cases.size(); ++index) {
    const Case& c = cases[index];
    auto path = script("case" + std::to_string(index) + ".sh", c.body);
    UUID executionID = UUID::random();
    EXPECT_EQ(runner_.run(path.string(), {"arg"}, 60, c.environment, {}, executionID), c.expected) << c.body;
    EXPECT_FALSE(AutomationProcessRunner::isRegistered(executionID));
  }
}

TEST_F(AutomationProcessRunnerTest, AProgramThatCannotBeLaunchedGivesExitCode127) {
  AutomationProcessOutput output = runner_.run((folder_ / "no-such-tool").string(), {}, 5);
  EXPECT_EQ(output.exitCode, 127);
  EXPECT_EQ(output.stdout, "");
  EXPECT_NE(output.stderr.find("no-such-tool"), std::string::npos) << output.stderr;
  EXPECT_NE(output.stderr.find("No such file or directory"), std::string::npos) << output.stderr;
}

TEST_F(AutomationProcessRunnerTest, TheTimeLimitEndsTheRunWithCode124AndTheOutputSoFar) {
  auto pidFile = folder_ / "background.pid";
  auto slow = script("slow.sh", "echo working; echo warning >&2; sleep 30 & echo $! > \"$1\"; wait\n");
  UUID executionID = UUID::random();
  auto start = Clock::now();
  AutomationProcessOutput output = runner_.run(slow.string(), {pidFile.string()}, 0, std::nullopt, {}, executionID);
  auto elapsed = Clock::now() - start;
  // The message names the limit as given; the run had one second at least.
  EXPECT_EQ(output, (AutomationProcessOutput{124, "working\n", "warning\n\nTimed out after 0 seconds.", std::nullopt}));
  EXPECT_GE(elapsed, std::chrono::seconds(1));
  EXPECT_LT(elapsed, std::chrono::seconds(5));
  EXPECT_FALSE(AutomationProcessRunner::isRegistered(executionID));
  expectEnded(pidFile);  // the whole group was ended
}

// Runs a script that prints "ready" and waits, on a thread; `started` is set once it printed.
class RunInBackground {
 public:
  RunInBackground(const AutomationProcessRunner& runner, const std::filesystem::path& script, UUID executionID) {
    thread_ = std::jthread([&runner, script, executionID, this, stop = stop_.get_token()] {
      output_ = runner.run(
          script, {}, std::nullopt, std::nullopt,
          [this](const std::string&, const std::string&) { std::call_once(once_, [this] { started_.set_value(); }); },
          executionID, stop);
    });
  }
  ~RunInBackground() { stop_.request_stop(); }

  bool waitUntilStarted() {
    return started_.get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  }
  void stop() { stop_.request_stop(); }
  AutomationProcessOutput finish() {
    thread_.join();
    return output_;
  }

 private:
  std::stop_source stop_;
  std::once_flag once_;
  std::promise<void> started_;
  AutomationProcessOutput output_;
  std::jthread thread_;
};

TEST_F(AutomationProcessRunnerTest, CancellingTheExecutionIdentifierOrStoppingTheCallerEndsTheRun) {
  auto wait = script("wait.sh", "echo ready\nexec sleep 30\n");
  EXPECT_FALSE(AutomationProcessRunner::cancel(UUID::random()));
  for (bool useStop : {false, true}) {
    SCOPED_TRACE(useStop ? "stop" : "cancel");
    UUID executionID = UUID::random();
    auto start = Clock::now();
    RunInBackground run(runner_, wait, executionID);
    ASSERT_TRUE(run.waitUntilStarted());
    EXPECT_TRUE(AutomationProcessRunner::isRegistered(executionID));
    if (useStop) {
      run.stop();
    } else {
      EXPECT_TRUE(AutomationProcessRunner::cancel(executionID));
    }
    EXPECT_EQ(run.finish(), (AutomationProcessOutput{SIGTERM, "ready\n", "", std::nullopt}));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
    EXPECT_FALSE(AutomationProcessRunner::cancel(executionID));
  }
}

TEST_F(AutomationProcessRunnerTest, ARunRemovesOnlyItsOwnRegistryEntry) {
  auto wait = script("wait.sh", "echo ready\nexec sleep 30\n");
  UUID shared = UUID::random();
  RunInBackground first(runner_, wait, shared);
  ASSERT_TRUE(first.waitUntilStarted());
  RunInBackground second(runner_, wait, shared);
  ASSERT_TRUE(second.waitUntilStarted());
  // The second run replaced the first one's entry.
  EXPECT_TRUE(AutomationProcessRunner::cancel(shared));
  EXPECT_EQ(second.finish().exitCode, SIGTERM);
  EXPECT_FALSE(AutomationProcessRunner::cancel(shared));

  // An entry registered by someone else outlives the end of the first run.
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
  auto path = script("secret.sh",
                     "echo 'step one'\n"
                     "echo 'Authorization: Bearer sk-live-123456' >&2\n"
                     "echo 'api_key=abcdef123 step two'\n");
  UUID executionID = UUID::random();
  std::vector<AutomationExecutionProgress> reports;
  auto progress = processProgressHandler(executionID, AIAutomationMethod::script,
                                         [&](const AutomationExecutionProgress& report) { reports.push_back(report); });
  EXPECT_EQ(runner_.run(path.string(), {}, 10, std::nullopt, progress, executionID).exitCode, 0);
  ASSERT_FALSE(reports.empty());
  for (const auto& report : reports) {
    EXPECT_EQ(report.executionID, executionID);
    EXPECT_EQ(report.method, AIAutomationMethod::script);
    EXPECT_EQ(report.stdout.find("abcdef123"), std::string::npos) << report.stdout;
    EXPECT_EQ(report.stderr.find("sk-live-123456"), std::string::npos) << report.stderr;
    EXPECT_EQ(report.stdout.rfind("step one\n", 0), 0u) << "not the whole output so far: " << report.stdout;
  }
  EXPECT_EQ(reports.back().stdout, "step one\napi_key=[REDACTED] step two\n");
  EXPECT_EQ(reports.back().stderr, "Authorization: Bearer [REDACTED]\n");
  EXPECT_FALSE(processProgressHandler(executionID, AIAutomationMethod::script, {}));
}

TEST(AutomationProcessOutputBufferTest, JoinsCharactersSplitAcrossChunksAndDropsMalformedChunks) {
  std::vector<std::pair<std::string, std::string>> calls;
  AutomationProcessOutputBuffer buffer(
      [&](const std::string& out, const std::string& err) { calls.emplace_back(out, err); });
  const std::vector<std::pair<std::string, bool>> chunks = {
      {"", true}, {"gr\xc3", true}, {"\xbc", true}, {"\xff\xfe", false}, {"\xe2\x82", false}, {"\xac!", false}};
  for (const auto& [chunk, toStdout] : chunks) buffer.append(chunk, toStdout);
  EXPECT_EQ(calls, (std::vector<std::pair<std::string, std::string>>{
                       {"gr", ""}, {"gr\xc3\xbc", ""}, {"gr\xc3\xbc", "\xe2\x82\xac!"}}));
  EXPECT_EQ(buffer.snapshot(), calls.back());
}

class SynchronousProcessTest : public ChildProcessTest {};

TEST_F(SynchronousProcessTest, ReturnsStatusAndRawBytes127WhenItCannotLaunchAnd124AtTheTimeLimit) {
  auto path = script("bytes.sh", "printf 'a\\377b'; printf \"$V\" >&2; exit 4\n");
  EXPECT_EQ(runSynchronousProcess(path.string(), {}, {{"V", "value"}}, 5),
            (SynchronousProcessOutput{4, Bytes{'a', 0xff, 'b'}, bytesFromString("value")}));
  SynchronousProcessOutput output = runSynchronousProcess((folder_ / "absent").string(), {}, {}, 5);
  EXPECT_EQ(output.exitCode, 127);
  EXPECT_TRUE(output.stdout.empty());
  EXPECT_NE(stringFromBytes(output.stderr).find("No such file or directory"), std::string::npos);

  auto pidFile = folder_ / "background.pid";
  auto slow = script("slow.sh", "echo before\nsleep 30 &\necho $! > \"$1\"\nwait\n");
  auto start = Clock::now();
  output = runSynchronousProcess(slow.string(), {pidFile.string()}, {}, 0);
  EXPECT_EQ(output.exitCode, 124);
  EXPECT_EQ(stringFromBytes(output.stdout), "before\n");
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  expectEnded(pidFile);
}

class OrvidProcessRunningTest : public ChildProcessTest {
 protected:
  PosixSpawnOrvidProcessRunner runner_;
};

TEST_F(OrvidProcessRunningTest, RunsToTheEndAndDecodesTheOutputOrThrowsWhenItCannotLaunch) {
  auto path = script("tool.sh", "echo \"$1\"; printf '\\377' >&2; exit 2\n");
  EXPECT_EQ(runner_.run(path, {"--model x"}), (OrvidProcessResult{2, "--model x\n", ""}));
  EXPECT_THROW(runner_.run(folder_ / "whisper-cli", {}), ProcessLaunchError);
}

TEST_F(OrvidProcessRunningTest, StoppingTerminatesTheProgramAndThrowsCancellation) {
  auto fifo = testing::makeFifo(folder_ / "started.fifo");
  auto path = script("slow.sh", "echo $$ > \"$1\"\nexec sleep 30\n");
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(runner_.run(path, {fifo.string()}, stopped.get_token()), CancellationError);

  std::stop_source later;
  auto start = Clock::now();
  auto running = std::async(std::launch::async, [&] { return runner_.run(path, {fifo.string()}, later.get_token()); });
  auto pid = testing::readPidFromFifo(fifo);
  later.request_stop();
  EXPECT_THROW(running.get(), CancellationError);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  ASSERT_TRUE(pid);
  EXPECT_TRUE(waitForProcessEnd(*pid));
}

}  // namespace
}  // namespace orvid
