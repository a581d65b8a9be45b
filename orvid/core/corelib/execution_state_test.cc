#include "orvid/core/corelib/execution_state.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

using nlohmann::json;

const UUID kRequest = UUID::parse("0C5C7A3E-2B7F-4D1E-9A51-3F0C2E9D4B11").value();

TEST(OrvidExecutionStateTest, HostReadsEachStageByKindWithItsPayload) {
  struct Case { VoiceCaptureStage stage; std::string expected; };
  const std::string id = R"("requestID":"0C5C7A3E-2B7F-4D1E-9A51-3F0C2E9D4B11")";
  const std::vector<Case> cases = {
      {VoiceCaptureStage::idle(), R"({"kind":"idle"})"},
      {VoiceCaptureStage::recording(kRequest, VoiceCapturePurpose::dictation),
       R"({"kind":"recording",)" + id + R"(,"purpose":"dictation"})"},
      {VoiceCaptureStage::transcribing(kRequest, VoiceCapturePurpose::automation),
       R"({"kind":"transcribing",)" + id + R"(,"purpose":"automation"})"},
      {VoiceCaptureStage::processing(kRequest, VoiceCapturePurpose::automation),
       R"({"kind":"processing",)" + id + R"(,"purpose":"automation"})"},
      {VoiceCaptureStage::awaitingConfirmation(kRequest), R"({"kind":"awaitingConfirmation",)" + id + "}"},
      {VoiceCaptureStage::executing(kRequest), R"({"kind":"executing",)" + id + "}"},
      {VoiceCaptureStage::inserting(kRequest), R"({"kind":"inserting",)" + id + "}"},
      {VoiceCaptureStage::failed(kRequest, "Network down"),
       R"({"kind":"failed",)" + id + R"(,"message":"Network down"})"},
      {VoiceCaptureStage::failed(std::nullopt, ""), R"({"kind":"failed","message":""})"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.expected);
    OrvidExecutionState state;
    state.stage = testCase.stage;
    const json expected = json::parse(R"({"stage":)" + testCase.expected + "}");
    EXPECT_EQ(json(state), expected);
    EXPECT_EQ(expected.get<OrvidExecutionState>(), state);
  }
}

TEST(OrvidExecutionStateTest, DecodingRejectsUnknownStagesAndPurposes) {
  for (const char* document : {R"({"stage":{"kind":"paused"}})",
                               R"({"stage":{"kind":"recording","purpose":"karaoke"}})", R"({})"}) {
    EXPECT_THROW(json::parse(document).get<OrvidExecutionState>(), json::exception) << document;
  }
}

}  // namespace
}  // namespace orvid
