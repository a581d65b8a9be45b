#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/transcription/realtime/internal/realtime_session_core.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// One dictation streamed to Deepgram's live transcription service over an open
// WebSocket (DeepgramRealtimeTranscriptionProvider opens it). Finalised segments
// are merged into one running transcript (RealtimeTranscriptAccumulator::merge);
// interim hypotheses are shown merged onto it without changing it. The session
// ends when the socket does, for whatever reason, with the running transcript.
// Thread-safe; destroying it cancels it.
class DeepgramRealtimeTranscriptionSession final : public RealtimeTranscriptionSession {
 public:
  explicit DeepgramRealtimeTranscriptionSession(std::shared_ptr<OrvidWebSocketConnection> connection);
  ~DeepgramRealtimeTranscriptionSession() override;

  // Starts reading the service's events on a thread of the session's own; once.
  void startReading();

  ResultStream<TranscriptionPartialResult> partialResults() const override;

  // Converts `frame` to 16 kHz and sends its samples as one binary frame. Throws
  // what the connection throws, and PCM16Resampler's std::length_error.
  void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) override;

  // Sends the close request {"type":"CloseStream"} and waits until the service has
  // sent its last results and closed the socket; returns the running transcript,
  // trimmed. A session whose socket has already ended answers at once with it. No
  // time limit of its own: throws CancellationError after cancel() or once `stop`
  // is requested, and the send error while the socket is still open.
  TranscriptionResult finish(std::stop_token stop = {}) override;

  void cancel() noexcept override;

 private:
  RealtimeSessionCore::ReadStep handle(const Bytes& payload);
  void endWithRunningTranscript();

  // Used by the reader thread only.
  std::string finalTranscript_;
  RealtimeSessionCore core_;
};

}  // namespace orvid
