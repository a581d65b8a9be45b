#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/transcription/realtime/internal/realtime_session_core.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime/soniox_realtime_token_accumulator.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// One dictation streamed to Soniox's real-time service over an open WebSocket
// whose start message was sent (SonioxRealtimeTranscriptionProvider opens it).
// Every message with tokens becomes a partial result that replaces the text shown
// so far; the "finished" message gives the final result. Thread-safe; destroying
// it cancels it.
class SonioxRealtimeTranscriptionSession final : public RealtimeTranscriptionSession {
 public:
  static constexpr std::chrono::milliseconds kFinalizationTimeout{30'000};

  // `finalizationTimeout`: how long finish() waits for "finished" once the end of
  // the audio is sent.
  explicit SonioxRealtimeTranscriptionSession(std::shared_ptr<OrvidWebSocketConnection> connection,
                                              std::chrono::milliseconds finalizationTimeout = kFinalizationTimeout);
  ~SonioxRealtimeTranscriptionSession() override;

  // Starts reading the service's messages on a thread of the session's own; once.
  void startReading();

  ResultStream<TranscriptionPartialResult> partialResults() const override;

  // Converts `frame` to 16 kHz and sends its samples as one binary frame. Throws
  // OrvidProviderError::unsupportedProvider for audio that is not mono, what the
  // connection throws, and PCM16Resampler's std::length_error.
  void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) override;

  // Returns the final result at once when it has arrived. Otherwise sends the
  // empty binary frame that ends the audio, (re)starts the finalisation timer and
  // waits. Throws the send error, SonioxRealtimeError (server, or
  // finalizationTimedOut once the timer expires: the socket is then closed), the
  // receive or decoding error that ended the session, and CancellationError after
  // cancel() or once `stop` is requested while waiting.
  TranscriptionResult finish(std::stop_token stop = {}) override;

  void cancel() noexcept override;

  // The tokens of a message's "tokens" member: objects with a string "text";
  // "is_final" a Boolean or number; "language" and "translation_status" trimmed,
  // when not blank.
  static std::vector<SonioxRealtimeToken> parseTokens(const nlohmann::json* value);

 private:
  RealtimeSessionCore::ReadStep handle(const Bytes& payload);
  // Fails the session with finalizationTimedOut and closes the socket, unless it
  // has ended or was cancelled.
  void failFinalizationIfNeeded();
  void stopTimer();

  const std::chrono::milliseconds finalizationTimeout_;
  // Used by the reader thread only.
  SonioxRealtimeTokenAccumulator accumulator_;
  RealtimeSessionCore core_;

  std::mutex mutex_;
  // The finalisation timer; replaced by each finish().
  std::jthread timer_;
};

}  // namespace orvid
