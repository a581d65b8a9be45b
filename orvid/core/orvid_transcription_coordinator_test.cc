#include "orvid/core/orvid_transcription_coordinator.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <latch>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

using Kind = VoiceCaptureStage::Kind;
using Snapshot = OrvidTranscriptionCoordinator::Snapshot;

// Where a test starts: each state is reached through the public operations only.
enum class Start {
  idle,
  recording,
  transcribing,
  processing,
  awaitingConfirmation,
  executing,
  failedWithRequest,
  failedWithoutRequest,
};

const std::vector<Start> kAllStarts = {Start::idle,         Start::recording,         Start::transcribing,
                                       Start::processing,   Start::awaitingConfirmation, Start::executing,
                                       Start::failedWithRequest, Start::failedWithoutRequest};

std::string name(Start start) {
  switch (start) {
    case Start::idle: return "idle";
    case Start::recording: return "recording";
    case Start::transcribing: return "transcribing";
    case Start::processing: return "processing";
    case Start::awaitingConfirmation: return "awaitingConfirmation";
    case Start::executing: return "executing";
    case Start::failedWithRequest: return "failedWithRequest";
    case Start::failedWithoutRequest: return "failedWithoutRequest";
  }
  return "?";
}

bool isFailed(Start start) { return start == Start::failedWithRequest || start == Start::failedWithoutRequest; }
bool ownsWorkflow(Start start) { return start != Start::idle && !isFailed(start); }

// Drives `coordinator` to `start` for request `owner` (purpose automation). Along the
// way the host texts are filled, so that tests can see what each step keeps.
void driveTo(OrvidTranscriptionCoordinator& coordinator, Start start, const UUID& owner) {
  if (start == Start::idle) return;
  coordinator.beginRecording(owner, VoiceCapturePurpose::automation);
  coordinator.updateHostTexts("progress", "output", "delivered");
  if (start == Start::recording) return;
  coordinator.finishRecording(owner);
  if (start == Start::transcribing) return;
  coordinator.startProcessing(owner, "heard", "cleaned");
  if (start == Start::processing) return;
  if (isFailed(start)) {
    coordinator.fail(start == Start::failedWithRequest ? std::optional<UUID>(owner) : std::nullopt, "boom");
    return;
  }
  coordinator.awaitAutomationConfirmation(owner, "proposal");
  if (start == Start::awaitingConfirmation) return;
  coordinator.startAutomation(owner);
}

// Runs `operation` and returns the case of the OrvidError it throws; absent when it succeeds.
std::optional<OrvidError::Case> errorOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (const OrvidError& error) {
    return error.errorCase();
  }
  return std::nullopt;
}

// The operations that name a request, each applied to `id`.
struct Step {
  std::string name;
  std::function<void(OrvidTranscriptionCoordinator&, const UUID&)> run;
};

const std::vector<Step> kRequestSteps = {
    {"finishRecording", [](auto& c, const UUID& id) { c.finishRecording(id); }},
    {"startProcessing", [](auto& c, const UUID& id) { c.startProcessing(id, "r", "c"); }},
    {"awaitAutomationConfirmation", [](auto& c, const UUID& id) { c.awaitAutomationConfirmation(id, "p"); }},
    {"startAutomation", [](auto& c, const UUID& id) { c.startAutomation(id); }},
    {"complete", [](auto& c, const UUID& id) { c.complete(id); }},
};

TEST(OrvidTranscriptionCoordinatorTest, StartsIdleWithoutAnActiveRequest) {
  OrvidTranscriptionCoordinator coordinator;
  EXPECT_EQ(coordinator.currentState(), OrvidExecutionState::idle());
  EXPECT_EQ(coordinator.activeRequestID(), std::nullopt);
  EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
}

