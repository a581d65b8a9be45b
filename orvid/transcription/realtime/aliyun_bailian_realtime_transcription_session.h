#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/transcription/realtime/aliyun_realtime_support.h"
#include "orvid/transcription/realtime/internal/realtime_audio_gate.h"
#include "orvid/transcription/realtime/internal/realtime_session_core.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// One dictation streamed to Aliyun Bailian's speech service over an open WebSocket
// whose start message was sent (AliyunBailianRealtimeTranscriptionProvider opens
// it), in the task protocol (binary audio) or the event protocol (base64 audio
// events) as `kind` says. Audio, and the finish message, are held back until the
// service acknowledges the start, then sent in the order given. Interim texts show the running
// transcript merged with them (RealtimeTranscriptAccumulator::merge); final texts
// are merged into it; the end event gives it as the result. Thread-safe;
// destroying it cancels it.
class AliyunBailianRealtimeTranscriptionSession final : public RealtimeTranscriptionSession {
 public:
  AliyunBailianRealtimeTranscriptionSession(std::shared_ptr<OrvidWebSocketConnection> connection,
                                            AliyunRealtimeSupport::Kind kind, std::string modelID);
  ~AliyunBailianRealtimeTranscriptionSession() override;

  // Starts reading the service's events on a thread of the session's own; once.
  void startReading();

  ResultStream<TranscriptionPartialResult> partialResults() const override;

  // Converts `frame` to AliyunRealtimeSupport::sampleRate(modelID); holds its
  // samples until the start is acknowledged, else sends them. Throws what the
  // connection throws, and PCM16Resampler's std::length_error.
  void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) override;

  // Sends finish-task or session.finish and waits for the end event. Before the
  // start is acknowledged the message is held with the audio and follows it once
  // the acknowledgement arrives: the service drops audio sent after it. A session that has already ended
  // answers at once. No time limit of its own: throws the send error,
  // OrvidProviderError::unsupportedProvider for a failure event (the service's
  // message, redacted, or "Aliyun fun ASR task failed." / "Aliyun qwen realtime
  // ASR task failed."), the receive error that ended the reading, and
  // CancellationError after cancel() or once `stop` is requested.
  TranscriptionResult finish(std::stop_token stop = {}) override;

  void cancel() noexcept override;

 private:
  RealtimeSessionCore::ReadStep handle(const Bytes& payload);
  void handleFunEvent(const nlohmann::json& object);
  void handleQwenEvent(const nlohmann::json& object);
  void startAudio();
  void ingest(const std::string& text, bool isFinal);
  void end();
  std::string finishMessage() const;

  const AliyunRealtimeSupport::Kind kind_;
  const std::string modelID_;
  RealtimeAudioGate gate_;
  // Used by the reader thread only.
  std::string finalTranscript_;
  RealtimeSessionCore core_;
};

}  // namespace orvid
