#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "orvid/core/pcm_frame.h"
#include "orvid/core/transcription_records.h"
#include "orvid/platform/result_stream.h"
#include "orvid/transcription/local/local_engine_clock.h"
#include "orvid/transcription/local/local_realtime_preview_policy.h"
#include "orvid/transcription/local/local_transcription_engine.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Live text from an engine that only transcribes finished audio: a thread of the
// session re-transcribes the audio buffered so far at the policy's pace and
// publishes each new hypothesis as a replacing partial result; finish()
// transcribes everything once more for the final result. Previews decode at most
// the policy's window of the most recent audio. Engines that offer previewStream()
// preview through it. Thread-safe; the engine is never used by two calls at once.
class AdaptiveLocalRealtimeTranscriptionSession : public RealtimeTranscriptionSession {
 public:
  // `baseRequest` carries the model URL and resolved language, and no audio.
  AdaptiveLocalRealtimeTranscriptionSession(
      std::shared_ptr<LocalTranscriptionEngine> engine, LocalTranscriptionRequest baseRequest,
      LocalRealtimePreviewPolicy policy,
      std::shared_ptr<LocalEngineClock> clock = std::make_shared<SteadyLocalEngineClock>());
  // Cancels the session.
  ~AdaptiveLocalRealtimeTranscriptionSession() override;
  AdaptiveLocalRealtimeTranscriptionSession(const AdaptiveLocalRealtimeTranscriptionSession&) = delete;
  AdaptiveLocalRealtimeTranscriptionSession& operator=(const AdaptiveLocalRealtimeTranscriptionSession&) = delete;

  // Starts the preview thread. Called once; later calls do nothing.
  void start();

  // Previews (not final, replacing) and, from finish(), the final result (final,
  // replacing).
  ResultStream<TranscriptionPartialResult> partialResults() const override { return partialResults_; }
  // Buffers the frame; ignored once the session has completed. Never throws.
  void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) override;
  // Stops the previews and transcribes all buffered audio with the engine. Throws
  // OrvidError::unsupportedStreaming when the session has already finished or been
  // cancelled, OrvidError::emptyAudio (the stream ending normally) when no audio
  // came, CancellationError after `stop` or cancel(), and the engine's errors, with
  // which the stream then ends as well.
  TranscriptionResult finish(std::stop_token stop = {}) override;
  // Stops the previews and ends the stream normally; a running finish() is stopped.
  void cancel() noexcept override;

  // The duration in seconds of `frames`: sample counts (or, where below 1, byte
  // lengths ÷ 2 per channel) over sample rates; frames without a positive rate
  // count 0.
  static double audioDuration(const std::vector<PCMFrame>& frames);
  // The most recent frames that together last at most `maximumDuration` seconds;
  // the newest frame always.
  static std::vector<PCMFrame> suffixFrames(const std::vector<PCMFrame>& frames, double maximumDuration);

 private:
  struct PreviewPass {
    LocalTranscriptionRequest request;
    std::string baseText;
    bool usesSlidingWindow = false;
  };

  void runPreviewLoop(std::stop_token stop);
  std::optional<PreviewPass> nextPreviewPassIfNeeded();
  void runPreviewPass(const PreviewPass& pass, std::stop_token stop);
  void emitPreviewIfNeeded(const std::string& text, const PreviewPass& pass);
  // Marks the session completed and returns the preview thread, false when it
  // already was.
  bool complete(std::jthread& previewThread);

  const std::shared_ptr<LocalTranscriptionEngine> engine_;
  const LocalTranscriptionRequest baseRequest_;
  const LocalRealtimePreviewPolicy policy_;
  const std::shared_ptr<LocalEngineClock> clock_;
  const ResultStream<TranscriptionPartialResult> partialResults_;
  // Requested by cancel(); stops a running final transcription.
  std::stop_source cancelled_;

  std::mutex mutex_;
  std::vector<PCMFrame> bufferedFrames_;
  std::size_t lastPreviewFrameCount_ = 0;
  double lastPreviewAudioDuration_ = 0;
  std::string lastPreviewText_;
  bool didStart_ = false;
  bool didComplete_ = false;
  std::jthread previewThread_;
};

}  // namespace orvid
