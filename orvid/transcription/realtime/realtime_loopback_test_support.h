#pragma once

// Test support for the real-time services' loopback tests: a replica of a service
// on a real WebSocket server on 127.0.0.1 (ws or wss), what it saw of a dictation,
// and a dictation driven through a provider with a caller's deadline.
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

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/loopback_websocket_server.h"
#include "orvid/testing/test_certificate.h"
#include "orvid/transcription/realtime/beast_orvid_websocket_connector.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid::testing {

// The key every replica's client holds; replicas echo it in their refusals.
inline constexpr const char* kReplicaKey = "sk-replica-key-0001";

// How a replica departs from its service once the client has ended the audio:
// closes before the final event, sends an error event, never acknowledges the
// start (or, for services without one, never answers the end of the audio),
// refuses the upgrade with 401 and a body that echoes the key, or stalls while
// the client cancels from another thread.
enum class ReplicaFault { none, closeBeforeFinal, errorEvent, neverAcknowledges, refuseUpgrade, cancelledByClient };

inline const char* faultName(ReplicaFault fault) {
  static constexpr const char* kNames[] = {"none", "closeBeforeFinal", "errorEvent",
                                           "neverAcknowledges", "refuseUpgrade", "cancelledByClient"};
  return kNames[static_cast<int>(fault)];
}

// What a replica saw of one dictation; complete once its handler has returned.
struct ReplicaDictation {
  std::string target;
  std::string authorization;
  // Every message the client sent, in order.
  std::vector<LoopbackWebSocketServer::Message> messages;
  int clientCloseCode = 0;

  // The next message from the client, recorded; absent once the client closed.
  std::optional<LoopbackWebSocketServer::Message> receive(LoopbackWebSocketServer::Peer& peer) {
    auto message = peer.receive();
    if (message) messages.push_back(*message);
    return message;
  }
};

// A replica of a real-time service: `serve` plays the service for each connection
// (one dictation per replica), on TLS when `tls` is set.
class RealtimeServiceReplica {
 public:
  using Serve = std::function<void(LoopbackWebSocketServer::Peer&, ReplicaDictation&)>;

  RealtimeServiceReplica(Serve serve, bool tls)
      : server_(
            [this, serve = std::move(serve)](LoopbackWebSocketServer::Peer& peer) {
              ReplicaDictation dictation;
              dictation.target = peer.target();
              dictation.authorization = peer.header("Authorization").value_or("");
              serve(peer, dictation);
              while (dictation.receive(peer)) {
              }
              dictation.clientCloseCode = peer.clientCloseCode();
              seen_.set_value(std::move(dictation));
            },
            tls ? std::optional(certificate_) : std::nullopt) {
    std::ofstream(folder_.path() / "authority.pem") << certificate_.certificatePEM;
  }

  // The replica's URL with `path`, in the scheme it serves.
  std::string url(const std::string& path) const { return server_.url(path); }

  // A connector that trusts the replica's certificate.
  std::shared_ptr<OrvidWebSocketConnector> connector() const {
    return std::make_shared<BeastOrvidWebSocketConnector>(
        BeastOrvidWebSocketConnector::Options{.caFile = folder_.path() / "authority.pem"});
  }

  // A store holding kReplicaKey for `configurationID`.
  static std::shared_ptr<const OrvidCredentialStore> credentials(const std::string& configurationID) {
    return std::make_shared<InMemoryOrvidCredentialStore>(
        std::map<std::string, std::string>{{"provider." + configurationID + ".api-key", kReplicaKey}});
  }

  // What the replica saw, once its handler has returned (absent after 5 s).
  std::optional<ReplicaDictation> dictation() {
    auto future = seen_.get_future();
    if (future.wait_for(std::chrono::seconds(5)) != std::future_status::ready) return std::nullopt;
    return future.get();
  }

 private:
  const TestCertificate certificate_ = makeSelfSignedCertificate({"IP:127.0.0.1"});
  TemporaryDirectory folder_;
  std::promise<ReplicaDictation> seen_;
  LoopbackWebSocketServer server_;
};