TEST(OrvidTranscriptionCoordinatorTest, WalksThePipelineOrderAndCarriesThePurposeUntilTheProposal) {
  for (auto purpose : {VoiceCapturePurpose::dictation, VoiceCapturePurpose::automation}) {
    OrvidTranscriptionCoordinator coordinator;
    const UUID id = UUID::random();

    coordinator.beginRecording(id, purpose);
    OrvidExecutionState expected;
    expected.stage = VoiceCaptureStage::recording(id, purpose);
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));

    coordinator.finishRecording(id);
    expected.stage = VoiceCaptureStage::transcribing(id, purpose);
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));

    coordinator.startProcessing(id, "open the pod bay", "Open the pod bay.");
    expected.stage = VoiceCaptureStage::processing(id, purpose);
    expected.recognizedText = "open the pod bay";
    expected.cleanedText = "Open the pod bay.";
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));

    coordinator.awaitAutomationConfirmation(id, "Open the pod bay doors");
    expected.stage = VoiceCaptureStage::awaitingConfirmation(id);
    expected.proposedText = "Open the pod bay doors";
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));
    EXPECT_EQ(coordinator.currentState().stage.purpose, std::nullopt);

    coordinator.startAutomation(id);
    expected.stage = VoiceCaptureStage::executing(id);
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));

    coordinator.complete(id);
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
  }
}

TEST(OrvidTranscriptionCoordinatorTest, BeginRecordingStartsAFreshRecordOnlyFromIdleOrFailed) {
  for (Start start : kAllStarts) {
    for (bool sameID : {false, true}) {
      SCOPED_TRACE(name(start) + (sameID ? " same id" : " new id"));
      OrvidTranscriptionCoordinator coordinator;
      const UUID owner = UUID::random();
      driveTo(coordinator, start, owner);
      const UUID id = sameID ? owner : UUID::random();
      const Snapshot before = coordinator.snapshot();

      auto error = errorOf([&] { coordinator.beginRecording(id, VoiceCapturePurpose::dictation); });

      if (ownsWorkflow(start)) {
        EXPECT_EQ(error, OrvidError::Case::busy);
        EXPECT_EQ(coordinator.snapshot(), before);
      } else {
        EXPECT_EQ(error, std::nullopt);
        OrvidExecutionState fresh;
        fresh.stage = VoiceCaptureStage::recording(id, VoiceCapturePurpose::dictation);
        EXPECT_EQ(coordinator.snapshot(), (Snapshot{fresh, id}));
      }
    }
  }
}

TEST(OrvidTranscriptionCoordinatorTest, StepsOfAnotherRequestOrWithoutAnActiveRequestThrowRequestMismatch) {
  for (const auto& step : kRequestSteps) {
    for (Start start : kAllStarts) {
      // A foreign identifier everywhere; the failed request's own identifier once it has failed.
      std::vector<bool> useOwner = {false};
      if (!ownsWorkflow(start)) useOwner.push_back(true);
      for (bool owner : useOwner) {
        SCOPED_TRACE(step.name + " from " + name(start) + (owner ? " with the old id" : " with a foreign id"));
        OrvidTranscriptionCoordinator coordinator;
        const UUID ownerID = UUID::random();
        driveTo(coordinator, start, ownerID);
        const Snapshot before = coordinator.snapshot();

        auto error = errorOf([&] { step.run(coordinator, owner ? ownerID : UUID::random()); });

        EXPECT_EQ(error, OrvidError::Case::requestMismatch);
        EXPECT_EQ(coordinator.snapshot(), before);
      }
    }
  }
}

