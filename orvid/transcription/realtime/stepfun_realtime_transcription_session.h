#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/transcription/realtime/internal/realtime_audio_gate.h"
#include "orvid/transcription/realtime/internal/realtime_session_core.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// One dictation streamed to StepFun's real-time transcription service over an
// open WebSocket (StepFunRealtimeTranscriptionProvider opens it and sends the
// session update). Audio is held back until the service confirms the update
// ("session.updated"), then sent in the order appended; a commit requested before
// that follows the held audio. Delta events show the running transcript merged
// with the new text (RealtimeTranscriptAccumulator::merge); the first completed
// event is merged into it and ends the session. Thread-safe; destroying it
// cancels it.
class StepFunRealtimeTranscriptionSession final : public RealtimeTranscriptionSession {
 public:
  explicit StepFunRealtimeTranscriptionSession(std::shared_ptr<OrvidWebSocketConnection> connection);
  ~StepFunRealtimeTranscriptionSession() override;

  // Starts reading the service's events on a thread of the session's own; once.
  void startReading();

  ResultStream<TranscriptionPartialResult> partialResults() const override;

  // Converts `frame` to 16 kHz; holds its samples while the update is unconfirmed,
  // else sends them as one "input_audio_buffer.append" event. Throws what the
  // connection throws, and PCM16Resampler's std::length_error.
  void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) override;

  // Sends "input_audio_buffer.commit" (at once when the update is confirmed, else
  // after the held audio once it is) and waits for the completed transcript. A
  // session that has already ended answers at once. No time limit of its own:
  // throws the send error, OrvidProviderError::unsupportedProvider for the
  // service's "error" event (its message, redacted, or "StepFun realtime stream
  // error."), the error that ended the reading, and CancellationError after
  // cancel() or once `stop` is requested.
  TranscriptionResult finish(std::stop_token stop = {}) override;

  void cancel() noexcept override;

 private:
  RealtimeSessionCore::ReadStep handle(const Bytes& payload);

  RealtimeAudioGate gate_;
  // Used by the reader thread only.
  std::string finalTranscript_;
  RealtimeSessionCore core_;
};

}  // namespace orvid
