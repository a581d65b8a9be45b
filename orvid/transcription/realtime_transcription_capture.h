#pragma once

#include <exception>
#include <memory>
#include <mutex>
#include <stop_token>
#include <vector>

#include "orvid/core/pcm_frame.h"
#include "orvid/core/transcription_records.h"
#include "orvid/platform/result_stream.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// What the audio-capture path feeds while the user holds the button. Appending
// never throws: the first failure cancels the session, later audio is ignored,
// and the failure is reported by finish(). Thread-safe; its lock is never held
// while the session is called.
class RealtimeTranscriptionCapture {
 public:
  explicit RealtimeTranscriptionCapture(std::shared_ptr<RealtimeTranscriptionSession> session);

  // The session's partial results, as read at construction.
  ResultStream<TranscriptionPartialResult> partialResults() const { return partialResults_; }

  // Hands `frame` to the session unless the capture has failed or finished. A
  // failure, a stop of `stop` included, is kept for finish() and cancels the
  // session.
  void append(const PCMFrame& frame, std::stop_token stop = {}) noexcept;
  // append() for each frame in order; the rest are skipped once one fails.
  void append(const std::vector<PCMFrame>& frames, std::stop_token stop = {}) noexcept;

  // Ends the capture and returns the session's final result. Throws the first
  // append failure instead, or whatever the session's finish() throws.
  TranscriptionResult finish(std::stop_token stop = {});

  // Ends the capture and cancels the session.
  void cancel() noexcept;

 private:
  const std::shared_ptr<RealtimeTranscriptionSession> session_;
  const ResultStream<TranscriptionPartialResult> partialResults_;
  mutable std::mutex mutex_;
  std::exception_ptr appendError_;
  bool didFinish_ = false;
};

}  // namespace orvid
