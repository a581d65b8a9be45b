#include "orvid/transcription/realtime_transcription_capture.h"

#include <utility>

namespace orvid {

RealtimeTranscriptionCapture::RealtimeTranscriptionCapture(std::shared_ptr<RealtimeTranscriptionSession> session)
    : session_(std::move(session)), partialResults_(session_->partialResults()) {}

void RealtimeTranscriptionCapture::append(const PCMFrame& frame, std::stop_token stop) noexcept {
  {
    std::lock_guard lock(mutex_);
    if (appendError_ || didFinish_) return;
  }
  try {
    session_->appendPCM16(frame, stop);
  } catch (...) {
    {
      std::lock_guard lock(mutex_);
      // An append that fails because finish() or cancel() overtook it is not a
      // capture failure: the session is already ending.
      if (appendError_ || didFinish_) return;
      appendError_ = std::current_exception();
    }
    session_->cancel();
  }
}

void RealtimeTranscriptionCapture::append(const std::vector<PCMFrame>& frames, std::stop_token stop) noexcept {
  for (const PCMFrame& frame : frames) append(frame, stop);
}

TranscriptionResult RealtimeTranscriptionCapture::finish(std::stop_token stop) {
  std::exception_ptr error;
  {
    std::lock_guard lock(mutex_);
    didFinish_ = true;
    error = appendError_;
  }
  if (error) std::rethrow_exception(error);
  return session_->finish(stop);
}

void RealtimeTranscriptionCapture::cancel() noexcept {
  {
    std::lock_guard lock(mutex_);
    didFinish_ = true;
  }
  session_->cancel();
}

}  // namespace orvid
