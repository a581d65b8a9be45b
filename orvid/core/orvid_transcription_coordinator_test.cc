#include "orvid/core/orvid_transcription_coordinator.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <latch>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

using Kind = VoiceCaptureStage::Kind;
using Snapshot = OrvidTranscriptionCoordinator::Snapshot;

// Where a test starts: each state is reached through the public operations only.
enum class Start { idle, recording, transcribing, processing, awaiting, executing, completed, failed, failedNoID };

const std::vector<std::pair<Start, std::string>> kStarts = {
    {Start::idle, "idle"},           {Start::recording, "recording"},   {Start::transcribing, "transcribing"},
    {Start::processing, "processing"}, {Start::awaiting, "awaiting"},   {Start::executing, "executing"},
    {Start::completed, "completed"}, {Start::failed, "failed"},         {Start::failedNoID, "failed without id"},
};

bool ownsWorkflow(Start start) {
  return start != Start::idle && start != Start::completed && start != Start::failed && start != Start::failedNoID;
}

// Drives `coordinator` to `start` for request `owner` (purpose automation), filling the
// host texts on the way so that tests can see what each step keeps.
void driveTo(OrvidTranscriptionCoordinator& coordinator, Start start, const UUID& owner) {
  if (start == Start::idle) return;
  coordinator.beginRecording(owner, VoiceCapturePurpose::automation);
  coordinator.updateHostTexts("progress", "output", "delivered");
  if (start == Start::recording) return;
  coordinator.finishRecording(owner);
  if (start == Start::transcribing) return;
  coordinator.startProcessing(owner, "heard", "cleaned");
  if (start == Start::processing) return;
  if (start == Start::failed || start == Start::failedNoID) {
    coordinator.fail(start == Start::failed ? std::optional<UUID>(owner) : std::nullopt, "boom");
    return;
  }
  coordinator.awaitAutomationConfirmation(owner, "proposal");
  if (start == Start::awaiting) return;
  coordinator.startAutomation(owner);
  if (start == Start::completed) coordinator.complete(owner);
}

// The case of the OrvidError that `operation` throws; absent when it succeeds.
std::optional<OrvidError::Case> errorOf(const std::function<void()>& operation) {
  return testing::thrownCase<OrvidError>(operation);
}

// The operations that name a request, each applied to `id`.
const std::map<std::string, std::function<void(OrvidTranscriptionCoordinator&, const UUID&)>> kRequestSteps = {
    {"finishRecording", [](auto& c, const UUID& id) { c.finishRecording(id); }},
    {"startProcessing", [](auto& c, const UUID& id) { c.startProcessing(id, "r", "c"); }},
    {"awaitAutomationConfirmation", [](auto& c, const UUID& id) { c.awaitAutomationConfirmation(id, "p"); }},
    {"startAutomation", [](auto& c, const UUID& id) { c.startAutomation(id); }},
    {"complete", [](auto& c, const UUID& id) { c.complete(id); }},
};

TEST(OrvidTranscriptionCoordinatorTest, WalksThePipelineOrderKeepingTheTextsAndThePurposeUntilTheProposal) {
  for (auto purpose : {VoiceCapturePurpose::dictation, VoiceCapturePurpose::automation}) {
    OrvidTranscriptionCoordinator coordinator;
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
    const UUID id = UUID::random();
    OrvidExecutionState expected;
    auto expectState = [&](const char* after) {
      EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id})) << "after " << after;
    };

    coordinator.beginRecording(id, purpose);
    coordinator.updateHostTexts("progress", "output", "delivered");
    expected.stage = VoiceCaptureStage::recording(id, purpose);
    expected.progressMessage = "progress";
    expected.executionOutput = "output";
    expected.deliveredText = "delivered";
    expectState("beginRecording");
    coordinator.finishRecording(id);
    expected.stage = VoiceCaptureStage::transcribing(id, purpose);
    expectState("finishRecording");
    coordinator.startProcessing(id, "open the pod bay", "Open the pod bay.");
    expected.stage = VoiceCaptureStage::processing(id, purpose);
    expected.recognizedText = "open the pod bay";
    expected.cleanedText = "Open the pod bay.";
    expectState("startProcessing");
    coordinator.awaitAutomationConfirmation(id, "Open the pod bay doors");
    expected.stage = VoiceCaptureStage::awaitingConfirmation(id);
    expected.proposedText = "Open the pod bay doors";
    expectState("awaitAutomationConfirmation");
    coordinator.startAutomation(id);
    expected.stage = VoiceCaptureStage::executing(id);
    expectState("startAutomation");
    // A new proposal while executing replaces the old one and keeps the rest.
    coordinator.awaitAutomationConfirmation(id, "Close them again");
    expected.stage = VoiceCaptureStage::awaitingConfirmation(id);
    expected.proposedText = "Close them again";
    expectState("a second awaitAutomationConfirmation");
    coordinator.complete(id);
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
  }
}

