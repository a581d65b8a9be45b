// Deepgram real-time transcription end to end: the provider over the Beast transport
// against a replica of the live service on loopback wss, well behaved or faulty.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/transcription/realtime/deepgram_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/realtime_loopback_test_support.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::LoopbackWebSocketServer;
using testing::ReplicaDictation;
using testing::ReplicaFault;

std::string results(const std::string& transcript, bool isFinal, double start) {
  return nlohmann::json{{"type", "Results"},
                        {"channel_index", {0, 1}},
                        {"duration", 0.5},
                        {"start", start},
                        {"is_final", isFinal},
                        {"speech_final", isFinal},
                        {"channel",
                         {{"alternatives",
                           {{{"transcript", transcript}, {"confidence", 0.93}, {"words", nlohmann::json::array()}}}}}},
                        {"metadata", {{"request_id", "req-dg"}, {"model_info", {{"name", "general-nova-3"}}}}},
                        {"from_finalize", false}}
      .dump();
}

// After the close request the service sends what it still holds, in its documented
// shapes: an interim hypothesis, a final segment, the same segment restated, a
// speech-started event, a revised interim, an empty final, the last final, an
// utterance end and the metadata, then closes the socket normally.
void serveDeepgram(LoopbackWebSocketServer::Peer& peer, ReplicaDictation& dictation, ReplicaFault fault) {
  if (fault == ReplicaFault::refuseUpgrade) {
    peer.reject(401, R"({"err_code":"INVALID_AUTH","err_msg":"Invalid credentials: )" + dictation.authorization + "\"}");
    return;
  }
  while (auto message = dictation.receive(peer)) {
    if (!message->text || nlohmann::json::parse(message->payload).value("type", "") != "CloseStream") continue;
    peer.sendText(results("hello", false, 0));
    peer.sendText(results("Hello world.", true, 0));
    if (fault == ReplicaFault::neverAcknowledges || fault == ReplicaFault::cancelledByClient) return;
    if (fault == ReplicaFault::closeBeforeFinal) return peer.close(1011);
    if (fault == ReplicaFault::errorEvent) {
      peer.sendText(R"({"type":"Error","description":"Failed to process audio, Token )" +
                    std::string(testing::kReplicaKey) + R"(","message":"","variant":"NET-0001"})");
      return peer.close(1011);
    }
    peer.sendText(results("Hello world.", true, 0));
    peer.sendText(R"({"type":"SpeechStarted","channel":[0],"timestamp":0.5})");
    peer.sendText(results("how are", false, 0.5));
    peer.sendText(results("", true, 0.5));
    peer.sendText(results("How are you?", true, 0.5));
    peer.sendText(R"({"type":"UtteranceEnd","channel":[0,1],"last_word_end":0.9})");
    peer.sendText(R"({"type":"Metadata","transaction_key":"deprecated","request_id":"req-dg","duration":0.5,"channels":1})");
    return peer.close(1000);
  }
}

TEST(DeepgramRealtimeTranscriptionLoopbackTest, StreamsRawAudioAndEndsEachFaultWithTheOutcomeDueAndNoThreadLeft) {
  struct FaultCase {
    ReplicaFault fault;
    std::chrono::milliseconds deadline;  // the caller's, given to finish()
    std::string finishEnds;
    std::vector<std::string> partials;
    std::string streamEnds;
  };
  const std::vector<FaultCase> cases = {
      {ReplicaFault::none,
       3s,
       "Hello world. How are you?",
       {"hello", "Hello world.", "Hello world.", "Hello world. how are", "Hello world. How are you?"},
       "ended"},
      // A socket that ends before the last result ends the session with the text so far.
      {ReplicaFault::closeBeforeFinal, 3s, "Hello world.", {"hello", "Hello world."}, "ended"},
      {ReplicaFault::errorEvent, 3s, "Hello world.", {"hello", "Hello world."}, "ended"},
      // The service never closes after the close request: the caller's deadline ends the wait.
      {ReplicaFault::neverAcknowledges, 300ms, "cancelled", {"hello", "Hello world."}, "ended"},
      {ReplicaFault::refuseUpgrade, 3s, "refused 401", {}, ""},
      {ReplicaFault::cancelledByClient, 3s, "cancelled", {"hello"}, "ended"},
  };
  for (const FaultCase& expected : cases) {
    SCOPED_TRACE(faultName(expected.fault));
    const int threadsBefore = testing::threadCount();
    {
      testing::RealtimeServiceReplica replica(
          [fault = expected.fault](auto& peer, auto& dictation) { serveDeepgram(peer, dictation, fault); }, true);
      DeepgramRealtimeTranscriptionProvider provider(
          *URL::parse(replica.url("/v1")), "deepgram", "nova-3",
          {{"smart_format", TranscriptionProviderOptionValue::boolean(true)}},
          testing::RealtimeServiceReplica::credentials("deepgram"), replica.connector());
      RealtimeTranscriptionStartRequest request;
      request.languageRoute.providerLanguage = "en";
      request.promptHint = "not sent";
      const auto outcome = testing::dictate(provider, request, testing::halfASecondAt48kHz(), expected.deadline,
                                            expected.fault == ReplicaFault::cancelledByClient);

      EXPECT_EQ(outcome.finished.how, expected.finishEnds);
      EXPECT_EQ(outcome.partials, expected.partials);
      EXPECT_EQ(outcome.streamed.how, expected.streamEnds);
      EXPECT_LT(outcome.took, expected.deadline + 1s);
      for (const std::string& text : outcome.errorTexts()) EXPECT_TRUE(testing::isFreeOfSecrets(text)) << text;

      auto dictation = replica.dictation();
      ASSERT_TRUE(dictation) << "the replica's handler still runs";
      EXPECT_EQ(dictation->target,
                "/v1/listen?model=nova-3&encoding=linear16&sample_rate=16000&channels=1&interim_results=true"
                "&language=en&smart_format=true");
      EXPECT_EQ(dictation->authorization, std::string("Token ") + testing::kReplicaKey);
      if (expected.fault == ReplicaFault::refuseUpgrade) continue;
      ASSERT_FALSE(dictation->messages.empty());
      std::size_t audioBytes = 0;
      for (std::size_t i = 0; i + 1 < dictation->messages.size(); ++i) {
        EXPECT_FALSE(dictation->messages[i].text) << "no opening event, only audio before the close request";
        audioBytes += dictation->messages[i].payload.size();
      }
      EXPECT_EQ(audioBytes, 5u * 1600 * 2);  // 16 kHz samples of 16-bit audio
      EXPECT_EQ(dictation->messages.back().payload, R"({"type":"CloseStream"})");
    }
    EXPECT_EQ(testing::threadCount(), threadsBefore);
  }
}

}  // namespace
}  // namespace orvid
