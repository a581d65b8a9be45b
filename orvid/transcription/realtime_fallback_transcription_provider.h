#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/transcription/realtime_transcription_provider.h"
#include "orvid/transcription/transcription_provider.h"

namespace orvid {

// The batch contract on top of a real-time provider: a finished recording is
// streamed through a real-time session, and when that fails a batch provider
// can take the whole request instead. Copies share the providers and the
// threads that feed streamed recordings; those threads are stopped and joined
// when the last copy goes.
class RealtimeFallbackTranscriptionProvider : public TranscriptionProvider {
 public:
  RealtimeFallbackTranscriptionProvider(std::string id, std::shared_ptr<RealtimeTranscriptionProvider> realtimeProvider,
                                        std::shared_ptr<TranscriptionProvider> batchProvider, bool fallsBackToBatch);

  std::string id() const override { return id_; }

  // Opens a session with the request's route and prompt, appends every frame,
  // finishes it and returns the result stamped with the route. When any of that
  // throws, the failed session is cancelled and, if fallsBackToBatch, the batch
  // provider transcribes the unchanged request (its errors propagate); otherwise
  // the real-time error is rethrown. A stop is never answered with a fallback.
  // Throws OrvidError::emptyAudio for a request without frames.
  TranscriptionResult transcribe(const TranscriptionRequest& request, std::stop_token stop = {}) override;

  // Opens a session (its errors propagate; there is no fallback) and returns its
  // partial results at once, while a thread of this provider's appends the
  // frames and finishes the session. Failures after the start reach the caller
  // only through the stream: the feeding thread cancels the session and ends.
  // Feeding stops when `stop` is requested or the last copy of the provider goes.
  // Throws OrvidError::emptyAudio for a request without frames.
  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest& request,
                                                  std::stop_token stop = {}) override;

 private:
  class Feeders;

  std::string id_;
  std::shared_ptr<RealtimeTranscriptionProvider> realtimeProvider_;
  std::shared_ptr<TranscriptionProvider> batchProvider_;
  bool fallsBackToBatch_;
  std::shared_ptr<Feeders> feeders_;
};

}  // namespace orvid
