#include "orvid/transcription/local/local_realtime_transcription_provider.h"

#include <utility>

namespace orvid {

LocalRealtimeTranscriptionProvider::LocalRealtimeTranscriptionProvider(
    LocalTranscriptionModelDescriptor descriptor, std::shared_ptr<LocalTranscriptionEngineStore> engineStore,
    TranscriptionProviderOptions providerOptions, std::chrono::duration<double> previewInterval)
    : descriptor_(std::move(descriptor)),
      engineStore_(std::move(engineStore)),
      providerOptions_(std::move(providerOptions)),
      previewInterval_(previewInterval) {}

std::shared_ptr<RealtimeTranscriptionSession> LocalRealtimeTranscriptionProvider::startSession(
    const RealtimeTranscriptionStartRequest& request, std::stop_token stop) {
  const LocalTranscriptionRequest local{.modelID = descriptor_.id,
                                        .modelURL = "/",
                                        .audioFrames = {},
                                        .languageRoute = request.languageRoute,
                                        .promptHint = request.promptHint,
                                        .providerOptions = providerOptions_};
  return engineStore_->startRealtimeSession(local, previewInterval_, std::move(stop));
}

}  // namespace orvid
