#include "orvid/transcription/store_managed_realtime_transcription_session.h"

#include <utility>

namespace orvid {

StoreManagedRealtimeTranscriptionSession::StoreManagedRealtimeTranscriptionSession(
    std::shared_ptr<RealtimeTranscriptionSession> inner, std::function<void()> onFinish)
    : inner_(std::move(inner)), onFinish_(std::move(onFinish)), partialResults_(inner_->partialResults()) {}

void StoreManagedRealtimeTranscriptionSession::appendPCM16(const PCMFrame& frame, std::stop_token stop) {
  inner_->appendPCM16(frame, stop);
}

TranscriptionResult StoreManagedRealtimeTranscriptionSession::finish(std::stop_token stop) {
  TranscriptionResult result;
  try {
    result = inner_->finish(stop);
  } catch (...) {
    release();
    throw;
  }
  release();
  return result;
}

void StoreManagedRealtimeTranscriptionSession::cancel() noexcept {
  inner_->cancel();
  release();
}

void StoreManagedRealtimeTranscriptionSession::release() noexcept {
  {
    std::lock_guard lock(mutex_);
    if (didRelease_) return;
    didRelease_ = true;
  }
  if (onFinish_) onFinish_();
}

}  // namespace orvid
