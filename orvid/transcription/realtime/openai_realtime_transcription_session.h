#pragma once

#include <memory>
#include <stop_token>

#include "orvid/transcription/live_transcription_text_accumulator.h"
#include "orvid/transcription/realtime/internal/realtime_session_core.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// One dictation streamed to OpenAI's real-time transcription service over an open
// WebSocket whose session the service has acknowledged and configured
// (OpenAIRealtimeTranscriptionProvider opens it). Each transcription event becomes
// a partial result with the text merged by a LiveTranscriptionTextAccumulator; the
// first final event is the session's result and ends the reading (the socket stays
// open until cancel() or destruction). Thread-safe; destroying it cancels it.
class OpenAIRealtimeTranscriptionSession final : public RealtimeTranscriptionSession {
 public:
  explicit OpenAIRealtimeTranscriptionSession(std::shared_ptr<OrvidWebSocketConnection> connection);
  ~OpenAIRealtimeTranscriptionSession() override;

  // Starts reading the service's events on a thread of the session's own; once.
  void startReading();

  ResultStream<TranscriptionPartialResult> partialResults() const override;

  // Converts `frame` to 24 kHz (PCM16Resampler; frames that are not mono pass
  // unchanged) and sends it as one "input_audio_buffer.append" event. Throws what
  // the connection throws, and PCM16Resampler's std::length_error.
  void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) override;

  // Sends "input_audio_buffer.commit", then returns the final result: at once when
  // it has arrived, else when it arrives. Throws the send error, the receive error
  // that ended the session, or CancellationError after cancel() or once `stop` is
  // requested while waiting.
  TranscriptionResult finish(std::stop_token stop = {}) override;

  void cancel() noexcept override;

 private:
  RealtimeSessionCore::ReadStep handle(const Bytes& payload);

  // Used by the reader thread only.
  LiveTranscriptionTextAccumulator liveTranscriptionAccumulator_;
  RealtimeSessionCore core_;
};

}  // namespace orvid
