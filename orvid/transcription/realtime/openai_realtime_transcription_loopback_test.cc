// OpenAI real-time transcription end to end: the provider over the Beast transport
// against a replica of the service on a loopback TLS socket, well behaved or faulty.
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/loopback_websocket_server.h"
#include "orvid/transcription/realtime/beast_orvid_websocket_connector.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_provider.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::LoopbackWebSocketServer;

constexpr const char* kKey = "sk-test-1";
constexpr const char* kServiceMessage = "Session expired after 30 minutes.";

// How the replica departs from the service once it has answered the commit with a
// delta; cancelledByClient stalls like `stall` while the client cancels.
enum class Fault { none, closeAfterDelta, junkFrames, errorEventThenClose, stall, refuseUpgrade, cancelledByClient };

// What the replica saw of one dictation; handed over when its handler returns.
struct Dictation {
  std::string target;
  std::string authorization;
  std::string beta;
  nlohmann::json sessionUpdate;
  std::size_t audioBytes = 0;
  bool committed = false;
  int clientCloseCode = 0;
};

// Announces the session, reads the update and the audio, and answers the commit
// with a delta and the completed transcript, as the service does, unless `fault`
// says otherwise. Then reads on until the client closes.
void serveDictation(LoopbackWebSocketServer::Peer& peer, std::promise<Dictation>& seen, Fault fault) {
  Dictation dictation{peer.target(), peer.header("Authorization").value_or(""),
                      peer.header("OpenAI-Beta").value_or(""), {}, 0, false, 0};
  if (fault == Fault::refuseUpgrade) {
    peer.reject(401, R"({"error":{"message":"Incorrect API key provided: )" + dictation.authorization + R"("}})");
  } else {
    peer.sendText(R"({"type":"transcription_session.created","session":{"id":"sess_1"}})");
  }
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
      if (fault == Fault::junkFrames) {
        peer.sendText("<html>502 Bad Gateway</html>");
        peer.sendBinary(std::string("\0\x9f\xff{", 4));
      } else if (fault == Fault::errorEventThenClose) {
        peer.sendText(std::string(R"({"type":"error","error":{"type":"invalid_request_error",)") +
                      R"("code":"session_expired","message":")" + kServiceMessage + R"("}})");
      }
      if (fault == Fault::closeAfterDelta || fault == Fault::errorEventThenClose) peer.close(1011);
      if (fault == Fault::none || fault == Fault::junkFrames) {
        peer.sendText(
            R"({"type":"conversation.item.input_audio_transcription.completed","item_id":"item_1","transcript":"Hello world."})");
      }
    }
  }
  dictation.clientCloseCode = peer.clientCloseCode();
  seen.set_value(dictation);
}

// The replica with `fault` on loopback TLS, and a provider that trusts it and holds kKey.
struct Loopback {
  explicit Loopback(Fault fault)
      : service([this, fault](LoopbackWebSocketServer::Peer& peer) { serveDictation(peer, seen, fault); },
                certificate) {
    std::ofstream(folder / "authority.pem") << certificate.certificatePEM;
    provider.emplace(*URL::parse("https://127.0.0.1:" + std::to_string(service.port()) + "/v1/"), "openai",
                     "gpt-4o-transcribe",
                     std::make_shared<InMemoryOrvidCredentialStore>(
                         std::map<std::string, std::string>{{"provider.openai.api-key", kKey}}),
                     std::make_shared<BeastOrvidWebSocketConnector>(
                         BeastOrvidWebSocketConnector::Options{.caFile = folder / "authority.pem"}));
  }

  // Starts an English dictation and streams half a second of silence.
  std::shared_ptr<RealtimeTranscriptionSession> dictate() {
    RealtimeTranscriptionStartRequest request;
    request.languageRoute.providerLanguage = "en";
    auto session = provider->startSession(request);
    const PCMFrame tenthOfASecond{Bytes(3200, 0), 16000, 1, 1600};
    for (int i = 0; i < 5; ++i) session->appendPCM16(tenthOfASecond);
    return session;
  }

  const testing::TestCertificate certificate = testing::makeSelfSignedCertificate({"IP:127.0.0.1"});
  TemporaryDirectory folder;
  std::promise<Dictation> seen;
  LoopbackWebSocketServer service;
  std::optional<OpenAIRealtimeTranscriptionProvider> provider;
};

