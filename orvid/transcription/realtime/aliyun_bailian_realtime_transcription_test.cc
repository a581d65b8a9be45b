#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/testing/fake_websocket_connector.h"
#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/aliyun_realtime_support.h"

namespace orvid {
namespace {

const InMemoryOrvidCredentialStore kStore{{"provider.aliyun-bailian.api-key", "k"}};

TEST(AliyunRealtimeSupportTest, PicksTheProtocolAndTheEndpointFromTheModel) {
  struct Case {
    std::string baseURL;
    std::string modelID;
    std::string url;  // and the protocol: the task protocol for /inference
  };
  const std::vector<Case> cases = {
      {"https://dashscope.aliyuncs.com/api-ws/v1/realtime", "paraformer-realtime-v2",
       "wss://dashscope.aliyuncs.com/api-ws/v1/inference"},
      {"https://dashscope.aliyuncs.com/compatible-mode/v1?x=1", "  Fun-ASR-Realtime ",
       "wss://dashscope.aliyuncs.com/api-ws/v1/inference"},
      {"ws://host:81/api-ws/v1/inference?workspace=w", "fun-asr-realtime", "wss://host:81/api-ws/v1/inference?workspace=w"},
      {"https://dashscope.aliyuncs.com/compatible-mode/v1", " qwen3-asr-flash-realtime ",
       "wss://dashscope.aliyuncs.com/api-ws/v1/realtime?model=qwen3-asr-flash-realtime"},
      {"wss://host/api-ws/v1/realtime?model=x", "qwen3-asr-flash-realtime", "wss://host/api-ws/v1/realtime?model=x"},
      {"wss://host/api-ws/v1/realtime?a=1", "q", "wss://host/api-ws/v1/realtime?a=1&model=q"},
  };
  for (const Case& c : cases) {
    auto [request, kind] = AliyunRealtimeSupport::websocketRequest(*URL::parse(c.baseURL), "aliyun-bailian", c.modelID, kStore);
    EXPECT_EQ(request.url.absoluteString(), c.url);
    EXPECT_EQ(kind.isFun(), c.url.find("/inference") != std::string::npos) << c.modelID;
    EXPECT_EQ(kind.taskID.size(), kind.isFun() ? 32u : 0u);
    EXPECT_EQ(request.headerValue("Authorization"), "Bearer k");
  }
}

TEST(AliyunRealtimeSupportTest, StartMessagesCarryOnlyTheLanguagesAndModelThatApply) {
  const auto hints = [](std::vector<std::string> given) {
    return nlohmann::json::parse(AliyunRealtimeSupport::runTask("t", "m", given, 16000))["payload"]["parameters"];
  };
  EXPECT_EQ(hints({"auto", " zh-Hans ", "en", "en"})["language_hints"], nlohmann::json({"zh", "en", "en"}));
  EXPECT_FALSE(hints({" ", "auto"}).contains("language_hints"));

  const auto transcription = [](std::string model, std::optional<std::string> language) {
    return nlohmann::json::parse(AliyunRealtimeSupport::sessionUpdate(model, language, 16000))["session"]
                                                                                              ["input_audio_transcription"];
  };
  EXPECT_EQ(transcription("Qwen-Omni-Turbo-Realtime", "auto"), nlohmann::json({{"model", "qwen3-asr-flash-realtime"}}));
  EXPECT_EQ(transcription("qwen3-asr-flash-realtime", "zh-Hant"), nlohmann::json({{"language", "zh"}}));
  EXPECT_EQ(transcription("qwen3-asr-flash-realtime", std::nullopt), nlohmann::json::object());
  EXPECT_EQ(AliyunRealtimeSupport::sampleRate("paraformer-realtime-8k-v2"), 8000);
}

TEST(AliyunBailianRealtimeTranscriptionSessionTest, HoldsAudioUntilTaskStartedAndFailsWithTheFixedTextWithoutAMessage) {
  auto connector = std::make_shared<testing::FakeWebSocketConnector>();
  auto connection = connector->prepareConnection();
  AliyunBailianRealtimeTranscriptionProvider provider(*URL::parse("wss://h/api-ws/v1/inference"), "aliyun-bailian",
                                                      "paraformer-realtime-8k-v2",
                                                      std::make_shared<InMemoryOrvidCredentialStore>(kStore), connector);
  auto session = provider.startSession({});
  session->appendPCM16({Bytes(320, 1), 16000, 1, 160});
  session->appendPCM16({Bytes(320, 2), 16000, 1, 160});
  ASSERT_EQ(connection->sentFrames().size(), 1u);
  connection->pushText(R"({"header":{"event":" Task-Started "},"payload":{}})");
  ASSERT_TRUE(connection->waitForSentFrames(3));
  const auto frames = connection->sentFrames();
  EXPECT_EQ(frames[1].payload, Bytes(160, 1));  // 8 kHz for an 8k model, in order
  EXPECT_EQ(frames[2].payload, Bytes(160, 2));
  connection->pushText(R"({"header":{"event":"task-failed","error_message":"x"},"payload":{}})");
  try {
    session->finish();
    ADD_FAILURE() << "finish() returned";
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "Aliyun fun ASR task failed.");
  }
}

}  // namespace
}  // namespace orvid