TEST(OrvidTranscriptionCoordinatorTest, StepsOfTheActiveRequestFollowTheStageTable) {
  // Which active stages each step accepts; the others throw invalidTransition.
  const std::map<std::string, std::vector<Start>> accepted = {
      {"finishRecording", {Start::recording}},
      {"startProcessing", {Start::transcribing}},
      {"awaitAutomationConfirmation",
       {Start::recording, Start::transcribing, Start::processing, Start::awaitingConfirmation, Start::executing}},
      {"startAutomation", {Start::awaitingConfirmation}},
      {"complete",
       {Start::recording, Start::transcribing, Start::processing, Start::awaitingConfirmation, Start::executing}},
  };
  for (const auto& step : kRequestSteps) {
    for (Start start : kAllStarts) {
      if (!ownsWorkflow(start)) continue;
      SCOPED_TRACE(step.name + " from " + name(start));
      OrvidTranscriptionCoordinator coordinator;
      const UUID owner = UUID::random();
      driveTo(coordinator, start, owner);
      const Snapshot before = coordinator.snapshot();

      auto error = errorOf([&] { step.run(coordinator, owner); });

      const auto& allowed = accepted.at(step.name);
      if (std::find(allowed.begin(), allowed.end(), start) != allowed.end()) {
        EXPECT_EQ(error, std::nullopt);
        EXPECT_NE(coordinator.snapshot(), before);
      } else {
        EXPECT_EQ(error, OrvidError::Case::invalidTransition);
        EXPECT_EQ(coordinator.snapshot(), before);
      }
    }
  }
}

TEST(OrvidTranscriptionCoordinatorTest, EachAcceptedStepChangesExactlyItsFields) {
  const UUID id = UUID::random();
  // The state every test below starts from, as far as the host texts go.
  auto withHostTexts = [](OrvidExecutionState state) {
    state.progressMessage = "progress";
    state.executionOutput = "output";
    state.deliveredText = "delivered";
    return state;
  };
  struct Case {
    std::string what;
    Start start;
    std::function<void(OrvidTranscriptionCoordinator&)> step;
    OrvidExecutionState expected;
    bool stillActive;
  };
  auto state = [&](VoiceCaptureStage stage, std::optional<std::string> recognized,
                   std::optional<std::string> cleaned, std::optional<std::string> proposed) {
    OrvidExecutionState s;
    s.stage = std::move(stage);
    s.recognizedText = std::move(recognized);
    s.cleanedText = std::move(cleaned);
    s.proposedText = std::move(proposed);
    return withHostTexts(s);
  };
  const std::vector<Case> cases = {
      {"finishRecording keeps the purpose and the texts", Start::recording,
       [&](auto& c) { c.finishRecording(id); },
       state(VoiceCaptureStage::transcribing(id, VoiceCapturePurpose::automation), {}, {}, {}), true},
      {"startProcessing stores both texts", Start::transcribing,
       [&](auto& c) { c.startProcessing(id, "uh open mail", "open mail"); },
       state(VoiceCaptureStage::processing(id, VoiceCapturePurpose::automation), "uh open mail", "open mail", {}),
       true},
      {"awaitAutomationConfirmation from processing keeps the transcript", Start::processing,
       [&](auto& c) { c.awaitAutomationConfirmation(id, "Open Mail"); },
       state(VoiceCaptureStage::awaitingConfirmation(id), "heard", "cleaned", "Open Mail"), true},
      {"awaitAutomationConfirmation from recording", Start::recording,
       [&](auto& c) { c.awaitAutomationConfirmation(id, "Open Mail"); },
       state(VoiceCaptureStage::awaitingConfirmation(id), {}, {}, "Open Mail"), true},
      {"awaitAutomationConfirmation again replaces the proposal", Start::awaitingConfirmation,
       [&](auto& c) { c.awaitAutomationConfirmation(id, "second"); },
       state(VoiceCaptureStage::awaitingConfirmation(id), "heard", "cleaned", "second"), true},
      {"awaitAutomationConfirmation from executing", Start::executing,
       [&](auto& c) { c.awaitAutomationConfirmation(id, "again"); },
       state(VoiceCaptureStage::awaitingConfirmation(id), "heard", "cleaned", "again"), true},
      {"startAutomation", Start::awaitingConfirmation, [&](auto& c) { c.startAutomation(id); },
       state(VoiceCaptureStage::executing(id), "heard", "cleaned", "proposal"), true},
      {"complete from executing clears everything", Start::executing, [&](auto& c) { c.complete(id); },
       OrvidExecutionState::idle(), false},
      {"complete from recording clears everything", Start::recording, [&](auto& c) { c.complete(id); },
       OrvidExecutionState::idle(), false},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.what);
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, testCase.start, id);
    testCase.step(coordinator);
    EXPECT_EQ(coordinator.currentState(), testCase.expected);
    EXPECT_EQ(coordinator.activeRequestID(), testCase.stillActive ? std::optional<UUID>(id) : std::nullopt);
  }
}