TEST(OpenAIRealtimeTranscriptionLoopbackTest, StreamsADictationOverTLSAndReturnsTheCompletedTranscript) {
  Loopback loopback(Fault::none);
  auto session = loopback.dictate();
  const TranscriptionResult result = session->finish();

  std::vector<TranscriptionPartialResult> partials;
  while (auto partial = session->partialResults().next()) partials.push_back(*partial);
  session->cancel();

  EXPECT_EQ(result.text, "Hello world.");
  ASSERT_FALSE(partials.empty());
  EXPECT_TRUE(partials.back().isFinal);
  auto dictation = loopback.seen.get_future().get();
  EXPECT_EQ(dictation.target, "/v1/realtime?intent=transcription");
  EXPECT_EQ(dictation.authorization, std::string("Bearer ") + kKey);
  EXPECT_EQ(dictation.beta, "realtime=v1");
  EXPECT_EQ(dictation.sessionUpdate["input_audio_transcription"]["model"], "gpt-4o-transcribe");
  EXPECT_EQ(dictation.sessionUpdate["input_audio_transcription"]["language"], "en");
  EXPECT_EQ(dictation.audioBytes, 5u * 2400 * 2);  // 24 kHz samples of 16-bit audio
  EXPECT_TRUE(dictation.committed);
  EXPECT_EQ(dictation.clientCloseCode, 1001);
}

// How a call ended, in a few words ("cancelled", "closed 1011", "refused 401", or
// the call's own answer), and the text of the WebSocket error it threw.
struct Ending {
  std::string how;
  std::string text;
};

Ending ending(const std::function<std::string()>& call) {
  try {
    return {call(), ""};
  } catch (const CancellationError&) {
    return {"cancelled", ""};
  } catch (const OrvidWebSocketError& error) {
    const std::string code = std::to_string(error.closeCode() + error.statusCode());
    using Case = OrvidWebSocketError::Case;
    return {error.errorCase() == Case::closedByPeer        ? "closed " + code
            : error.errorCase() == Case::handshakeRejected ? "refused " + code
                                                           : error.what(),
            error.what()};
  }
}

// Requests a stop on `source` once `delay` has passed, unless destroyed first.
std::jthread stopAfter(std::stop_source source, std::chrono::milliseconds delay) {
  return std::jthread([source, delay](std::stop_token destroyed) mutable {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_for(lock, destroyed, delay, [] { return false; });
    if (!destroyed.stop_requested()) source.request_stop();
  });
}

int threadCount() {
  auto tasks = std::filesystem::directory_iterator("/proc/self/task");
  return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

TEST(OpenAIRealtimeTranscriptionLoopbackTest, EndsAFaultyDictationInTimeWithItsErrorAndEveryPartialSentBefore) {
  struct FaultCase {
    Fault fault;
    std::chrono::milliseconds deadline;  // the caller's, given to finish()
    std::string finishEnds;              // or startSession() when it throws
    std::vector<std::string> partials;
    std::string streamEnds;
    int clientCloseCode;  // as the replica saw it
  };
  const std::vector<FaultCase> cases = {
      {Fault::closeAfterDelta, 3s, "closed 1011", {"Hello"}, "closed 1011", 0},
      {Fault::junkFrames, 3s, "Hello world.", {"Hello", "Hello world."}, "ended", 1001},
      {Fault::errorEventThenClose, 3s, "closed 1011", {"Hello"}, "closed 1011", 0},
      {Fault::stall, 300ms, "cancelled", {"Hello"}, "ended", 1001},
      {Fault::refuseUpgrade, 3s, "refused 401", {}, "", 0},
      {Fault::cancelledByClient, 3s, "cancelled", {"Hello"}, "ended", 1001},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(static_cast<int>(expected.fault));
    const int threadsBefore = threadCount();
    {
      Loopback loopback(expected.fault);
      std::shared_ptr<RealtimeTranscriptionSession> session;
      const auto began = std::chrono::steady_clock::now();
      Ending finished = ending([&] {
        session = loopback.dictate();
        return "";
      });
      Ending streamed;
      std::vector<std::string> partials;
      if (session) {
        std::stop_source deadline;
        std::jthread watchdog = stopAfter(deadline, expected.deadline);
        // The caller who finishes, then tidies up with cancel() whatever happened.
        std::jthread finisher([&] {
          finished = ending([&] { return session->finish(deadline.get_token()).text; });
          session->cancel();
        });
        streamed = ending([&] {
          while (auto partial = session->partialResults().next()) {
            partials.push_back(partial->text);
            if (expected.fault == Fault::cancelledByClient) session->cancel();
          }
          return "ended";
        });
        finisher.join();
        session.reset();
      }
      const auto took = std::chrono::steady_clock::now() - began;
      EXPECT_LT(took, expected.deadline + 1s);
      auto seen = loopback.seen.get_future();
      ASSERT_EQ(seen.wait_for(5s), std::future_status::ready) << "the replica's handler still runs";
      EXPECT_EQ(seen.get().clientCloseCode, expected.clientCloseCode);
      EXPECT_EQ(finished.how, expected.finishEnds);
      EXPECT_EQ(partials, expected.partials);
      EXPECT_EQ(streamed.how, expected.streamEnds);
      for (const std::string& text : {finished.text, streamed.text, SecretRedactor::redact(finished.text)}) {
        EXPECT_EQ(text.find(kKey), std::string::npos) << text;
        EXPECT_EQ(text.find(kServiceMessage), std::string::npos) << text;
      }
    }
    EXPECT_EQ(threadCount(), threadsBefore);  // the session's and the replica's threads have ended
  }
}

}  // namespace
}  // namespace orvid
