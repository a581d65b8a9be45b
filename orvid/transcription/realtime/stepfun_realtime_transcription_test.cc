#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/testing/fake_websocket_connector.h"
#include "orvid/transcription/realtime/stepfun_realtime_support.h"
#include "orvid/transcription/realtime/stepfun_realtime_transcription_provider.h"

namespace orvid {
namespace {

TEST(StepFunRealtimeSupportTest, SessionUpdateFallsBackToChineseAndSendsOnlyAGivenPrompt) {
  struct Case {
    std::optional<std::string> language;
    std::optional<std::string> prompt;
    nlohmann::json transcription;
  };
  const auto transcription = [](std::string language) {
    return nlohmann::json{{"model", "m"}, {"language", language}, {"enable_itn", true}, {"full_rerun_on_commit", true}};
  };
  const std::vector<Case> cases = {
      {std::nullopt, std::nullopt, transcription("zh")},
      {" auto ", "", transcription("zh")},
      {"zh-Hant", std::nullopt, transcription("zh")},
      {"en", " terms ", [&] {
         auto value = transcription("en");
         value["prompt"] = " terms ";
         return value;
       }()},
  };
  for (const Case& c : cases) {
    auto event = nlohmann::json::parse(StepFunRealtimeSupport::sessionUpdate("m", c.language, c.prompt));
    EXPECT_EQ(event["session"]["audio"]["input"]["transcription"], c.transcription);
  }
}

TEST(StepFunRealtimeTranscriptionSessionTest, HoldsAudioAndTheCommitUntilTheUpdateIsConfirmedThenKeepsTheirOrder) {
  auto connector = std::make_shared<testing::FakeWebSocketConnector>();
  auto connection = connector->prepareConnection();
  StepFunRealtimeTranscriptionProvider provider(
      *URL::parse("wss://api.stepfun.com/v1/realtime/asr/stream"), "stepfun", "stepaudio-2.5-asr",
      std::make_shared<InMemoryOrvidCredentialStore>(std::map<std::string, std::string>{{"provider.stepfun.api-key", "k"}}),
      connector);
  auto session = provider.startSession({});
  for (std::uint8_t sample = 1; sample <= 3; ++sample) session->appendPCM16({Bytes{sample, 0}, 16000, 1, 1});
  std::jthread finisher([&] { EXPECT_EQ(session->finish().text, "done"); });
  ASSERT_EQ(connection->sentFrames().size(), 1u);  // the update only
  connection->pushText(R"({"type":"session.updated"})");
  ASSERT_TRUE(connection->waitForSentFrames(5));
  connection->pushText(R"({"type":"conversation.item.input_audio_transcription.delta","delta":"hello"})");
  connection->pushText(R"({"type":"conversation.item.input_audio_transcription.completed","transcript":"  ","text":"done"})");
  finisher.join();

  std::vector<std::string> sent;
  for (const auto& frame : connection->sentFrames()) {
    auto event = nlohmann::json::parse(frame.text());
    sent.push_back(event["type"].get<std::string>() + (event.contains("audio") ? " " + event["audio"].get<std::string>() : ""));
  }
  EXPECT_EQ(sent, (std::vector<std::string>{"session.update", "input_audio_buffer.append AQA=",
                                            "input_audio_buffer.append AgA=", "input_audio_buffer.append AwA=",
                                            "input_audio_buffer.commit"}));
  std::vector<TranscriptionPartialResult> partials;
  while (auto partial = session->partialResults().next()) partials.push_back(*partial);
  EXPECT_EQ(partials, (std::vector<TranscriptionPartialResult>{{"hello", false, std::nullopt},
                                                               {"done", true, std::nullopt}}));
}

TEST(StepFunRealtimeTranscriptionSessionTest, AnErrorEventFailsFinishWithTheServiceTextOrAFixedOne) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"type":"error","message":"quota exceeded"})", "quota exceeded"},
      {R"({"type":"error","error":{"code":"x"}})", "StepFun realtime stream error."},
  };
  for (const auto& [event, message] : cases) {
    auto connector = std::make_shared<testing::FakeWebSocketConnector>();
    auto connection = connector->prepareConnection();
    StepFunRealtimeTranscriptionProvider provider(
        *URL::parse("wss://x.example"), "stepfun", "m",
        std::make_shared<InMemoryOrvidCredentialStore>(std::map<std::string, std::string>{{"provider.stepfun.api-key", "k"}}),
        connector);
    auto session = provider.startSession({});
    connection->pushText(event);
    try {
      session->finish();
      ADD_FAILURE() << "finish() returned";
    } catch (const std::exception& error) {
      EXPECT_EQ(std::string(error.what()), message);
    }
  }
}

}  // namespace
}  // namespace orvid