TEST(OrvidTranscriptionCoordinatorTest, FailFromAnyStageKeepsTheTextsAndClearsTheProgressLine) {
  for (Start start : kAllStarts) {
    for (bool withID : {true, false}) {
      SCOPED_TRACE(name(start) + (withID ? " with id" : " without id"));
      OrvidTranscriptionCoordinator coordinator;
      const UUID owner = UUID::random();
      driveTo(coordinator, start, owner);
      const OrvidExecutionState before = coordinator.currentState();
      const std::optional<UUID> failedID = withID ? std::optional<UUID>(owner) : std::nullopt;

      coordinator.fail(failedID, "Network down");

      OrvidExecutionState expected = before;
      expected.stage = VoiceCaptureStage::failed(failedID, "Network down");
      expected.progressMessage.reset();
      expected.errorMessage = "Network down";
      EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, std::nullopt}));
    }
  }
}

TEST(OrvidTranscriptionCoordinatorTest, FailOfAnotherRequestStillEndsTheActiveOne) {
  OrvidTranscriptionCoordinator coordinator;
  const UUID owner = UUID::random();
  const UUID other = UUID::random();
  driveTo(coordinator, Start::processing, owner);

  coordinator.fail(other, "late failure");

  EXPECT_EQ(coordinator.currentState().stage, VoiceCaptureStage::failed(other, "late failure"));
  EXPECT_EQ(coordinator.currentState().recognizedText, "heard");
  EXPECT_EQ(coordinator.activeRequestID(), std::nullopt);
  EXPECT_EQ(errorOf([&] { coordinator.finishRecording(owner); }), OrvidError::Case::requestMismatch);
  EXPECT_EQ(errorOf([&] { coordinator.complete(other); }), OrvidError::Case::requestMismatch);
}

TEST(OrvidTranscriptionCoordinatorTest, CancelReturnsToIdleFromAnyStageWithoutThrowing) {
  for (Start start : kAllStarts) {
    SCOPED_TRACE(name(start));
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, start, UUID::random());
    EXPECT_NO_THROW(coordinator.cancel());
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
    EXPECT_NO_THROW(coordinator.cancel());
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
  }
}

TEST(OrvidTranscriptionCoordinatorTest, HostTextsChangeNothingElseAndAreClearedByANewRecording) {
  OrvidTranscriptionCoordinator coordinator;
  const UUID id = UUID::random();
  driveTo(coordinator, Start::awaitingConfirmation, id);
  OrvidExecutionState expected = coordinator.currentState();

  coordinator.updateHostTexts("typing", std::nullopt, "Hello");
  expected.progressMessage = "typing";
  expected.executionOutput.reset();
  expected.deliveredText = "Hello";
  EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));

  coordinator.fail(id, "x");
  const UUID next = UUID::random();
  coordinator.beginRecording(next, VoiceCapturePurpose::dictation);
  EXPECT_EQ(coordinator.currentState().deliveredText, std::nullopt);
  EXPECT_EQ(coordinator.currentState().executionOutput, std::nullopt);
  EXPECT_EQ(coordinator.currentState().progressMessage, std::nullopt);
}

