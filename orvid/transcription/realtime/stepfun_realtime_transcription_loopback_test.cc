// StepFun real-time transcription end to end: the provider over the Beast transport
// against a replica of the service on loopback ws and wss, well behaved or faulty.
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/platform/base64.h"
#include "orvid/transcription/realtime/realtime_loopback_test_support.h"
#include "orvid/transcription/realtime/stepfun_realtime_transcription_provider.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::LoopbackWebSocketServer;
using testing::ReplicaDictation;
using testing::ReplicaFault;

// Announces the session, confirms the update (unless it never acknowledges), and
// answers the commit with a delta, a blank delta, a revised delta and the
// completed transcript.
void serveStepFun(LoopbackWebSocketServer::Peer& peer, ReplicaDictation& dictation, ReplicaFault fault) {
  if (fault == ReplicaFault::refuseUpgrade) {
    peer.reject(401, R"({"error":{"message":"invalid api key )" + dictation.authorization + "\"}}");
    return;
  }
  peer.sendText(R"({"event_id":"event_1","type":"session.created","session":{"id":"sess_1"}})");
  while (auto message = dictation.receive(peer)) {
    const auto event = nlohmann::json::parse(message->payload);
    const std::string type = event.value("type", "");
    if (type == "session.update" && fault != ReplicaFault::neverAcknowledges) {
      peer.sendText(R"({"event_id":"event_2","type":" session.updated ","session":{"id":"sess_1"}})");
    } else if (type == "input_audio_buffer.commit") {
      peer.sendText(R"({"event_id":"event_3","type":"input_audio_buffer.committed","item_id":"item_1"})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.delta","item_id":"item_1","delta":"Hello"})");
      if (fault == ReplicaFault::closeBeforeFinal) return peer.close(1011);
      if (fault == ReplicaFault::errorEvent) {
        peer.sendText(R"({"type":"error","code":"quota_exceeded","message":"quota exceeded for Bearer )" +
                      std::string(testing::kReplicaKey) + "\"}");
        continue;
      }
      if (fault == ReplicaFault::cancelledByClient) continue;
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.delta","item_id":"item_1","delta":" "})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.delta","item_id":"item_1","text":"Hello wor"})");
      peer.sendText(
          R"({"type":"conversation.item.input_audio_transcription.completed","item_id":"item_1","transcript":" ","text":"Hello world."})");
    }
  }
}

TEST(StepFunRealtimeTranscriptionLoopbackTest, HoldsAudioUntilConfirmedAndEndsEachFaultWithTheOutcomeDue) {
  struct FaultCase {
    ReplicaFault fault;
    std::chrono::milliseconds deadline;  // the caller's, given to finish()
    std::string finishEnds;
    std::vector<std::string> partials;
    std::string streamEnds;
  };
  const std::string serviceError = "quota exceeded for Bearer [REDACTED]";
  const std::vector<FaultCase> cases = {
      {ReplicaFault::none, 3s, "Hello world.", {"Hello", "Hello wor", "Hello world."}, "ended"},
      {ReplicaFault::closeBeforeFinal, 3s, "closed 1011", {"Hello"}, "closed 1011"},
      {ReplicaFault::errorEvent, 3s, serviceError, {"Hello"}, serviceError},
      // Unconfirmed: the audio and the commit stay held until the caller's deadline.
      {ReplicaFault::neverAcknowledges, 300ms, "cancelled", {}, "ended"},
      {ReplicaFault::refuseUpgrade, 3s, "refused 401", {}, ""},
      {ReplicaFault::cancelledByClient, 3s, "cancelled", {"Hello"}, "ended"},
  };
  for (bool tls : {false, true}) {
    for (const FaultCase& expected : cases) {
      SCOPED_TRACE(std::string(faultName(expected.fault)) + (tls ? " over wss" : " over ws"));
      const int threadsBefore = testing::threadCount();
      {
        testing::RealtimeServiceReplica replica(
            [fault = expected.fault](auto& peer, auto& dictation) { serveStepFun(peer, dictation, fault); }, tls);
        StepFunRealtimeTranscriptionProvider provider(*URL::parse(replica.url("/v1/realtime/asr/stream?x=1")),
                                                      "stepfun", "stepaudio-2.5-asr",
                                                      testing::RealtimeServiceReplica::credentials("stepfun"),
                                                      replica.connector());
        RealtimeTranscriptionStartRequest request;
        request.languageRoute.providerLanguage = "zh-Hans";
        request.promptHint = "Orvid";
        const auto outcome = testing::dictate(provider, request, testing::halfASecondAt48kHz(), expected.deadline,
                                              expected.fault == ReplicaFault::cancelledByClient);

        EXPECT_EQ(outcome.finished.how, expected.finishEnds);
        EXPECT_EQ(outcome.partials, expected.partials);
        EXPECT_EQ(outcome.streamed.how, expected.streamEnds);
        EXPECT_LT(outcome.took, expected.deadline + 1s);
        for (const std::string& text : outcome.errorTexts()) EXPECT_TRUE(testing::isFreeOfSecrets(text)) << text;

        auto dictation = replica.dictation();
        ASSERT_TRUE(dictation) << "the replica's handler still runs";
        EXPECT_EQ(dictation->target, "/v1/realtime/asr/stream?x=1");
        EXPECT_EQ(dictation->authorization, std::string("Bearer ") + testing::kReplicaKey);
        if (expected.fault == ReplicaFault::refuseUpgrade) continue;
        std::vector<std::string> types;
        std::set<std::string> eventIDs;
        std::size_t audioBytes = 0;
        for (const auto& message : dictation->messages) {
          ASSERT_TRUE(message.text);
          const auto event = nlohmann::json::parse(message.payload);
          types.push_back(event["type"]);
          eventIDs.insert(event["event_id"].get<std::string>());
          if (types.back() == "input_audio_buffer.append") {
            audioBytes += Base64::decode(event["audio"].get<std::string>())->size();
          }
          if (types.back() == "session.update") {
            const auto& input = event["session"]["audio"]["input"];
            EXPECT_EQ(input["format"]["rate"], 16000);
            EXPECT_EQ(input["transcription"]["language"], "zh");
            EXPECT_EQ(input["transcription"]["prompt"], "Orvid");
          }
        }
        EXPECT_EQ(eventIDs.size(), types.size()) << "every event has an identifier of its own";
        ASSERT_FALSE(types.empty());
        EXPECT_EQ(types.front(), "session.update");
        if (expected.fault == ReplicaFault::neverAcknowledges) {
          EXPECT_EQ(types.size(), 1u) << "audio and commit stay held";
          continue;
        }
        EXPECT_EQ(audioBytes, 5u * 1600 * 2);  // 16 kHz samples of 16-bit audio
        EXPECT_EQ(types.back(), "input_audio_buffer.commit");
        EXPECT_EQ(types.size(), 7u);  // the update, five appends, the commit
      }
      EXPECT_EQ(testing::threadCount(), threadsBefore);
    }
  }
}

}  // namespace
}  // namespace orvid
