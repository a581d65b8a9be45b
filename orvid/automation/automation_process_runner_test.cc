#include "orvid/automation/automation_process_runner.h"

#include <signal.h>

#include <future>

#include <gtest/gtest.h>

#include "orvid/automation/orvid_process_running.h"
#include "orvid/automation/process_test_support.h"
#include "orvid/automation/synchronous_process.h"
#include "orvid/platform/cancellation.h"
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {


namespace {

using testing::ChildProcessTest;
using testing::waitForProcessEnd;

class AutomationProcessRunnerTest : public ChildProcessTest {
 protected:
  AutomationProcessRunner runner_;
  std::filesystem::path wait_ = script("wait.sh", "echo ready\necho $$ > \"$1\"\nexec sleep 30\n");
  std::filesystem::path fifo_ = testing::makeFifo(folder_ / "started.fifo");
};

TEST_F(AutomationProcessRunnerTest, ReturnsTheExitCodeAndBothOutputsDecodedAsUTF8) {
  struct Case { std::string body; std::optional<ProcessEnvironment> environment; AutomationProcessOutput expected; };
  const std::string printValue = "printf '%s|%s' \"$ORVID_RUNNER_VALUE\" \"$1\"\n";
  const std::vector<Case> cases = {
      {"echo out; echo err >&2; exit 3\n", std::nullopt, {3, "out\n", "err\n", std::nullopt}},
      {"printf 'bad \\377 byte'; printf 'fine' >&2\n", std::nullopt, {0, "", "fine", std::nullopt}},
      {"cat; echo eof\n", std::nullopt, {0, "eof\n", "", std::nullopt}},  // standard input is empty
      {"kill -USR1 $$\n", std::nullopt, {SIGUSR1, "", "", std::nullopt}},
      {printValue, std::nullopt, {0, "inherited|arg", "", std::nullopt}},
      {printValue, ProcessEnvironment{{"ORVID_RUNNER_VALUE", "given"}}, {0, "given|arg", "", std::nullopt}},
  };
  const testing::ScopedEnvironmentVariable value("ORVID_RUNNER_VALUE", "inherited");
  for (std::size_t index = 0; index < cases.size(); ++index) {
    const Case& c = cases[index];
    auto path = script("case" + std::to_string(index) + ".sh", c.body);
    EXPECT_EQ(runner_.run(path.string(), {"arg"}, 60, c.environment), c.expected) << c.body;
  }
  EXPECT_EQ(runner_.run((folder_ / "no-such-tool").string(), {}, 5).exitCode, 127);
}

TEST_F(AutomationProcessRunnerTest, TheTimeLimitEndsTheRunWithCode124AndTheOutputSoFar) {
  auto slow = script("slow.sh", "echo working; echo warning >&2; exec sleep 30\n");
  UUID executionID = UUID::random();
  AutomationProcessOutput output = runner_.run(slow.string(), {}, 0, std::nullopt, {}, executionID);
  EXPECT_EQ(output, (AutomationProcessOutput{124, "working\n", "warning\n\nTimed out after 0 seconds.", std::nullopt}));
}

TEST_F(AutomationProcessRunnerTest, CancellingTheExecutionIdentifierOrStoppingTheCallerEndsTheRun) {
  for (bool useStop : {false, true}) {
    SCOPED_TRACE(useStop ? "stop" : "cancel");
    UUID executionID = UUID::random();
    std::stop_source stop;
    auto running = std::async(std::launch::async, [&] {
      return runner_.run(wait_.string(), {fifo_.string()}, std::nullopt, std::nullopt, {}, executionID, stop.get_token());
    });
    ASSERT_TRUE(testing::readPidFromFifo(fifo_));
    EXPECT_TRUE(useStop ? stop.request_stop() : AutomationProcessRunner::cancel(executionID));
    EXPECT_EQ(running.get(), (AutomationProcessOutput{SIGTERM, "ready\n", "", std::nullopt}));
  }
}

TEST_F(AutomationProcessRunnerTest, ARunRemovesOnlyItsOwnRegistryEntry) {
  UUID shared = UUID::random();
  std::stop_source stopFirst;
  auto start = [&](std::stop_token stop) {
    auto run = std::async(std::launch::async, [&, stop] {
      return runner_.run(wait_.string(), {fifo_.string()}, std::nullopt, std::nullopt, {}, shared, stop);
    });
    EXPECT_TRUE(testing::readPidFromFifo(fifo_));
    return run;
  };
  auto first = start(stopFirst.get_token());
  auto second = start({});
  EXPECT_TRUE(AutomationProcessRunner::cancel(shared));
  EXPECT_EQ(second.get().exitCode, SIGTERM);

  auto other = std::make_shared<ChildProcessTerminator>();
  AutomationProcessRunner::registerProcess(shared, other);
  stopFirst.request_stop();
  EXPECT_EQ(first.get().exitCode, SIGTERM);
  EXPECT_TRUE(AutomationProcessRunner::isRegistered(shared));
  AutomationProcessRunner::unregister(shared);
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
  for (const auto& report : reports) EXPECT_EQ(report.stdout.find("abcdef123"), std::string::npos) << report.stdout;
  EXPECT_EQ(reports.back().stdout, "step one\napi_key=[REDACTED] step two\n");
  EXPECT_EQ(reports.back().stderr, "Authorization: Bearer [REDACTED]\n");
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
}

class SynchronousProcessTest : public ChildProcessTest {};

TEST_F(SynchronousProcessTest, ReturnsStatusAndRawBytes127WhenItCannotLaunchAnd124AtTheTimeLimit) {
  auto path = script("bytes.sh", "printf 'a\\377b'; printf \"$V\" >&2; exit 4\n");
  EXPECT_EQ(runSynchronousProcess(path.string(), {}, {{"V", "value"}}, 5),
            (SynchronousProcessOutput{4, Bytes{'a', 0xff, 'b'}, bytesFromString("value")}));
  EXPECT_EQ(runSynchronousProcess((folder_ / "absent").string(), {}, {}, 5).exitCode, 127);
  auto slow = script("slow.sh", "echo before\nexec sleep 30\n");
  SynchronousProcessOutput output = runSynchronousProcess(slow.string(), {}, {}, 0);
  EXPECT_EQ(output.exitCode, 124);
  EXPECT_EQ(stringFromBytes(output.stdout), "before\n");
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
  auto running = std::async(std::launch::async, [&] { return runner_.run(path, {fifo.string()}, later.get_token()); });
  auto pid = testing::readPidFromFifo(fifo);
  later.request_stop();
  EXPECT_THROW(running.get(), CancellationError);
  ASSERT_TRUE(pid);
  EXPECT_TRUE(waitForProcessEnd(*pid));
}

}  // namespace
}  // namespace orvid
