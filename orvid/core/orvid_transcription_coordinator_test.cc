#include "orvid/core/orvid_transcription_coordinator.h"

#include <functional>
#include <latch>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

using Kind = VoiceCaptureStage::Kind;
using Snapshot = OrvidTranscriptionCoordinator::Snapshot;
using Case = OrvidError::Case;

enum class Start { idle, recording, transcribing, processing, awaiting, executing, completed, failed, failedNoID };

// Drives `coordinator` to `start` for request `owner` through the public operations only.
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

const std::map<std::string, std::function<void(OrvidTranscriptionCoordinator&, const UUID&)>> kSteps = {
    {"beginRecording", [](auto& c, const UUID& id) { c.beginRecording(id, VoiceCapturePurpose::dictation); }},
    {"finishRecording", [](auto& c, const UUID& id) { c.finishRecording(id); }},
    {"startProcessing", [](auto& c, const UUID& id) { c.startProcessing(id, "r", "c"); }},
    {"awaitAutomationConfirmation", [](auto& c, const UUID& id) { c.awaitAutomationConfirmation(id, "p"); }},
    {"startAutomation", [](auto& c, const UUID& id) { c.startAutomation(id); }},
    {"complete", [](auto& c, const UUID& id) { c.complete(id); }},
};

TEST(OrvidTranscriptionCoordinatorTest, WalksThePipelineOrderKeepingTheTextsAndThePurpose) {
  OrvidTranscriptionCoordinator coordinator;
  const UUID id = UUID::random();
  coordinator.beginRecording(id, VoiceCapturePurpose::dictation);
  coordinator.updateHostTexts("progress", "output", "delivered");
  coordinator.finishRecording(id);
  coordinator.startProcessing(id, "open the pod bay", "Open the pod bay.");
  OrvidExecutionState expected;
  expected.stage = VoiceCaptureStage::processing(id, VoiceCapturePurpose::dictation);
  expected.progressMessage = "progress";
  expected.executionOutput = "output";
  expected.deliveredText = "delivered";
  expected.recognizedText = "open the pod bay";
  expected.cleanedText = "Open the pod bay.";
  EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));
  coordinator.awaitAutomationConfirmation(id, "Open the pod bay doors");
  coordinator.startAutomation(id);
  expected.stage = VoiceCaptureStage::executing(id);
  expected.proposedText = "Open the pod bay doors";
  EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, id}));
  coordinator.complete(id);
  EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
}

TEST(OrvidTranscriptionCoordinatorTest, StepsFollowTheStageTableAndARefusedStepChangesNothing) {
  const std::vector<std::tuple<std::string, Start, bool, std::optional<Case>>> rows = {
      {"beginRecording", Start::failedNoID, true, std::nullopt},
      {"beginRecording", Start::processing, true, Case::busy},
      {"finishRecording", Start::recording, false, std::nullopt},
      {"finishRecording", Start::transcribing, false, Case::invalidTransition},
      {"startProcessing", Start::transcribing, false, std::nullopt},
      {"startAutomation", Start::processing, false, Case::invalidTransition},
      {"startAutomation", Start::awaiting, false, std::nullopt},
      {"awaitAutomationConfirmation", Start::executing, false, std::nullopt},
      {"complete", Start::recording, true, Case::requestMismatch},
      {"complete", Start::completed, false, Case::requestMismatch},
  };
  for (const auto& [step, start, foreignID, error] : rows) {
    SCOPED_TRACE(step + " from stage " + std::to_string(static_cast<int>(start)));
    OrvidTranscriptionCoordinator coordinator;
    const UUID owner = UUID::random();
    driveTo(coordinator, start, owner);
    const Snapshot before = coordinator.snapshot();
    const UUID id = foreignID ? UUID::random() : owner;
    EXPECT_EQ(testing::thrownCase<OrvidError>([&] { kSteps.at(step)(coordinator, id); }), error);
    EXPECT_EQ(coordinator.snapshot() == before, error.has_value());
  }
}

