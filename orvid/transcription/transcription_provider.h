#pragma once

#include <stop_token>
#include <string>

#include "orvid/core/transcription_records.h"
#include "orvid/platform/result_stream.h"

namespace orvid {

// Turns a finished recording into a transcript. Implementations are immutable or
// guard their own state, and may serve any number of requests from several threads
// at once.
class TranscriptionProvider {
 public:
  virtual ~TranscriptionProvider() = default;

  // The identifier given at construction.
  virtual std::string id() const = 0;

  // Transcribes the whole recording, blocking until done. The result has passed
  // through TranscriptionResult::applying(request.languageRoute). Throws
  // OrvidError::emptyAudio when the request has no frames, CancellationError once
  // `stop` is requested, and the provider's own errors.
  virtual TranscriptionResult transcribe(const TranscriptionRequest& request, std::stop_token stop = {}) = 0;

  // Partial results while the recording is transcribed; the stream finishes when
  // transcription is complete, or with the error that stopped it. Providers that
  // cannot stream a finished recording throw OrvidError::unsupportedStreaming from
  // the call itself, before any other work.
  virtual ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest& request,
                                                         std::stop_token stop = {}) = 0;
};

}  // namespace orvid