// How a call ended, in a few words: its own answer, "cancelled", "closed <code>",
// "refused <status>" or the error's text; and the error's full text.
struct Ending {
  std::string how;
  std::string text;
};

inline Ending ending(const std::function<std::string()>& call) {
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
  } catch (const std::exception& error) {
    return {error.what(), error.what()};
  }
}

// Requests a stop on `source` once `delay` has passed, unless destroyed first.
inline std::jthread stopAfter(std::stop_source source, std::chrono::milliseconds delay) {
  return std::jthread([source, delay](std::stop_token destroyed) mutable {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_for(lock, destroyed, delay, [] { return false; });
    if (!destroyed.stop_requested()) source.request_stop();
  });
}

inline int threadCount() {
  auto tasks = std::filesystem::directory_iterator("/proc/self/task");
  return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

// Half a second of a 440 Hz tone at 48 kHz in five frames, as a microphone delivers it.
inline std::vector<PCMFrame> halfASecondAt48kHz() {
  std::vector<PCMFrame> frames;
  for (int frame = 0; frame < 5; ++frame) {
    Bytes samples;
    for (int i = 0; i < 4800; ++i) {
      auto value = static_cast<std::int16_t>(8000 * ((frame * 4800 + i) / 55 % 2 ? 1 : -1));
      samples.push_back(static_cast<std::uint8_t>(value & 0xff));
      samples.push_back(static_cast<std::uint8_t>((value >> 8) & 0xff));
    }
    frames.push_back(PCMFrame{std::move(samples), 48000, 1, 4800});
  }
  return frames;
}

// How one dictation through a provider went.
struct DictationOutcome {
  // startSession()'s or appendPCM16()'s error, else finish()'s answer or error.
  Ending finished;
  std::vector<std::string> partials;
  // "ended" when partialResults() finished normally, else its error.
  Ending streamed;
  std::chrono::steady_clock::duration took{};

  // The texts of every error seen, for the check that none holds a secret.
  std::vector<std::string> errorTexts() const { return {finished.text, streamed.text}; }
};

// Opens a session, appends `frames`, and calls finish() on a thread of its own
// with a stop after `deadline` (the caller's time limit) while this thread reads
// the partial results; cancel() follows finish() whatever happened. With
// `cancelAtFirstPartial` the reader cancels the session at its first partial,
// from its own thread, while finish() waits.
inline DictationOutcome dictate(RealtimeTranscriptionProvider& provider,
                                const RealtimeTranscriptionStartRequest& request, const std::vector<PCMFrame>& frames,
                                std::chrono::milliseconds deadline, bool cancelAtFirstPartial = false) {
  DictationOutcome outcome;
  const auto began = std::chrono::steady_clock::now();
  std::shared_ptr<RealtimeTranscriptionSession> session;
  outcome.finished = ending([&] {
    session = provider.startSession(request);
    for (const PCMFrame& frame : frames) session->appendPCM16(frame);
    return "";
  });
  if (session) {
    std::stop_source callerDeadline;
    std::jthread watchdog = stopAfter(callerDeadline, deadline);
    std::jthread finisher([&] {
      outcome.finished = ending([&] { return session->finish(callerDeadline.get_token()).text; });
      session->cancel();
    });
    outcome.streamed = ending([&] {
      while (auto partial = session->partialResults().next()) {
        outcome.partials.push_back(partial->text);
        if (cancelAtFirstPartial) session->cancel();
      }
      return "ended";
    });
    finisher.join();
    session.reset();
  }
  outcome.took = std::chrono::steady_clock::now() - began;
  return outcome;
}

// True when `text` holds neither the key nor anything SecretRedactor would change.
inline bool isFreeOfSecrets(const std::string& text) {
  return text.find(kReplicaKey) == std::string::npos && SecretRedactor::redact(text) == text;
}

}  // namespace orvid::testing