TEST(OrvidTranscriptionCoordinatorTest, BeginRecordingStartsAFreshRecordOnlyFromIdleOrFailed) {
  for (const auto& [start, name] : kStarts) {
    for (bool sameID : {false, true}) {
      SCOPED_TRACE(name + (sameID ? ", same id" : ", new id"));
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

TEST(OrvidTranscriptionCoordinatorTest, StepsOfAnotherOrAFinishedRequestThrowRequestMismatchAndChangeNothing) {
  for (const auto& [stepName, step] : kRequestSteps) {
    for (const auto& [start, name] : kStarts) {
      // A foreign identifier everywhere; the old identifier once its request has ended.
      for (bool owner : {false, true}) {
        if (owner && ownsWorkflow(start)) continue;
        SCOPED_TRACE(stepName + " from " + name + (owner ? " with the old id" : " with a foreign id"));
        OrvidTranscriptionCoordinator coordinator;
        const UUID ownerID = UUID::random();
        driveTo(coordinator, start, ownerID);
        const Snapshot before = coordinator.snapshot();

        EXPECT_EQ(errorOf([&] { step(coordinator, owner ? ownerID : UUID::random()); }),
                  OrvidError::Case::requestMismatch);
        EXPECT_EQ(coordinator.snapshot(), before);
      }
    }
  }
}

TEST(OrvidTranscriptionCoordinatorTest, StepsOfTheActiveRequestFollowTheStageTable) {
  // The active stages each step accepts; the others throw invalidTransition.
  const std::vector<Start> any = {Start::recording, Start::transcribing, Start::processing, Start::awaiting,
                                  Start::executing};
  const std::map<std::string, std::vector<Start>> accepted = {
      {"finishRecording", {Start::recording}},
      {"startProcessing", {Start::transcribing}},
      {"awaitAutomationConfirmation", any},
      {"startAutomation", {Start::awaiting}},
      {"complete", any},
  };
  for (const auto& [stepName, step] : kRequestSteps) {
    for (Start start : any) {
      SCOPED_TRACE(stepName + " from stage " + std::to_string(static_cast<int>(start)));
      OrvidTranscriptionCoordinator coordinator;
      const UUID owner = UUID::random();
      driveTo(coordinator, start, owner);
      const Snapshot before = coordinator.snapshot();

      auto error = errorOf([&] { step(coordinator, owner); });

      const auto& allowed = accepted.at(stepName);
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

TEST(OrvidTranscriptionCoordinatorTest, FailFromAnyStageKeepsTheTextsAndClearsTheProgressLine) {
  for (const auto& [start, name] : kStarts) {
    for (bool withID : {true, false}) {
      SCOPED_TRACE(name + (withID ? " with id" : " without id"));
      OrvidTranscriptionCoordinator coordinator;
      const UUID owner = UUID::random();
      driveTo(coordinator, start, owner);
      const std::optional<UUID> failedID = withID ? std::optional<UUID>(owner) : std::nullopt;
      OrvidExecutionState expected = coordinator.currentState();

      coordinator.fail(failedID, "Network down");

      expected.stage = VoiceCaptureStage::failed(failedID, "Network down");
      expected.progressMessage.reset();
      expected.errorMessage = "Network down";
      EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, std::nullopt}));
    }
  }
}

TEST(OrvidTranscriptionCoordinatorTest, CancelReturnsToIdleFromAnyStageWithoutThrowing) {
  for (const auto& [start, name] : kStarts) {
    SCOPED_TRACE(name);
    OrvidTranscriptionCoordinator coordinator;
    driveTo(coordinator, start, UUID::random());
    for (int twice = 0; twice < 2; ++twice) {
      EXPECT_NO_THROW(coordinator.cancel());
      EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
    }
  }
}

// Texts in the concurrent test carry the request that wrote them, so that a state
// mixing two transitions shows.
std::string tag(const char* what, const std::optional<UUID>& id) {
  return std::string(what) + ":" + (id ? id->uuidString() : "none");
}

// The first broken rule of a snapshot; empty when whole.
std::string violationIn(const Snapshot& snapshot) {
  const auto& [state, active] = snapshot;
  const auto& stage = state.stage;
  const bool holdsRequest = stage.kind != Kind::idle && stage.kind != Kind::failed;
  if (holdsRequest ? active != stage.requestID : active.has_value()) return "active request differs from the stage";
  if ((stage.kind == Kind::failed) != state.errorMessage.has_value()) return "error message outside failed";
  if (stage.kind == Kind::failed && *state.errorMessage != tag("failed", stage.requestID)) return "foreign failure";
  if (stage.kind == Kind::processing && state.recognizedText != tag("heard", stage.requestID)) {
    return "processing without its transcript";
  }
  if ((stage.kind == Kind::awaitingConfirmation || stage.kind == Kind::executing) &&
      state.proposedText != tag("proposal", stage.requestID)) {
    return "proposal stage without its proposal";
  }
  if (state.executionOutput != state.deliveredText) return "host texts of two updates";
  return {};
}

TEST(OrvidTranscriptionCoordinatorTest, ConcurrentStepsNeverLeaveAHalfMadeTransition) {
  constexpr int kThreads = 4;
  constexpr int kSteps = 400;
  OrvidTranscriptionCoordinator coordinator;
  const std::vector<UUID> ids = {UUID::random(), UUID::random()};
  std::atomic<int> movedRequests{0};
  std::latch ready(kThreads);
  std::vector<std::string> problems(kThreads);
  {
    std::vector<std::jthread> workers;
    for (int t = 0; t < kThreads; ++t) {
      workers.emplace_back([&, t] {
        std::mt19937 random(static_cast<unsigned>(t));
        ready.arrive_and_wait();
        for (int i = 0; i < kSteps && problems[t].empty(); ++i) {
          const UUID& id = ids[random() % ids.size()];
          try {
            const auto operation = random() % 8;
            switch (operation) {
              case 0: coordinator.beginRecording(id, VoiceCapturePurpose::automation); break;
              case 1: coordinator.finishRecording(id); break;
              case 2: coordinator.startProcessing(id, tag("heard", id), tag("clean", id)); break;
              case 3: coordinator.awaitAutomationConfirmation(id, tag("proposal", id)); break;
              case 4: coordinator.startAutomation(id); break;
              case 5: coordinator.complete(id); break;
              case 6: coordinator.fail(id, tag("failed", id)); break;
              default: coordinator.updateHostTexts("host", std::to_string(i), std::to_string(i)); break;
            }
            if (operation >= 1 && operation <= 5) ++movedRequests;
          } catch (const OrvidError&) {
          }
          problems[t] = violationIn(coordinator.snapshot());
        }
      });
    }
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(problems[t], "") << "thread " << t;
  EXPECT_GT(movedRequests.load(), 0);
}

}  // namespace
}  // namespace orvid