// The edge cases a caller of the workflow relies on, in one place.
TEST(OrvidTranscriptionCoordinatorTest, EdgeCases) {
  const UUID id = UUID::random();
  {
    SCOPED_TRACE("finishRecording with a foreign id while recording");
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, Start::recording, id);
    EXPECT_EQ(errorOf([&] { coordinator.finishRecording(UUID::random()); }), OrvidError::Case::requestMismatch);
    EXPECT_EQ(coordinator.currentState().stage.kind, Kind::recording);
  }
  {
    SCOPED_TRACE("finishRecording with the right id while transcribing");
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, Start::transcribing, id);
    EXPECT_EQ(errorOf([&] { coordinator.finishRecording(id); }), OrvidError::Case::invalidTransition);
    EXPECT_EQ(coordinator.currentState().stage, VoiceCaptureStage::transcribing(id, VoiceCapturePurpose::automation));
  }
  {
    SCOPED_TRACE("beginRecording while executing, then after fail");
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, Start::executing, id);
    EXPECT_EQ(errorOf([&] { coordinator.beginRecording(UUID::random(), VoiceCapturePurpose::dictation); }),
              OrvidError::Case::busy);
    coordinator.fail(id, "driver crashed");
    const UUID next = UUID::random();
    EXPECT_NO_THROW(coordinator.beginRecording(next, VoiceCapturePurpose::dictation));
    const auto state = coordinator.currentState();
    EXPECT_EQ(state.recognizedText, std::nullopt);
    EXPECT_EQ(state.cleanedText, std::nullopt);
    EXPECT_EQ(state.proposedText, std::nullopt);
    EXPECT_EQ(state.errorMessage, std::nullopt);
    EXPECT_EQ(state.stage, VoiceCaptureStage::recording(next, VoiceCapturePurpose::dictation));
  }
  {
    SCOPED_TRACE("awaitAutomationConfirmation from recording");
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, Start::recording, id);
    EXPECT_NO_THROW(coordinator.awaitAutomationConfirmation(id, "Open Safari"));
    EXPECT_EQ(coordinator.currentState().stage, VoiceCaptureStage::awaitingConfirmation(id));
  }
  {
    SCOPED_TRACE("every step after complete");
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, Start::executing, id);
    coordinator.complete(id);
    for (const auto& step : kRequestSteps) {
      SCOPED_TRACE(step.name);
      EXPECT_EQ(errorOf([&] { step.run(coordinator, id); }), OrvidError::Case::requestMismatch);
      EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
    }
    EXPECT_NO_THROW(coordinator.fail(id, "after"));
    EXPECT_NO_THROW(coordinator.cancel());
    EXPECT_NO_THROW(coordinator.beginRecording(id, VoiceCapturePurpose::automation));
  }
  {
    SCOPED_TRACE("fail keeps what was heard next to the error");
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, Start::awaitingConfirmation, id);
    coordinator.fail(id, "Automation failed");
    const auto state = coordinator.currentState();
    EXPECT_EQ(state.recognizedText, "heard");
    EXPECT_EQ(state.cleanedText, "cleaned");
    EXPECT_EQ(state.proposedText, "proposal");
    EXPECT_EQ(state.errorMessage, "Automation failed");
  }
  {
    SCOPED_TRACE("fail without an id before any request");
    OrvidTranscriptionCoordinator coordinator;
    coordinator.fail(std::nullopt, "no provider");
    EXPECT_EQ(coordinator.currentState().stage, VoiceCaptureStage::failed(std::nullopt, "no provider"));
    EXPECT_EQ(coordinator.activeRequestID(), std::nullopt);
  }
  {
    SCOPED_TRACE("cancel on an idle coordinator");
    OrvidTranscriptionCoordinator coordinator;
    EXPECT_NO_THROW(coordinator.cancel());
    EXPECT_EQ(coordinator.currentState(), OrvidExecutionState::idle());
  }
}

// ---- Concurrency -------------------------------------------------------------------

