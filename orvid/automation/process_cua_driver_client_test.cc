#include "orvid/automation/process_cua_driver_client.h"

#include <signal.h>
#include <stdlib.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/automation/process_test_support.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/scoped_environment_variable.h"

namespace orvid {

inline void PrintTo(const CUADriverStatus& status, std::ostream* stream) { *stream << nlohmann::json(status).dump(); }
void PrintTo(const CUAExecutionResult& result, std::ostream* stream) {
  *stream << nlohmann::json(result).dump().substr(0, 2000);
}

namespace {

using testing::ChildProcessTest;
using testing::makeFifo;
using testing::readFile;
using testing::readPid;
using testing::readPidFromFifo;
using testing::waitForProcessEnd;
using Clock = std::chrono::steady_clock;

const std::chrono::system_clock::time_point kCheckTime{std::chrono::seconds(1750000000)};

// A stand-in for the real tool. It reads its behaviour from files beside it:
// "<command>.out" / "<command>.err" are printed for "--version" ("version"),
// "doctor --json" ("doctor") and "status"; "hang.<command>" makes that command
// hang; "run.mode" chooses how "run --json" behaves and "run.exit" its exit
// status. Every call is appended to "calls.log"; a run stores the request it read
// in "request.json". A hanging process writes its pid into "started.fifo" when
// that exists, and the pid of a background process it starts into "grandchild.pid".
constexpr const char* kFakeDriver = R"(#!/usr/bin/python3
import json, os, signal, subprocess, sys, time

here = os.path.dirname(os.path.abspath(__file__))
def path(name):
    return os.path.join(here, name)
def setting(name):
    try:
        with open(path(name)) as f:
            return f.read()
    except FileNotFoundError:
        return None
def emit(name, stream):
    text = setting(name)
    if text is not None:
        stream.write(text)
        stream.flush()
def announce():
    if os.path.exists(path("started.fifo")):
        with open(path("started.fifo"), "w") as fifo:
            fifo.write(str(os.getpid()))
def hang():
    with open(path("driver.pid"), "w") as f:
        f.write(str(os.getpid()))
    child = subprocess.Popen(["sleep", "60"])
    with open(path("grandchild.pid"), "w") as f:
        f.write(str(child.pid))
    announce()
    time.sleep(60)

args = sys.argv[1:]
with open(path("calls.log"), "a") as log:
    log.write(" ".join(args) + "\n")
names = {("--version",): "version", ("doctor", "--json"): "doctor", ("status",): "status"}
if tuple(args) in names:
    name = names[tuple(args)]
    emit(name + ".out", sys.stdout)
    emit(name + ".err", sys.stderr)
    if setting("hang." + name) is not None:
        hang()
    sys.exit(0)
if args != ["run", "--json"]:
    sys.exit(64)

request = json.loads(sys.stdin.read())
with open(path("request.json"), "w") as f:
    json.dump(request, f)
mode = (setting("run.mode") or "echo").strip()
if mode == "echo":
    print(json.dumps({"executionID": request["executionID"], "instruction": request["instruction"]}))
    sys.stderr.write("done\n")
elif mode == "secret":
    print("Authorization: Bearer sk-live-123456")
    print("result api_key=abcd1234 ok")
    sys.stderr.write("X-Api-Token: tok-999\n")
elif mode == "hang":
    print("working", flush=True)
    sys.stderr.write("warming up\n")
    sys.stderr.flush()
    hang()
elif mode == "ignore-term":
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    print("stubborn", flush=True)
    hang()
elif mode == "crash":
    print("about to fail", flush=True)
    raise RuntimeError("driver crashed")
elif mode == "killed":
    print("killing myself", flush=True)
    os.kill(os.getpid(), signal.SIGKILL)
elif mode == "flood":
    for i in range(30):
        sys.stdout.write("o" * 100000)
        sys.stderr.write("e" * 50000)
elif mode == "invalid-utf8":
    sys.stdout.buffer.write(b"bad \xff byte")
    sys.stderr.write("fine")
sys.exit(int((setting("run.exit") or "0").strip()))
)";

class ProcessCUADriverClientTest : public ChildProcessTest {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(toolFolder());
    driver_ = toolFolder() / "cua-driver";
    write("cua-driver", kFakeDriver);
    std::filesystem::permissions(driver_, std::filesystem::perms::owner_all);
  }

