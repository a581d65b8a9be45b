#pragma once

#include <chrono>
#include <memory>
#include <stop_token>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/transcription/local/local_transcription_engine_store.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Real-time sessions on one local model through the shared engine store: a native
// streaming session where the engine has one, else previews by re-transcription
// paced from `previewInterval`. Each session holds the model's slot until it ends.
class LocalRealtimeTranscriptionProvider : public RealtimeTranscriptionProvider {
 public:
  LocalRealtimeTranscriptionProvider(LocalTranscriptionModelDescriptor descriptor,
                                     std::shared_ptr<LocalTranscriptionEngineStore> engineStore,
                                     TranscriptionProviderOptions providerOptions,
                                     std::chrono::duration<double> previewInterval);

  // Waits for the model's slot and loads the engine when needed. Throws what
  // LocalTranscriptionEngineStore::startRealtimeSession throws.
  std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                             std::stop_token stop = {}) override;

 private:
  const LocalTranscriptionModelDescriptor descriptor_;
  const std::shared_ptr<LocalTranscriptionEngineStore> engineStore_;
  const TranscriptionProviderOptions providerOptions_;
  const std::chrono::duration<double> previewInterval_;
};

}  // namespace orvid
