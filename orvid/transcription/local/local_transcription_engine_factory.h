#pragma once

#include <filesystem>
#include <memory>
#include <stop_token>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/transcription/local/local_transcription_engine.h"

namespace orvid {

// Loads engines for the engine store. Implementations are immutable or guard their
// own state; the store may load different models from several threads at once.
class LocalTranscriptionEngineFactory {
 public:
  virtual ~LocalTranscriptionEngineFactory() = default;

  // A loaded engine for `descriptor`, whose files are at `modelURL`. Blocking; throws
  // the loader's errors (LocalTranscriptionEngineError::unsupportedArtifact for a
  // format it cannot open), and CancellationError once `stop` is requested.
  virtual std::shared_ptr<LocalTranscriptionEngine> loadEngine(const LocalTranscriptionModelDescriptor& descriptor,
                                                               const std::filesystem::path& modelURL,
                                                               std::stop_token stop = {}) = 0;
};

}  // namespace orvid
