#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/core/transcription_records.h"
#include "orvid/transcription/local/local_engine_clock.h"
#include "orvid/transcription/local/local_transcription_engine_factory.h"
#include "orvid/transcription/local/local_transcription_request.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// The one place where on-device engines live: loads a model's engine through the
// factory when it is first used, keeps it loaded, lets one transcription or
// real-time session use a model at a time (others for the same model wait; other
// models run side by side), and unloads engines by the unload policy. Thread-safe;
// no lock is held while an engine loads, transcribes or unloads.
class LocalTranscriptionEngineStore {
 public:
  // Where a model's files are installed, if known; the model manager's final
  // location (TranscriptionModelManager::finalURL).
  using ModelLocator = std::function<std::optional<std::filesystem::path>(const std::string& modelID)>;

  // `clock` times the idle unloading and the preview sessions' pacing. When two
  // descriptors share an identifier, the first one is kept.
  LocalTranscriptionEngineStore(const std::vector<LocalTranscriptionModelDescriptor>& descriptors,
                                ModelLocator modelLocator,
                                std::shared_ptr<LocalTranscriptionEngineFactory> engineFactory,
                                LocalTranscriptionEngineUnloadPolicy unloadPolicy,
                                std::shared_ptr<LocalEngineClock> clock = std::make_shared<SteadyLocalEngineClock>());
  // Stops the pending idle unloads. Sessions still open keep their engines.
  ~LocalTranscriptionEngineStore();
  LocalTranscriptionEngineStore(const LocalTranscriptionEngineStore&) = delete;
  LocalTranscriptionEngineStore& operator=(const LocalTranscriptionEngineStore&) = delete;

  // Applies from the next end of a use; idle unloads already pending keep their delay.
  void updateUnloadPolicy(LocalTranscriptionEngineUnloadPolicy policy);
  LocalTranscriptionEngineUnloadPolicy unloadPolicy() const;

  bool isLoaded(const std::string& modelID) const;
  // What the store did last and the loaded models, sorted.
  LocalTranscriptionEngineState currentState() const;

  // Loads the model's engine unless it is loaded, and cancels its pending idle
  // unload. Throws LocalTranscriptionEngineError::unknownModel or ::modelNotInstalled,
  // and the factory's error (the state then shows the failure, redacted).
  void preload(const std::string& modelID, std::stop_token stop = {});

  // Waits for the model's slot, loads the engine if needed and transcribes with the
  // installed model URL and the resolved language set in the request. Throws
  // OrvidError::emptyAudio, LocalTranscriptionEngineError (unknown model, model not
  // installed, unsupported language), the factory's and the engine's errors, and
  // CancellationError. The slot is free again whenever this returns or throws.
  TranscriptionResult transcribe(const LocalTranscriptionRequest& request, std::stop_token stop = {});

  // Takes the model's slot for the life of the returned session: a native streaming
  // session for engines that have one, else an adaptive preview session paced by
  // LocalRealtimePreviewPolicy::forEngineType(engine type, previewInterval). The
  // slot is freed, and the unload policy applied, when the session finishes or is
  // cancelled. Throws as transcribe() does (there is no audio to check).
  std::shared_ptr<RealtimeTranscriptionSession> startRealtimeSession(const LocalTranscriptionRequest& request,
                                                                     std::chrono::duration<double> previewInterval,
                                                                     std::stop_token stop = {});

  // Unloads the model, or every model when absent, without waiting for its slot:
  // a running call keeps its engine until it returns. Never throws.
  void unload(const std::optional<std::string>& modelID = std::nullopt);

  // The language an engine is given for `requested`: absent or empty mean "auto";
  // a listed language as it is; for "auto" the first listed language other than
  // "auto"; "zh" for "zh-Hans" and "zh-Hant" when listed. Throws
  // LocalTranscriptionEngineError::unsupportedLanguage otherwise.
  static std::string resolvedLanguage(const std::optional<std::string>& requested,
                                      const LocalTranscriptionModelDescriptor& descriptor);

 private:
  class State;
  std::shared_ptr<State> state_;
};

}  // namespace orvid
