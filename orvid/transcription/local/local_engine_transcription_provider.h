#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/transcription/local/local_transcription_engine_store.h"
#include "orvid/transcription/transcription_provider.h"

namespace orvid {

// One local model as a batch provider: requests go through the shared engine
// store, which takes the model's slot and loads the engine when needed. Copies
// share the store and the threads that feed streamed recordings; those threads are
// stopped and joined when the last copy goes.
class LocalEngineTranscriptionProvider : public TranscriptionProvider {
 public:
  LocalEngineTranscriptionProvider(std::string id, LocalTranscriptionModelDescriptor descriptor,
                                   std::shared_ptr<LocalTranscriptionEngineStore> engineStore);

  std::string id() const override { return id_; }
  const LocalTranscriptionModelDescriptor& descriptor() const { return descriptor_; }

  // The store's transcription of the request, stamped with its language route.
  // Throws what the store throws.
  TranscriptionResult transcribe(const TranscriptionRequest& request, std::stop_token stop = {}) override;

  // Opens a real-time session on the store (0.75-second previews) and returns its
  // partial results at once, while a thread of this provider's appends the frames
  // and finishes the session; a failure there cancels the session. Errors of the
  // opening are thrown here.
  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest& request,
                                                  std::stop_token stop = {}) override;

 private:
  class Feeders;

  LocalTranscriptionRequest localRequest(const TranscriptionRequest& request) const;

  std::string id_;
  LocalTranscriptionModelDescriptor descriptor_;
  std::shared_ptr<LocalTranscriptionEngineStore> engineStore_;
  std::shared_ptr<Feeders> feeders_;
};

}  // namespace orvid
