// Aliyun Bailian real-time transcription end to end, in both of its protocols: the
// provider over the Beast transport against a replica of the service on loopback
// wss, well behaved or faulty.
#include <regex>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/platform/base64.h"
#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/realtime_loopback_test_support.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::LoopbackWebSocketServer;
using testing::ReplicaDictation;
using testing::ReplicaFault;

std::string funEvent(const std::string& taskID, const std::string& event, nlohmann::json payload = nlohmann::json::object()) {
  return nlohmann::json{{"header", {{"task_id", taskID}, {"event", event}, {"attributes", nlohmann::json::object()}}},
                        {"payload", std::move(payload)}}
      .dump();
}

std::string sentence(const std::string& taskID, const std::string& text, bool end) {
  return funEvent(taskID, "result-generated",
                  {{"output", {{"sentence", {{"begin_time", 170}, {"end_time", end ? nlohmann::json(920) : nlohmann::json()},
                                             {"text", text}, {"words", nlohmann::json::array()}, {"sentence_end", end}}}}},
                   {"usage", nullptr}});
}

// The task protocol: task-started after run-task; after finish-task, interim and
// final sentences (one restated, one empty), then task-finished.
void serveFun(LoopbackWebSocketServer::Peer& peer, ReplicaDictation& dictation, ReplicaFault fault) {
  if (fault == ReplicaFault::refuseUpgrade) {
    peer.reject(401, R"({"code":"InvalidApiKey","message":"Invalid API-key provided: )" + dictation.authorization + "\"}");
    return;
  }
  while (auto message = dictation.receive(peer)) {
    if (!message->text) continue;
    const auto command = nlohmann::json::parse(message->payload);
    const std::string taskID = command["header"]["task_id"];
    if (command["header"]["action"] == "run-task" && fault != ReplicaFault::neverAcknowledges) {
      peer.sendText(funEvent(taskID, "task-started"));
    } else if (command["header"]["action"] == "finish-task") {
      peer.sendText(sentence(taskID, "Hello", false));
      if (fault == ReplicaFault::closeBeforeFinal) return peer.close(1011);
      if (fault == ReplicaFault::errorEvent) {
        peer.sendText(R"({"header":{"task_id":")" + taskID +
                      R"(","event":"task-failed","error_code":"InvalidParameter","error_message":"bad request"},)"
                      R"("payload":{"message":"rejected api_key=)" + testing::kReplicaKey + "\"}}");
        continue;
      }
      if (fault == ReplicaFault::cancelledByClient || fault == ReplicaFault::neverAcknowledges) continue;
      peer.sendText(sentence(taskID, "Hello world.", true));
      peer.sendText(sentence(taskID, "Hello world.", true));
      peer.sendText(sentence(taskID, "", false));
      peer.sendText(sentence(taskID, "How", false));
      peer.sendText(sentence(taskID, "How are you?", true));
      peer.sendText(funEvent(taskID, "task-finished", {{"output", nlohmann::json::object()}}));
    }
  }
}

// The event protocol: session.created on connecting, session.updated after the
// update; after session.finish, text and completed events, then session.finished.
void serveQwen(LoopbackWebSocketServer::Peer& peer, ReplicaDictation& dictation, ReplicaFault fault) {
  if (fault == ReplicaFault::refuseUpgrade) {
    peer.reject(401, R"({"code":"InvalidApiKey","message":"Invalid API-key provided: )" + dictation.authorization + "\"}");
    return;
  }
  peer.sendText(R"({"event_id":"event_1","type":"session.created","session":{"id":"sess_1"}})");
  while (auto message = dictation.receive(peer)) {
    const std::string type = nlohmann::json::parse(message->payload).value("type", "");
    if (type == "session.update" && fault != ReplicaFault::neverAcknowledges) {
      peer.sendText(R"({"event_id":"event_2","type":"session.updated","session":{"id":"sess_1"}})");
    } else if (type == "session.finish") {
      peer.sendText(R"({"type":"input_audio_buffer.speech_started","audio_start_ms":100})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.text","text":"Hello","stash":" wor"})");
      if (fault == ReplicaFault::closeBeforeFinal) return peer.close(1011);
      if (fault == ReplicaFault::errorEvent) {
        peer.sendText(R"({"type":"error","error":{"type":"invalid_request_error","code":"invalid_value",)"
                      R"("message":"Bearer )" + std::string(testing::kReplicaKey) + R"( is not allowed"}})");
        continue;
      }
      if (fault == ReplicaFault::cancelledByClient || fault == ReplicaFault::neverAcknowledges) continue;
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.completed","transcript":"Hello world."})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.completed","transcript":"Hello world."})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.text","text":" "})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.text","text":"How"})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.completed","transcript":"How are you?"})");
      peer.sendText(R"({"type":"session.finished"})");
    }
  }
}

