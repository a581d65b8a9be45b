#include "orvid/automation/process_cua_driver_client.h"

#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/automation/process_test_support.h"
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {

inline void PrintTo(const CUADriverStatus& status, std::ostream* stream) { *stream << nlohmann::json(status).dump(); }
void PrintTo(const CUAExecutionResult& result, std::ostream* stream) { *stream << nlohmann::json(result).dump(); }

namespace {

using testing::readFile;
using testing::readPidFromFifo;
using testing::waitForProcessEnd;
using Clock = std::chrono::steady_clock;

const std::chrono::system_clock::time_point kCheckTime{std::chrono::seconds(1750000000)};

// A stand-in for the real tool, steered by files beside it: "<command>.out"/".err" for
// "--version" ("version"), "doctor --json" ("doctor") and "status"; "run.mode" for "run --json".
constexpr const char* kFakeDriver = R"(#!/usr/bin/python3
import json, os, signal, subprocess, sys, time
here = os.path.dirname(os.path.abspath(__file__))
def setting(name, default=None):
    path = os.path.join(here, name)
    return open(path).read() if os.path.exists(path) else default
def write(name, text, mode="w"):
    open(os.path.join(here, name), mode).write(text)
def hang():
    write("driver.pid", str(os.getpid()))
    write("grandchild.pid", str(subprocess.Popen(["sleep", "60"]).pid))
    if os.path.exists(os.path.join(here, "started.fifo")):
        write("started.fifo", str(os.getpid()))
    time.sleep(60)
command = {"--version": "version", "doctor --json": "doctor", "status": "status"}.get(" ".join(sys.argv[1:]))
if command:
    sys.stdout.write(setting(command + ".out", ""))
    sys.stderr.write(setting(command + ".err", ""))
    sys.exit(0)
request = json.loads(sys.stdin.read())
mode = setting("run.mode", "echo")
if mode == "echo":
    print(json.dumps(request, sort_keys=True, separators=(",", ":")))
    sys.stderr.write("done\n")
    sys.exit(3)
elif mode == "odd":
    print("Authorization: Bearer sk-live-123456\nresult api_key=abcd1234 ok")
    sys.stderr.buffer.write(b"bad \xff byte")
elif mode == "killed":
    print("killing myself", flush=True)
    os.kill(os.getpid(), signal.SIGKILL)
else:  # "hang", or "ignore-term" that also ignores the terminate signal
    if mode == "ignore-term":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    print("working", flush=True)
    sys.stderr.write("warming up\n")
    sys.stderr.flush()
    hang()
)";

class ProcessCUADriverClientTest : public testing::ChildProcessTest {
 protected:
  void SetUp() override {
    write("cua-driver", kFakeDriver);
    std::filesystem::permissions(driver_, std::filesystem::perms::owner_all);
  }

  void write(const std::string& name, const std::string& contents) {
    std::ofstream(folder_ / name, std::ios::binary | std::ios::trunc) << contents;
  }
  void remove(const std::string& name) { std::filesystem::remove(folder_ / name); }
  ProcessCUADriverClient client(std::vector<std::string> candidates) const {
    return ProcessCUADriverClient(std::move(candidates), [] { return kCheckTime; });
  }

  std::filesystem::path driver_ = folder_ / "cua-driver";
};

TEST_F(ProcessCUADriverClientTest, StatusReadsTheDoctorReportOrElseTheStatusTextAndTheVersion) {
  // {doctor report, status text, readiness, version, last error}
  const std::vector<std::tuple<std::string, std::string, CUADriverReadiness, std::string, std::optional<std::string>>>
      cases = {{R"({"version": "1.4.0", "ready": true})", "", CUADriverReadiness::ready, "1.4.0", std::nullopt},
               {"doctor: unknown option", "weird", CUADriverReadiness::error, "cua-driver 0.9.1",
                "weird\nAuthorization: Bearer [REDACTED]"}};
  write("version.out", "  cua-driver 0.9.1\n");
  write("status.err", "Authorization: Bearer sk-status-1");
  for (const auto& [doctor, statusOut, readiness, version, lastError] : cases) {
    write("doctor.out", doctor);
    write("status.out", statusOut);
    CUADriverStatus status = client({driver_.string()}).status();
    EXPECT_EQ(status.readiness, readiness);
    EXPECT_EQ(status.version, version);
    EXPECT_EQ(status.lastError, lastError);
  }
}

TEST_F(ProcessCUADriverClientTest, AToolThatIsNowhereIsNotInstalledAndCannotRun) {
  TemporaryDirectory emptyPath("orvid-empty-path");
  testing::ScopedEnvironmentVariable path("PATH", emptyPath.path().string());
  auto driver = client({(folder_ / "missing" / "cua-driver").string(), "/usr/bin/which", folder_.path().string()});
  EXPECT_EQ(driver.resolveExecutable(), std::nullopt);
  CUADriverStatus expected;
  expected.readiness = CUADriverReadiness::notInstalled;
  expected.checkedAt = kCheckTime;
  EXPECT_EQ(driver.status(), expected);
  try {
    driver.run({UUID::random(), "open Safari", 5});
    ADD_FAILURE() << "a run without a tool did not fail";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
  }
}

TEST_F(ProcessCUADriverClientTest, FindsTheToolOnThePathWhenNoCandidateIsThere) {
  testing::ScopedEnvironmentVariable path("PATH", "/nonexistent:" + folder_.path().string());
  auto driver = client({(folder_ / "missing").string()});
  EXPECT_EQ(driver.resolveExecutable(), driver_.string());
  EXPECT_EQ(driver.status().binaryPath, driver_.string());
}

TEST_F(ProcessCUADriverClientTest, StatusNeverThrowsEvenWithoutFileDescriptorsLeft) {
  auto driver = client({driver_.string()});
  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
  std::size_t open = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++open;
  rlimit tight = saved;
  // Two descriptors left: a launch takes one, then needs a pair for a pipe and fails.
  tight.rlim_cur = open + 2;
  // The undefined-behaviour sanitizer checks the dynamic type of each new exception
  // object, with a pipe the first time it meets the type; meet them now.
  std::system_error warmSystemError(std::make_error_code(std::errc::too_many_files_open), "warm");
  ProcessLaunchError warmLaunchError("warm", EMFILE);
  for (const std::exception* error : {static_cast<const std::exception*>(&warmSystemError),
                                      static_cast<const std::exception*>(&warmLaunchError)}) {
    EXPECT_NE(error->what(), nullptr);
  }
  EXPECT_EQ(warmSystemError.code(), std::errc::too_many_files_open);
  EXPECT_EQ(warmLaunchError.errorNumber(), EMFILE);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
  std::optional<CUADriverStatus> status;
  EXPECT_NO_THROW(status = driver.status());
  ::setrlimit(RLIMIT_NOFILE, &saved);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->readiness, CUADriverReadiness::error);
}

