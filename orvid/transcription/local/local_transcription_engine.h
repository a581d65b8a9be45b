#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/core/transcription_records.h"
#include "orvid/platform/result_stream.h"
#include "orvid/transcription/local/local_transcription_request.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// One loaded on-device model. An engine serves exactly one model; the engine store
// hands it one request at a time, though unload() may overlap a running call.
class LocalTranscriptionEngine {
 public:
  virtual ~LocalTranscriptionEngine() = default;

  // The identifier of the model the engine was loaded for.
  virtual std::string modelID() const = 0;

  // The transcript of the whole of `request.audioFrames`, blocking until done.
  // Throws the engine's errors, and CancellationError once `stop` is requested.
  virtual TranscriptionResult transcribe(const LocalTranscriptionRequest& request, std::stop_token stop = {}) = 0;

  // Releases the model's memory; the engine is not used afterwards.
  virtual void unload() noexcept = 0;
};

// An engine that can report its running hypothesis while it decodes; the adaptive
// preview session uses it instead of transcribe() for previews.
class StreamingPreviewLocalTranscriptionEngine : public LocalTranscriptionEngine {
 public:
  // Each element is the engine's current hypothesis for the request's audio; the
  // stream finishes when decoding ends, or with the engine's error. Decoding stops
  // early once `stop` is requested.
  virtual ResultStream<std::string> previewStream(const LocalTranscriptionRequest& request,
                                                  std::stop_token stop = {}) = 0;
};

// An engine with a streaming decoder of its own: the store opens its sessions
// directly instead of previewing by re-transcription.
class NativeRealtimeLocalTranscriptionEngine : public LocalTranscriptionEngine {
 public:
  // A session that consumes audio as it arrives. `request` carries the model URL
  // and resolved language and no audio. Throws the engine's errors.
  virtual std::shared_ptr<RealtimeTranscriptionSession> startRealtimeSession(const LocalTranscriptionRequest& request,
                                                                             std::stop_token stop = {}) = 0;
};

}  // namespace orvid
