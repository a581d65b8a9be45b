#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/testing/fake_websocket_connector.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/realtime/deepgram_realtime_support.h"
#include "orvid/transcription/realtime/deepgram_realtime_transcription_provider.h"

namespace orvid {
namespace {

using Option = TranscriptionProviderOptionValue;

const InMemoryOrvidCredentialStore kStore{{"provider.deepgram.api-key", "dg-key"}};

TEST(DeepgramRealtimeSupportTest, PutsEverySettingInTheSocketURL) {
  struct Case {
    std::string baseURL;
    std::optional<std::string> language;
    TranscriptionProviderOptions options;
    std::string url;
  };
  const std::string fixed = "model=nova-3&encoding=linear16&sample_rate=16000&channels=1&interim_results=true";
  const std::vector<Case> cases = {
      {"https://api.deepgram.com/v1/Listen?x=1", std::nullopt, {}, "wss://api.deepgram.com/v1/Listen?" + fixed},
      {"https://api.deepgram.com/v1/", "zh-Hans", {}, "wss://api.deepgram.com/v1/listen?" + fixed + "&language=zh"},
      {"http://localhost:8080", " auto ", {}, "wss://localhost:8080/listen?" + fixed},
      {"wss://api.deepgram.com/v1/listen", "en-US",
       {{"smart_format", Option::boolean(false)}, {"diarize", Option::text("true")}, {"punctuate", Option::boolean(true)}},
       "wss://api.deepgram.com/v1/listen?" + fixed + "&language=en-US&smart_format=false&punctuate=true"},
  };
  for (const Case& c : cases) {
    auto request = DeepgramRealtimeSupport::websocketRequest(*URL::parse(c.baseURL), "deepgram", "nova-3", c.language,
                                                             c.options, kStore);
    EXPECT_EQ(request.url.absoluteString(), c.url);
    EXPECT_EQ(request.headerValue("Authorization"), "Token dg-key");
  }
  EXPECT_EQ(testing::thrownCase<OrvidProviderError>([] {
              DeepgramRealtimeSupport::websocketRequest(*URL::parse("https://x.example"), "other", "nova-3",
                                                        std::nullopt, {}, kStore);
            }),
            OrvidProviderError::Case::missingCredential);
}

std::string results(std::string transcript, bool isFinal) {
  return nlohmann::json{{"type", "Results"},
                        {"is_final", isFinal},
                        {"channel", {{"alternatives", {{{"transcript", transcript}, {"confidence", 0.9}}}}}}}
      .dump();
}

TEST(DeepgramRealtimeTranscriptionSessionTest, MergesFinalSegmentsShowsInterimsMergedAndEndsWithTheSocket) {
  struct Case {
    std::vector<std::string> events;
    std::vector<TranscriptionPartialResult> partials;
    std::string result;
  };
  const std::vector<Case> cases = {
      {{results("hello world", true), results("how", false), results("how are you", true)},
       {{"hello world", true, std::nullopt}, {"hello world how", false, std::nullopt},
        {"hello world how are you", true, std::nullopt}},
       "hello world how are you"},
      {{R"({"type":"Results","channel":{"alternatives":[]},"is_final":true})", results("  ", true),
        R"({"type":"results","is_final":true,"channel":{"alternatives":[{"transcript":"x"}]}})",
        R"({"type":"Metadata","request_id":"r"})", "not json", results(" Done ", true)},
       {{"Done", true, std::nullopt}},
       "Done"},
      {{R"({"type":"Results","is_final":"final","channel":{"alternatives":[{"transcript":"a"}]}})"},
       {{"a", true, std::nullopt}},
       "a"},
  };
  for (const Case& c : cases) {
    auto connector = std::make_shared<testing::FakeWebSocketConnector>();
    auto connection = connector->prepareConnection();
    DeepgramRealtimeTranscriptionProvider provider(*URL::parse("https://api.deepgram.com/v1"), "deepgram", "nova-3", {},
                                                   std::make_shared<InMemoryOrvidCredentialStore>(kStore), connector);
    auto session = provider.startSession({});
    for (const std::string& event : c.events) connection->pushText(event);
    connection->pushError(OrvidWebSocketError::closedByPeer(1000));
    std::vector<TranscriptionPartialResult> partials;
    while (auto partial = session->partialResults().next()) partials.push_back(*partial);
    EXPECT_EQ(partials, c.partials);
    // The socket has ended: finish() answers at once, without sending.
    EXPECT_EQ(session->finish().text, c.result);
    EXPECT_TRUE(connection->sentFrames().empty());
  }
}

}  // namespace
}  // namespace orvid