  std::filesystem::path toolFolder() const { return folder_ / "bin"; }
  void write(const std::string& name, const std::string& contents) {
    std::ofstream(toolFolder() / name, std::ios::binary | std::ios::trunc) << contents;
  }
  void remove(const std::string& name) { std::filesystem::remove(toolFolder() / name); }
  std::string calls() const { return readFile(toolFolder() / "calls.log"); }
  ProcessCUADriverClient client(std::vector<std::string> candidates) const {
    return ProcessCUADriverClient(std::move(candidates), [] { return kCheckTime; });
  }
  // Runs `request` on a thread; the future holds the result or the error.
  std::future<CUAExecutionResult> runInBackground(ProcessCUADriverClient& driver, const CUAExecutionRequest& request,
                                                  std::stop_token stop = {}) {
    return std::async(std::launch::async, [&driver, request, stop] { return driver.run(request, stop); });
  }
  // The run's pid, once the tool says it has started.
  std::optional<pid_t> waitForStart() { return readPidFromFifo(toolFolder() / "started.fifo"); }
  void expectGrandchildEnded() {
    auto grandchild = readPid(toolFolder() / "grandchild.pid");
    ASSERT_TRUE(grandchild);
    EXPECT_TRUE(waitForProcessEnd(*grandchild)) << "a process started by the tool outlived the run";
  }

  TemporaryDirectory folder_{"orvid-cua-driver"};
  std::filesystem::path driver_;
};

TEST_F(ProcessCUADriverClientTest, StatusReadsTheDoctorReportWhenItIsJSON) {
  write("version.out", "cua-driver 9.9.9\n");
  write("doctor.out", R"({"version": "1.4.0", "daemon": "running", "ready": true,
                          "permissions": {"accessibility": "granted", "screen_recording": true}})");
  write("status.out", "daemon stopped\n");
  auto driver = client({driver_.string()});
  CUADriverStatus expected{CUADriverReadiness::ready,    "1.4.0",
                           driver_.string(),             "running",
                           CUAPermissionState::granted,  CUAPermissionState::granted,
                           kCheckTime,                   std::nullopt};
  EXPECT_EQ(driver.status(), expected);
  EXPECT_EQ(calls(), "--version\ndoctor --json\n");
}

TEST_F(ProcessCUADriverClientTest, StatusFallsBackToTheStatusTextAndTheVersionCommand) {
  struct Case {
    std::optional<std::string> doctor;
    std::optional<std::string> version;
    std::string statusOut;
    std::string statusErr;
    CUADriverReadiness readiness;
    std::optional<std::string> expectedVersion;
    std::optional<std::string> daemonState;
    std::optional<std::string> lastError;
  };
  const std::vector<Case> cases = {
      {"doctor: unknown option", "cua-driver 0.9.1\n", "Version: 1.2.3-beta, daemon running", "",
       CUADriverReadiness::daemonRunning, "1.2.3-beta", "running", std::nullopt},
      {std::nullopt, "  cua-driver 0.9.1\n", "daemon stopped", "", CUADriverReadiness::daemonStopped,
       "cua-driver 0.9.1", "stopped", std::nullopt},
      {"[]", std::nullopt, "", "sh: command not found", CUADriverReadiness::notInstalled, "", std::nullopt,
       std::nullopt},
      {"", "1.0\n", "weird", "Authorization: Bearer sk-status-1", CUADriverReadiness::error, "1.0", std::nullopt,
       "weird\nAuthorization: Bearer [REDACTED]"},
  };
  for (const Case& c : cases) {
    remove("calls.log");
    c.doctor ? write("doctor.out", *c.doctor) : remove("doctor.out");
    c.version ? write("version.out", *c.version) : remove("version.out");
    write("status.out", c.statusOut);
    write("status.err", c.statusErr);
    CUADriverStatus status = client({driver_.string()}).status();
    EXPECT_EQ(status.readiness, c.readiness) << c.statusOut;
    EXPECT_EQ(status.version, c.expectedVersion) << c.statusOut;
    EXPECT_EQ(status.daemonState, c.daemonState) << c.statusOut;
    EXPECT_EQ(status.lastError, c.lastError) << c.statusOut;
    EXPECT_EQ(status.binaryPath, driver_.string());
    EXPECT_EQ(status.checkedAt, kCheckTime);
    EXPECT_EQ(calls(), "--version\ndoctor --json\nstatus\n");
  }
}

TEST_F(ProcessCUADriverClientTest, StatusRedactsSecretsInTheDoctorReport) {
  write("doctor.out", R"({"error": "login failed: Bearer sk-doctor-77", "daemon": "x-auth-token=abc"})");
  CUADriverStatus status = client({driver_.string()}).status();
  EXPECT_EQ(status.readiness, CUADriverReadiness::error);
  EXPECT_EQ(status.lastError, "login failed: Bearer [REDACTED]");
  EXPECT_EQ(status.daemonState, "x-auth-token=[REDACTED]");
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

TEST_F(ProcessCUADriverClientTest, StatusNeverThrowsEvenWithoutFileDescriptorsLeft) {
  auto driver = client({driver_.string()});
  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
  std::size_t open = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++open;
  rlimit tight = saved;
  tight.rlim_cur = open;  // the next descriptor cannot be had: no pipe for the tool
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
  std::optional<CUADriverStatus> status;
  EXPECT_NO_THROW(status = driver.status());
  ::setrlimit(RLIMIT_NOFILE, &saved);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->readiness, CUADriverReadiness::error);
  EXPECT_EQ(status->binaryPath, driver_.string());
}

