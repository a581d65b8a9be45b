// Soniox real-time transcription end to end: the provider over the Beast transport
// against a replica of the service on loopback ws and wss, well behaved or faulty.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/transcription/realtime/realtime_loopback_test_support.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_provider.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::LoopbackWebSocketServer;
using testing::ReplicaDictation;
using testing::ReplicaFault;

// The service's answer to the end of the audio, in its documented shapes: final
// and tentative tokens with timings, a tentative token revised, an empty result,
// the "<fin>" marker, then "finished".
const char* const kRevisedTokens =
    R"({"tokens":[{"text":"Hel","start_ms":0,"end_ms":90,"confidence":0.97,"is_final":true,"language":"en"},)"
    R"({"text":"lo","start_ms":90,"end_ms":200,"confidence":0.95,"is_final":true,"language":"en"},)"
    R"({"text":" wor","start_ms":300,"end_ms":380,"confidence":0.61,"is_final":false,"language":"en"}],)"
    R"("final_audio_proc_ms":240,"total_audio_proc_ms":480})";

void serveSoniox(LoopbackWebSocketServer::Peer& peer, ReplicaDictation& dictation, ReplicaFault fault) {
  if (fault == ReplicaFault::refuseUpgrade) {
    peer.reject(401, std::string(R"({"error_code":401,"error_message":"Invalid API key: )") + dictation.authorization +
                         R"("})");
    return;
  }
  while (auto message = dictation.receive(peer)) {
    if (message->text || !message->payload.empty()) continue;
    // The empty binary frame: the end of the audio.
    peer.sendText(kRevisedTokens);
    switch (fault) {
      case ReplicaFault::closeBeforeFinal:
        peer.close(1011);
        return;
      case ReplicaFault::errorEvent:
        peer.sendText(R"({"error_type":"invalid_request","error_message":"Bad config, api_key=)" +
                      std::string(testing::kReplicaKey) + R"(","request_id":"req-7"})");
        peer.close(1008);
        return;
      case ReplicaFault::neverAcknowledges:
      case ReplicaFault::cancelledByClient:
        return;
      default:
        break;
    }
    peer.sendText(R"({"tokens":[{"text":" world","is_final":false,"language":"en"}],"total_audio_proc_ms":500})");
    peer.sendText(R"({"tokens":[],"final_audio_proc_ms":400,"total_audio_proc_ms":500})");
    peer.sendText(R"({"tokens":[{"text":" world.","is_final":true,"language":"en"},)"
                  R"({"text":"<fin>","is_final":true}],"final_audio_proc_ms":500,"total_audio_proc_ms":500})");
    peer.sendText(R"({"tokens":[],"final_audio_proc_ms":500,"total_audio_proc_ms":500,"finished":true})");
  }
}

TEST(SonioxRealtimeTranscriptionLoopbackTest, StreamsRawAudioAndEndsEachFaultWithTheOutcomeDueAndNoThreadLeft) {
  struct FaultCase {
    ReplicaFault fault;
    std::string finishEnds;
    std::vector<std::string> partials;
    std::string streamEnds;
  };
  const std::string serverError = "Soniox realtime error [invalid_request] (request req-7): Bad config, api_key=[REDACTED]";
  const std::string timedOut = "Soniox realtime finalization timed out.";
  const std::vector<FaultCase> cases = {
      {ReplicaFault::none, "Hello world.", {"Hello wor", "Hello world", "Hello world.", "Hello world."},
       "ended"},
      {ReplicaFault::closeBeforeFinal, "closed 1011", {"Hello wor"}, "closed 1011"},
      {ReplicaFault::errorEvent, serverError, {"Hello wor"}, serverError},
      {ReplicaFault::neverAcknowledges, timedOut, {"Hello wor"}, timedOut},
      {ReplicaFault::refuseUpgrade, "refused 401", {}, ""},
      {ReplicaFault::cancelledByClient, "cancelled", {"Hello wor"}, "ended"},
  };
  for (bool tls : {false, true}) {
    for (const FaultCase& expected : cases) {
      SCOPED_TRACE(std::string(faultName(expected.fault)) + (tls ? " over wss" : " over ws"));
      const int threadsBefore = testing::threadCount();
      {
        testing::RealtimeServiceReplica replica(
            [fault = expected.fault](auto& peer, auto& dictation) { serveSoniox(peer, dictation, fault); }, tls);
        SonioxRealtimeTranscriptionProvider provider(
            *URL::parse(replica.url("/transcribe-websocket")), "soniox", "stt-rt-v4",
            {{"enable_language_identification", TranscriptionProviderOptionValue::boolean(true)}},
            testing::RealtimeServiceReplica::credentials("soniox"), replica.connector(), 300ms);
        RealtimeTranscriptionStartRequest request;
        request.languageRoute.providerLanguageHints = {"en", "de"};
        const auto outcome = testing::dictate(provider, request, testing::halfASecondAt48kHz(), 5s,
                                              expected.fault == ReplicaFault::cancelledByClient);

        EXPECT_EQ(outcome.finished.how, expected.finishEnds);
        EXPECT_EQ(outcome.partials, expected.partials);
        EXPECT_EQ(outcome.streamed.how, expected.streamEnds);
        EXPECT_LT(outcome.took, 3s);
        for (const std::string& text : outcome.errorTexts()) EXPECT_TRUE(testing::isFreeOfSecrets(text)) << text;

        auto dictation = replica.dictation();
        ASSERT_TRUE(dictation) << "the replica's handler still runs";
        EXPECT_EQ(dictation->target, "/transcribe-websocket");
        EXPECT_EQ(dictation->authorization, std::string("Bearer ") + testing::kReplicaKey);
        if (expected.fault == ReplicaFault::refuseUpgrade) continue;
        ASSERT_GE(dictation->messages.size(), 2u);
        ASSERT_TRUE(dictation->messages.front().text);
        const auto start = nlohmann::json::parse(dictation->messages.front().payload);
        EXPECT_EQ(start["model"], "stt-rt-v4");
        EXPECT_EQ(start["audio_format"], "pcm_s16le");
        EXPECT_EQ(start["sample_rate"], 16000);
        EXPECT_EQ(start["num_channels"], 1);
        EXPECT_EQ(start["language_hints"], nlohmann::json({"en", "de"}));
        EXPECT_EQ(start["enable_language_identification"], true);
        std::size_t audioBytes = 0;
        for (std::size_t i = 1; i < dictation->messages.size(); ++i) {
          EXPECT_FALSE(dictation->messages[i].text);
          audioBytes += dictation->messages[i].payload.size();
        }
        EXPECT_EQ(audioBytes, 5u * 1600 * 2);  // 16 kHz samples of 16-bit audio
        EXPECT_TRUE(dictation->messages.back().payload.empty()) << "the audio ends with an empty frame";
      }
      EXPECT_EQ(testing::threadCount(), threadsBefore);
    }
  }
}

}  // namespace
}  // namespace orvid