// Texts in the concurrent test carry the identifier of the request that wrote them, so
// a state mixing two transitions shows.
std::string tag(const char* what, const std::optional<UUID>& id) {
  return std::string(what) + ":" + (id ? id->uuidString() : "none");
}

// The request a text was written for: what follows the first ':'.
std::string ownerOf(const std::string& text) { return text.substr(text.find(':') + 1); }

bool holdsRequest(Kind kind) {
  return kind == Kind::recording || kind == Kind::transcribing || kind == Kind::processing ||
         kind == Kind::awaitingConfirmation || kind == Kind::executing;
}

// Returns a description of the first broken rule of a state on its own; empty when whole.
std::string violationIn(const OrvidExecutionState& state) {
  const auto& stage = state.stage;
  switch (stage.kind) {
    case Kind::recording:
    case Kind::transcribing:
    case Kind::processing:
      if (!stage.requestID || !stage.purpose || !stage.message.empty()) return "capture stage payload";
      break;
    case Kind::awaitingConfirmation:
    case Kind::executing:
      if (!stage.requestID || stage.purpose || !stage.message.empty()) return "request stage payload";
      break;
    case Kind::failed:
      if (stage.purpose) return "failed stage has a purpose";
      if (stage.message != tag("failed", stage.requestID)) return "failed message is not its request's";
      if (state.errorMessage != stage.message) return "error message differs from the failed stage";
      break;
    case Kind::idle:
      if (stage != VoiceCaptureStage::idle()) return "idle stage carries a payload";
      break;
    case Kind::inserting:
      return "entered the host's stage";
  }
  if (stage.kind != Kind::failed && state.errorMessage) return "error message outside the failed stage";
  if (state.recognizedText.has_value() != state.cleanedText.has_value()) return "half of the transcript";
  // Every workflow text present belongs to one request, the current one while one is held.
  std::optional<std::string> owner;
  for (const auto* text : {&state.recognizedText, &state.cleanedText, &state.proposedText}) {
    if (!*text) continue;
    if (owner && ownerOf(**text) != *owner) return "texts of two requests";
    owner = ownerOf(**text);
  }
  if (holdsRequest(stage.kind) && owner && *owner != stage.requestID->uuidString()) return "texts of another request";
  if (stage.kind == Kind::idle && (state.recognizedText || state.proposedText)) return "idle with workflow texts";
  if (stage.kind == Kind::processing && state.recognizedText != tag("heard", stage.requestID)) {
    return "processing without its transcript";
  }
  if ((stage.kind == Kind::awaitingConfirmation || stage.kind == Kind::executing) &&
      state.proposedText != tag("proposal", stage.requestID)) {
    return "proposal stage without its proposal";
  }
  // The host writes its three texts together; only the progress line is ever cleared alone.
  if (state.executionOutput != state.deliveredText) return "host texts of two updates";
  if (state.progressMessage && state.progressMessage != state.executionOutput) return "progress of another update";
  return {};
}

std::string violationIn(const Snapshot& snapshot) {
  if (auto broken = violationIn(snapshot.state); !broken.empty()) return broken;
  const auto& stage = snapshot.state.stage;
  if (holdsRequest(stage.kind)) {
    if (snapshot.activeRequestID != stage.requestID) return "active request differs from the stage's";
  } else if (snapshot.activeRequestID) {
    return "active request outside a request stage";
  }
  return {};
}