TEST_F(ProcessCUADriverClientTest, FindsTheToolOnThePathWhenNoCandidateIsThere) {
  testing::ScopedEnvironmentVariable path("PATH", "/nonexistent:" + toolFolder().string());
  auto driver = client({(folder_ / "missing").string()});
  EXPECT_EQ(driver.resolveExecutable(), driver_.string());
  write("doctor.out", R"({"ready": true})");
  EXPECT_EQ(driver.status().binaryPath, driver_.string());
}

TEST_F(ProcessCUADriverClientTest, RunWritesTheRequestAsJSONAndReturnsTheToolsResult) {
  write("run.exit", "3\n");
  auto driver = client({driver_.string()});
  CUAExecutionRequest request{UUID::random(), "Open \"Notes\"\nand type h\xc3\xa9llo", 30};
  CUAExecutionResult result = driver.run(request);
  EXPECT_EQ(result.executionID, request.executionID);
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.stderr, "done\n");
  ASSERT_EQ(result.stdout.back(), '\n');
  EXPECT_EQ(nlohmann::json::parse(result.stdout),
            (nlohmann::json{{"executionID", request.executionID.uuidString()}, {"instruction", request.instruction}}));
  nlohmann::json received = nlohmann::json::parse(readFile(toolFolder() / "request.json"));
  EXPECT_EQ(received, nlohmann::json(request));
  EXPECT_EQ(received.get<CUAExecutionRequest>(), request);
  EXPECT_EQ(calls(), "run --json\n");
  EXPECT_FALSE(driver.isRunning(request.executionID));
}

TEST_F(ProcessCUADriverClientTest, ResultsNeverShowASecret) {
  write("run.mode", "secret");
  CUAExecutionResult result = client({driver_.string()}).run({UUID::random(), "log in", 30});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.stdout, "Authorization: Bearer [REDACTED]\nresult api_key=[REDACTED] ok\n");
  EXPECT_EQ(result.stderr, "X-Api-Token: [REDACTED]\n");
}

TEST_F(ProcessCUADriverClientTest, CrashesAndFloodsComeBackAsTheToolsResult) {
  struct Case {
    std::string mode;
    std::int32_t exitCode;
    std::string stdout;
    std::string stderrContains;
  };
  const std::vector<Case> cases = {
      {"crash", 1, "about to fail\n", "RuntimeError: driver crashed"},
      {"killed", SIGKILL, "killing myself\n", ""},
      {"flood", 0, std::string(3000000, 'o'), std::string(1500000, 'e')},
      {"invalid-utf8", 0, "", "fine"},
  };
  auto driver = client({driver_.string()});
  for (const Case& c : cases) {
    write("run.mode", c.mode);
    UUID executionID = UUID::random();
    CUAExecutionResult result = driver.run({executionID, "do it", 60});
    EXPECT_EQ(result.executionID, executionID) << c.mode;
    EXPECT_EQ(result.exitCode, c.exitCode) << c.mode;
    EXPECT_TRUE(result.stdout == c.stdout) << c.mode << ": " << result.stdout.size() << " bytes";
    EXPECT_NE(result.stderr.find(c.stderrContains), std::string::npos) << c.mode;
  }
  EXPECT_EQ(readFile(toolFolder() / "calls.log"), "run --json\nrun --json\nrun --json\nrun --json\n");
}

TEST_F(ProcessCUADriverClientTest, TheTimeLimitTerminatesTheToolAndFailsAtOnce) {
  struct Case {
    std::string mode;
    int timeoutSeconds;
  };
  // At least one second, whatever the request says; a tool that ignores the terminate
  // signal does not hold the caller, and is not killed.
  const std::vector<Case> cases = {{"hang", 0}, {"hang", -3}, {"ignore-term", 1}};
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
    pid_t tool = std::stoi(readFile(toolFolder() / "driver.pid"));
    if (c.mode == "ignore-term") {
      // Its own sleep inherited the ignored signal too; the whole group is still there.
      EXPECT_FALSE(waitForProcessEnd(tool, std::chrono::milliseconds(300))) << "the stubborn tool was killed";
      ::kill(-tool, SIGKILL);
    }
    expectGrandchildEnded();  // the terminate signal reached the whole group
    EXPECT_TRUE(waitForProcessEnd(tool));
    // The client reaps it in the background: no zombie is left behind.
    auto reapDeadline = Clock::now() + std::chrono::seconds(5);
    while (std::filesystem::exists("/proc/" + std::to_string(tool)) && Clock::now() < reapDeadline) {
      std::this_thread::yield();
    }
    EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(tool))) << "left unreaped";
  }
}

