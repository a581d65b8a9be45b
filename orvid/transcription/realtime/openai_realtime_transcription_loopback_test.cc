// OpenAI real-time transcription end to end: the provider over the Beast transport
// against a replica of the service on a loopback TLS socket.
#include <fstream>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/loopback_websocket_server.h"
#include "orvid/transcription/realtime/beast_orvid_websocket_connector.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_provider.h"

namespace orvid {
namespace {

using testing::LoopbackWebSocketServer;

// What the replica saw of one dictation.
struct Dictation {
  std::string target;
  std::string authorization;
  std::string beta;
  nlohmann::json sessionUpdate;
  std::size_t audioBytes = 0;
  bool committed = false;
};

// Announces the session, reads the update and the audio, and answers the commit
// with a delta and the completed transcript, as the service does.
void serveDictation(LoopbackWebSocketServer::Peer& peer, std::promise<Dictation>& seen) {
  Dictation dictation{peer.target(), peer.header("Authorization").value_or(""),
                      peer.header("OpenAI-Beta").value_or(""), {}, 0, false};
  peer.sendText(R"({"type":"transcription_session.created","session":{"id":"sess_1"}})");
  while (auto message = peer.receive()) {
    auto event = nlohmann::json::parse(message->payload);
    const std::string type = event.value("type", "");
    if (type == "transcription_session.update") {
      dictation.sessionUpdate = event["session"];
      peer.sendText(R"({"type":"transcription_session.updated"})");
    } else if (type == "input_audio_buffer.append") {
      dictation.audioBytes += event["audio"].get<std::string>().size() / 4 * 3;
    } else if (type == "input_audio_buffer.commit") {
      dictation.committed = true;
      peer.sendText(R"({"type":"input_audio_buffer.committed","item_id":"item_1"})");
      peer.sendText(R"({"type":"conversation.item.input_audio_transcription.delta","item_id":"item_1","delta":"Hello"})");
      peer.sendText(
          R"({"type":"conversation.item.input_audio_transcription.completed","item_id":"item_1","transcript":"Hello world."})");
      break;
    }
  }
  seen.set_value(dictation);
  while (peer.receive()) {
  }
}

TEST(OpenAIRealtimeTranscriptionLoopbackTest, StreamsADictationOverTLSAndReturnsTheCompletedTranscript) {
  const auto certificate = testing::makeSelfSignedCertificate({"IP:127.0.0.1"});
  TemporaryDirectory folder;
  std::ofstream(folder / "authority.pem") << certificate.certificatePEM;
  std::promise<Dictation> seen;
  LoopbackWebSocketServer service([&](LoopbackWebSocketServer::Peer& peer) { serveDictation(peer, seen); },
                                  certificate);

  auto connector = std::make_shared<BeastOrvidWebSocketConnector>(
      BeastOrvidWebSocketConnector::Options{.caFile = folder / "authority.pem"});
  auto store = std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.openai.api-key", "sk-test-1"}});
  const URL base = *URL::parse("https://127.0.0.1:" + std::to_string(service.port()) + "/v1/");
  OpenAIRealtimeTranscriptionProvider provider(base, "openai", "gpt-4o-transcribe", store, connector);

  RealtimeTranscriptionStartRequest request;
  request.languageRoute.providerLanguage = "en";
  auto session = provider.startSession(request);
  const PCMFrame tenthOfASecond{Bytes(3200, 0), 16000, 1, 1600};
  for (int i = 0; i < 5; ++i) session->appendPCM16(tenthOfASecond);
  const TranscriptionResult result = session->finish();

  std::vector<TranscriptionPartialResult> partials;
  while (auto partial = session->partialResults().next()) partials.push_back(*partial);
  session->cancel();

  EXPECT_EQ(result.text, "Hello world.");
  ASSERT_FALSE(partials.empty());
  EXPECT_TRUE(partials.back().isFinal);
  auto dictation = seen.get_future().get();
  EXPECT_EQ(dictation.target, "/v1/realtime?intent=transcription");
  EXPECT_EQ(dictation.authorization, "Bearer sk-test-1");
  EXPECT_EQ(dictation.beta, "realtime=v1");
  EXPECT_EQ(dictation.sessionUpdate["input_audio_transcription"]["model"], "gpt-4o-transcribe");
  EXPECT_EQ(dictation.sessionUpdate["input_audio_transcription"]["language"], "en");
  EXPECT_EQ(dictation.audioBytes, 5u * 2400 * 2);  // 24 kHz samples of 16-bit audio
  EXPECT_TRUE(dictation.committed);
}

}  // namespace
}  // namespace orvid