// Collects the first few problems seen by any thread.
class Problems {
 public:
  void add(std::string problem) {
    std::lock_guard lock(mutex_);
    if (problems_.size() < 20) problems_.push_back(std::move(problem));
  }
  std::vector<std::string> all() const {
    std::lock_guard lock(mutex_);
    return problems_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> problems_;
};

TEST(OrvidTranscriptionCoordinatorTest, ConcurrentRandomStepsKeepEveryInvariant) {
  constexpr int kThreads = 8;
  constexpr int kStepsPerThread = 3000;
  enum Operation {
    begin, finish, process, await, automate, complete, fail, cancel, hostTexts, kOperationCount
  };

  OrvidTranscriptionCoordinator coordinator;
  const std::vector<UUID> shared = {UUID::random(), UUID::random(), UUID::random()};
  Problems problems;
  std::array<std::atomic<int>, kOperationCount> succeeded{};
  std::atomic<bool> done{false};
  std::atomic<long> observations{0};
  std::latch ready(kThreads + 1);

  std::thread checker([&] {
    ready.arrive_and_wait();
    while (!done.load()) {
      if (auto broken = violationIn(coordinator.currentState()); !broken.empty()) problems.add("observer: " + broken);
      if (auto broken = violationIn(coordinator.snapshot()); !broken.empty()) problems.add("observer: " + broken);
      observations.fetch_add(1);
    }
  });

  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(1234 + t));
      ready.arrive_and_wait();
      for (int i = 0; i < kStepsPerThread; ++i) {
        const UUID id = random() % 10 < 8 ? shared[random() % shared.size()] : UUID::random();
        const auto operation = static_cast<Operation>(random() % kOperationCount);
        std::optional<OrvidError::Case> error;
        try {
          switch (operation) {
            case begin:
              coordinator.beginRecording(
                  id, random() % 2 ? VoiceCapturePurpose::dictation : VoiceCapturePurpose::automation);
              break;
            case finish: coordinator.finishRecording(id); break;
            case process: coordinator.startProcessing(id, tag("heard", id), tag("clean", id)); break;
            case await: coordinator.awaitAutomationConfirmation(id, tag("proposal", id)); break;
            case automate: coordinator.startAutomation(id); break;
            case complete: coordinator.complete(id); break;
            case fail: {
              std::optional<UUID> failed = random() % 4 == 0 ? std::nullopt : std::optional<UUID>(id);
              coordinator.fail(failed, tag("failed", failed));
              break;
            }
            case cancel: coordinator.cancel(); break;
            case hostTexts: {
              std::string text = "host:" + std::to_string(t) + "-" + std::to_string(i);
              coordinator.updateHostTexts(text, text, text);
              break;
            }
            case kOperationCount: break;
          }
          succeeded[operation].fetch_add(1);
        } catch (const OrvidError& thrown) {
          error = thrown.errorCase();
        } catch (const std::exception& other) {
          problems.add(std::string("unexpected exception: ") + other.what());
        }
        if (error) {
          using C = OrvidError::Case;
          bool allowed = false;
          switch (operation) {
            case begin: allowed = *error == C::busy; break;
            case finish:
            case process:
            case automate: allowed = *error == C::requestMismatch || *error == C::invalidTransition; break;
            case await:
            case complete: allowed = *error == C::requestMismatch; break;
            default: allowed = false;
          }
          if (!allowed) problems.add("operation " + std::to_string(operation) + " threw an error it never throws");
        }
        if (auto broken = violationIn(coordinator.snapshot()); !broken.empty()) problems.add("worker: " + broken);
      }
    });
  }
  for (auto& worker : workers) worker.join();
  done.store(true);
  checker.join();

  EXPECT_EQ(problems.all(), std::vector<std::string>{});
  EXPECT_EQ(violationIn(coordinator.snapshot()), "");
  EXPECT_GT(observations.load(), 0);
  // Every transition really happened under contention, not only the rejections.
  for (int operation = 0; operation < kOperationCount; ++operation) {
    EXPECT_GT(succeeded[operation].load(), 0) << "operation " << operation;
  }

  // The survivor still follows the table.
  coordinator.cancel();
  const UUID last = UUID::random();
  coordinator.beginRecording(last, VoiceCapturePurpose::dictation);
  coordinator.finishRecording(last);
  EXPECT_EQ(coordinator.snapshot().activeRequestID, last);
}

}  // namespace
}  // namespace orvid