TEST_F(ProcessCUADriverClientTest, CancellingEndsTheRunWhichReturnsTheToolsOwnResult) {
  write("run.mode", "hang");
  makeFifo(toolFolder() / "started.fifo");
  auto driver = client({driver_.string()});
  UUID executionID = UUID::random();
  auto start = Clock::now();
  auto running = runInBackground(driver, {executionID, "wait forever", 60});
  auto pid = waitForStart();
  ASSERT_TRUE(pid);
  EXPECT_TRUE(driver.isRunning(executionID));
  driver.cancel(UUID::random());  // not running: nothing happens
  EXPECT_TRUE(driver.isRunning(executionID));
  driver.cancel(executionID);
  EXPECT_FALSE(driver.isRunning(executionID));
  CUAExecutionResult result = running.get();
  EXPECT_EQ(result, (CUAExecutionResult{executionID, SIGTERM, "working\n", "warming up\n"}));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(waitForProcessEnd(*pid));
  expectGrandchildEnded();
  driver.cancel(executionID);  // already over: nothing happens
}

TEST_F(ProcessCUADriverClientTest, StoppingTheCallerActsLikeCancel) {
  write("run.mode", "hang");
  makeFifo(toolFolder() / "started.fifo");
  auto driver = client({driver_.string()});
  std::stop_source stop;
  UUID executionID = UUID::random();
  auto running = runInBackground(driver, {executionID, "wait forever", 60}, stop.get_token());
  ASSERT_TRUE(waitForStart());
  stop.request_stop();
  EXPECT_EQ(running.get().exitCode, SIGTERM);
  EXPECT_FALSE(driver.isRunning(executionID));
  expectGrandchildEnded();
}

TEST_F(ProcessCUADriverClientTest, StoppingAStatusCheckEndsTheHangingCommand) {
  write("hang.doctor", "");
  write("doctor.out", "checking...\n");
  makeFifo(toolFolder() / "started.fifo");
  auto driver = client({driver_.string()});
  std::stop_source stop;
  auto checking = std::async(std::launch::async, [&] { return driver.status(stop.get_token()); });
  auto pid = waitForStart();
  ASSERT_TRUE(pid);
  stop.request_stop();
  ASSERT_EQ(checking.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  CUADriverStatus status = checking.get();
  EXPECT_EQ(status.binaryPath, driver_.string());
  EXPECT_EQ(status.checkedAt, kCheckTime);
  EXPECT_EQ(calls(), "--version\ndoctor --json\n");
  EXPECT_TRUE(waitForProcessEnd(*pid));
  expectGrandchildEnded();
}

TEST(CUADriverClientErrorTest, HasOnlyTheGenericDescription) {
  EXPECT_EQ(CUADriverClientError::timedOut(0), CUADriverClientError::timedOut(0));
  EXPECT_NE(CUADriverClientError::timedOut(0), CUADriverClientError::timedOut(1));
  EXPECT_EQ(CUADriverClientError::timedOut(7).errorCase(), CUADriverClientError::Case::timedOut);
  EXPECT_STREQ(CUADriverClientError::timedOut(7).what(),
               "The operation couldn\u2019t be completed. (orvid.CUADriverClientError error 0.)");
}

TEST(CUAExecutionRecordsTest, SerialiseWithTheirFieldNames) {
  UUID id = UUID::parse("6F9619FF-8B86-D011-B42D-00C04FC964FF").value();
  CUAExecutionRequest request{id, "click OK", 12};
  nlohmann::json requestJSON = request;
  EXPECT_EQ(requestJSON.dump(),
            R"({"executionID":"6F9619FF-8B86-D011-B42D-00C04FC964FF","instruction":"click OK","timeoutSeconds":12})");
  EXPECT_EQ(requestJSON.get<CUAExecutionRequest>(), request);
  CUAExecutionResult result{id, -1, "out", "err"};
  nlohmann::json resultJSON = result;
  EXPECT_EQ(resultJSON.dump(), R"({"executionID":"6F9619FF-8B86-D011-B42D-00C04FC964FF","exitCode":-1,)"
                               R"("stderr":"err","stdout":"out"})");
  EXPECT_EQ(resultJSON.get<CUAExecutionResult>(), result);
  EXPECT_NE(std::hash<CUAExecutionResult>{}(result), std::hash<CUAExecutionResult>{}({id, 0, "out", "err"}));
}

}  // namespace
}  // namespace orvid
