#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>

#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// A session that runs a release callback exactly once, after the wrapped session
// has ended by finish() (returning or throwing) or by cancel(), whichever comes
// first. The on-device engine store uses it to free its transcription slot.
class StoreManagedRealtimeTranscriptionSession : public RealtimeTranscriptionSession {
 public:
  // `onFinish` may run on any thread and must not throw.
  StoreManagedRealtimeTranscriptionSession(std::shared_ptr<RealtimeTranscriptionSession> inner,
                                           std::function<void()> onFinish);

  ResultStream<TranscriptionPartialResult> partialResults() const override { return partialResults_; }
  void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) override;
  // The inner session's result or error, after the release.
  TranscriptionResult finish(std::stop_token stop = {}) override;
  void cancel() noexcept override;

 private:
  void release() noexcept;

  const std::shared_ptr<RealtimeTranscriptionSession> inner_;
  const std::function<void()> onFinish_;
  const ResultStream<TranscriptionPartialResult> partialResults_;
  std::mutex mutex_;
  bool didRelease_ = false;
};

}  // namespace orvid