TEST(OrvidTranscriptionCoordinatorTest, FailKeepsTheTextsAndCancelReturnsToIdleFromAnyStage) {
  for (Start start : {Start::idle, Start::recording, Start::awaiting, Start::completed, Start::failed}) {
    OrvidTranscriptionCoordinator coordinator;
    const UUID owner = UUID::random();
    driveTo(coordinator, start, owner);
    const std::optional<UUID> failedID = start == Start::awaiting ? std::nullopt : std::optional<UUID>(owner);
    OrvidExecutionState expected = coordinator.currentState();
    coordinator.fail(failedID, "Network down");
    expected.stage = VoiceCaptureStage::failed(failedID, "Network down");
    expected.progressMessage.reset();
    expected.errorMessage = "Network down";
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{expected, std::nullopt}));
    EXPECT_NO_THROW(coordinator.cancel());
    EXPECT_EQ(coordinator.snapshot(), (Snapshot{OrvidExecutionState::idle(), std::nullopt}));
  }
}

// Texts carry the request that wrote them, so that a state mixing two transitions shows.
std::string tag(const char* what, const std::optional<UUID>& id) {
  return std::string(what) + ":" + (id ? id->uuidString() : "none");
}

std::string violationIn(const Snapshot& snapshot) {
  const auto& [state, active] = snapshot;
  const auto& stage = state.stage;
  const bool holdsRequest = stage.kind != Kind::idle && stage.kind != Kind::failed;
  if (holdsRequest ? active != stage.requestID : active.has_value()) return "active request differs from the stage";
  if ((stage.kind == Kind::failed) != state.errorMessage.has_value()) return "error message outside failed";
  if (stage.kind == Kind::failed && *state.errorMessage != tag("failed", stage.requestID)) return "foreign failure";
  if (stage.kind == Kind::processing && state.recognizedText != tag("heard", stage.requestID)) return "no transcript";
  const bool proposing = stage.kind == Kind::awaitingConfirmation || stage.kind == Kind::executing;
  if (proposing && state.proposedText != tag("proposal", stage.requestID)) return "no proposal";
  if (state.executionOutput != state.deliveredText) return "host texts of two updates";
  return {};
}

TEST(OrvidTranscriptionCoordinatorTest, ConcurrentStepsNeverLeaveAHalfMadeTransition) {
  constexpr int kThreads = 4;
  OrvidTranscriptionCoordinator coordinator;
  const std::vector<UUID> ids = {UUID::random(), UUID::random()};
  std::latch ready(kThreads);
  std::vector<std::string> problems(kThreads);
  {
    std::vector<std::jthread> workers;
    for (int t = 0; t < kThreads; ++t) {
      workers.emplace_back([&, t] {
        std::mt19937 random(static_cast<unsigned>(t));
        ready.arrive_and_wait();
        for (int i = 0; i < 400 && problems[t].empty(); ++i) {
          const UUID& id = ids[random() % ids.size()];
          try {
            switch (random() % 8) {
              case 0: coordinator.beginRecording(id, VoiceCapturePurpose::automation); break;
              case 1: coordinator.finishRecording(id); break;
              case 2: coordinator.startProcessing(id, tag("heard", id), tag("clean", id)); break;
              case 3: coordinator.awaitAutomationConfirmation(id, tag("proposal", id)); break;
              case 4: coordinator.startAutomation(id); break;
              case 5: coordinator.complete(id); break;
              case 6: coordinator.fail(id, tag("failed", id)); break;
              default: coordinator.updateHostTexts("host", std::to_string(i), std::to_string(i)); break;
            }
          } catch (const OrvidError&) {
          }
          problems[t] = violationIn(coordinator.snapshot());
        }
      });
    }
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(problems[t], "") << "thread " << t;
}

}  // namespace
}  // namespace orvid