TEST(AliyunBailianRealtimeTranscriptionLoopbackTest, SpeaksBothProtocolsAndEndsEachFaultWithTheOutcomeDue) {
  struct FaultCase {
    ReplicaFault fault;
    std::chrono::milliseconds deadline;  // the caller's, given to finish()
    std::string finishEnds;              // for the task protocol; "qwen:" differs below
    std::vector<std::string> partials;
    std::string streamEnds;
  };
  const std::vector<FaultCase> cases = {
      {ReplicaFault::none,
       3s,
       "Hello world. How are you?",
       {"Hello", "Hello world.", "Hello world.", "Hello world. How", "Hello world. How are you?"},
       "ended"},
      {ReplicaFault::closeBeforeFinal, 3s, "closed 1011", {"Hello"}, "closed 1011"},
      {ReplicaFault::errorEvent, 3s, "error", {"Hello"}, "error"},
      // Unacknowledged: the audio stays held until the caller's deadline.
      {ReplicaFault::neverAcknowledges, 300ms, "cancelled", {}, "ended"},
      {ReplicaFault::refuseUpgrade, 3s, "refused 401", {}, ""},
      {ReplicaFault::cancelledByClient, 3s, "cancelled", {"Hello"}, "ended"},
  };
  for (bool fun : {true, false}) {
    const std::string model = fun ? "fun-asr-realtime" : "qwen3-asr-flash-realtime";
    // The service's own text (redacted) for the task protocol; the event protocol's
    // error carries no top-level message, so its fixed text.
    const std::string serviceError = fun ? "rejected api_key=[REDACTED]" : "Aliyun qwen realtime ASR task failed.";
    for (const FaultCase& expected : cases) {
      SCOPED_TRACE(model + " " + faultName(expected.fault));
      const int threadsBefore = testing::threadCount();
      {
        testing::RealtimeServiceReplica replica(
            [fault = expected.fault, fun](auto& peer, auto& dictation) {
              fun ? serveFun(peer, dictation, fault) : serveQwen(peer, dictation, fault);
            },
            true);
        AliyunBailianRealtimeTranscriptionProvider provider(*URL::parse(replica.url("/api-ws/v1/realtime")),
                                                            "aliyun-bailian", model,
                                                            testing::RealtimeServiceReplica::credentials("aliyun-bailian"),
                                                            replica.connector());
        RealtimeTranscriptionStartRequest request;
        request.languageRoute.providerLanguage = "zh-Hans";
        request.languageRoute.providerLanguageHints = {"zh-Hans", "auto", "en"};
        const auto outcome = testing::dictate(provider, request, testing::halfASecondAt48kHz(), expected.deadline,
                                              expected.fault == ReplicaFault::cancelledByClient);

        const auto expectedText = [&](const std::string& text) { return text == "error" ? serviceError : text; };
        EXPECT_EQ(outcome.finished.how, expectedText(expected.finishEnds));
        EXPECT_EQ(outcome.partials, expected.partials);
        EXPECT_EQ(outcome.streamed.how, expectedText(expected.streamEnds));
        EXPECT_LT(outcome.took, expected.deadline + 1s);
        for (const std::string& text : outcome.errorTexts()) EXPECT_TRUE(testing::isFreeOfSecrets(text)) << text;

        auto dictation = replica.dictation();
        ASSERT_TRUE(dictation) << "the replica's handler still runs";
        EXPECT_EQ(dictation->target, fun ? "/api-ws/v1/inference" : "/api-ws/v1/realtime?model=" + model);
        EXPECT_EQ(dictation->authorization, std::string("Bearer ") + testing::kReplicaKey);
        if (expected.fault == ReplicaFault::refuseUpgrade) continue;
        if (expected.fault == ReplicaFault::neverAcknowledges) {
          EXPECT_EQ(dictation->messages.size(), 1u) << "the audio and the finish message stay held";
          continue;
        }
        ASSERT_GE(dictation->messages.size(), 2u);
        const auto start = nlohmann::json::parse(dictation->messages.front().payload);
        const auto last = dictation->messages.back();
        std::size_t audioBytes = 0;
        if (fun) {
          const std::string taskID = start["header"]["task_id"];
          EXPECT_TRUE(std::regex_match(taskID, std::regex("[0-9a-f]{32}"))) << taskID;
          EXPECT_EQ(start["header"]["action"], "run-task");
          EXPECT_EQ(start["payload"]["parameters"],
                    nlohmann::json({{"sample_rate", 16000}, {"format", "pcm"}, {"language_hints", {"zh", "en"}}}));
          for (const auto& message : dictation->messages) {
            if (!message.text) audioBytes += message.payload.size();
          }
          ASSERT_TRUE(last.text);
          const auto finish = nlohmann::json::parse(last.payload);
          EXPECT_EQ(finish["header"]["action"], "finish-task");
          EXPECT_EQ(finish["header"]["task_id"], taskID);
        } else {
          EXPECT_EQ(start["type"], "session.update");
          EXPECT_EQ(start["session"]["input_audio_transcription"], nlohmann::json({{"language", "zh"}}));
          for (const auto& message : dictation->messages) {
            const auto event = nlohmann::json::parse(message.payload);
            if (event["type"] == "input_audio_buffer.append") {
              audioBytes += Base64::decode(event["audio"].get<std::string>())->size();
            }
          }
          EXPECT_TRUE(std::regex_match(
              last.payload, std::regex(R"(\{"event_id":"[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}","type":"session.finish"\})")))
              << last.payload;
        }
        EXPECT_EQ(audioBytes, 5u * 1600 * 2);  // 16 kHz samples of 16-bit audio
        EXPECT_EQ(dictation->messages.size(), 7u);
      }
      EXPECT_EQ(testing::threadCount(), threadsBefore);
    }
  }
}

}  // namespace
}  // namespace orvid