TEST_F(ProcessCUADriverClientTest, RunHandsTheToolTheRequestAsJSONAndReturnsItsResult) {
  auto driver = client({driver_.string()});
  CUAExecutionRequest request{UUID::random(), "Open \"Notes\"\nand type h\xc3\xa9llo", 30};
  CUAExecutionResult result = driver.run(request);
  nlohmann::json received = {
      {"executionID", request.executionID.uuidString()}, {"instruction", request.instruction}, {"timeoutSeconds", 30}};
  EXPECT_EQ(result, (CUAExecutionResult{request.executionID, 3, received.dump(-1, ' ', true) + "\n", "done\n"}));
}

TEST_F(ProcessCUADriverClientTest, SignalsMalformedTextAndSecretsComeBackAsTheToolsResult) {
  auto driver = client({driver_.string()});
  UUID executionID = UUID::random();
  write("run.mode", "odd");
  EXPECT_EQ(driver.run({executionID, "do it", 60}),
            (CUAExecutionResult{executionID, 0, "Authorization: Bearer [REDACTED]\nresult api_key=[REDACTED] ok\n", ""}));
  write("run.mode", "killed");
  EXPECT_EQ(driver.run({executionID, "do it", 60}), (CUAExecutionResult{executionID, SIGKILL, "killing myself\n", ""}));
}

TEST_F(ProcessCUADriverClientTest, TheTimeLimitTerminatesTheToolAndFailsAtOnce) {
  struct Case { std::string mode; int timeoutSeconds; };
  // At least one second; a tool that ignores the terminate signal does not hold the caller.
  const std::vector<Case> cases = {{"hang", -3}, {"ignore-term", 1}};
  auto driver = client({driver_.string()});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mode);
    write("run.mode", c.mode);
    remove("grandchild.pid");
    UUID executionID = UUID::random();
    auto start = Clock::now();
    try {
      driver.run({executionID, "wait forever", c.timeoutSeconds});
      ADD_FAILURE() << "the run was not ended by its time limit";
    } catch (const CUADriverClientError& error) {
      EXPECT_EQ(error, CUADriverClientError::timedOut(c.timeoutSeconds));
    }
    auto elapsed = Clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::seconds(1));
    EXPECT_LT(elapsed, std::chrono::milliseconds(1700));
    EXPECT_FALSE(driver.isRunning(executionID));
    pid_t tool = std::stoi(readFile(folder_ / "driver.pid"));
    if (c.mode == "ignore-term") {
      // Its own sleep inherited the ignored signal too; the whole group is still there.
      EXPECT_FALSE(waitForProcessEnd(tool, std::chrono::milliseconds(300))) << "the stubborn tool was killed";
      ::kill(-tool, SIGKILL);
    }
    expectEnded(folder_ / "grandchild.pid");  // the terminate signal reached the whole group
    EXPECT_TRUE(waitForProcessEnd(tool));
  }
}

TEST_F(ProcessCUADriverClientTest, CancellingOrStoppingTheCallerEndsTheRunWhichReturnsTheToolsOwnResult) {
  write("run.mode", "hang");
  testing::makeFifo(folder_ / "started.fifo");
  auto driver = client({driver_.string()});
  for (bool useStop : {false, true}) {
    SCOPED_TRACE(useStop ? "stop" : "cancel");
    std::stop_source stop;
    UUID executionID = UUID::random();
    auto running =
        std::async(std::launch::async, [&] { return driver.run({executionID, "wait", 60}, stop.get_token()); });
    auto pid = readPidFromFifo(folder_ / "started.fifo");
    ASSERT_TRUE(pid);
    EXPECT_TRUE(driver.isRunning(executionID));
    if (useStop) {
      stop.request_stop();
    } else {
      driver.cancel(executionID);
    }
    EXPECT_EQ(running.get(), (CUAExecutionResult{executionID, SIGTERM, "working\n", "warming up\n"}));
    EXPECT_FALSE(driver.isRunning(executionID));
    EXPECT_TRUE(waitForProcessEnd(*pid));
    expectEnded(folder_ / "grandchild.pid");
  }
}

}  // namespace
}  // namespace orvid
