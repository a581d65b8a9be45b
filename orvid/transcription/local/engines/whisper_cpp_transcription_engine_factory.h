#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

#include "orvid/automation/orvid_process_running.h"
#include "orvid/transcription/local/engines/whisper_cpp_executable_locator.h"
#include "orvid/transcription/local/local_transcription_engine_factory.h"

namespace orvid {

// Loads whisper.cpp models: finds the program once per load and binds the model to
// it until the store unloads the model. Immutable.
class WhisperCPPTranscriptionEngineFactory : public LocalTranscriptionEngineFactory {
 public:
  // Looks for the program as WhisperCPPExecutableLocator does, with `executableURL`
  // preferred, this process's PATH (read now) and, when given, the folder of
  // programs the host ships.
  WhisperCPPTranscriptionEngineFactory(std::optional<std::filesystem::path> executableURL,
                                       std::shared_ptr<OrvidProcessRunning> processRunner,
                                       std::filesystem::path temporaryDirectory,
                                       std::optional<std::filesystem::path> bundledResourcesDirectory = std::nullopt);
  WhisperCPPTranscriptionEngineFactory(WhisperCPPExecutableLocator executableLocator,
                                       std::shared_ptr<OrvidProcessRunning> processRunner,
                                       std::filesystem::path temporaryDirectory);

  const WhisperCPPExecutableLocator& executableLocator() const { return executableLocator_; }

  // A WhisperCPPTranscriptionEngine for `modelURL`. Throws
  // WhisperCPPTranscriptionError::unsupportedEngine for a descriptor whose engine
  // type is not whisperCpp, and ::executableNotFound when no program is installed.
  std::shared_ptr<LocalTranscriptionEngine> loadEngine(const LocalTranscriptionModelDescriptor& descriptor,
                                                       const std::filesystem::path& modelURL,
                                                       std::stop_token stop = {}) override;

 private:
  const WhisperCPPExecutableLocator executableLocator_;
  const std::shared_ptr<OrvidProcessRunning> processRunner_;
  const std::filesystem::path temporaryDirectory_;
};

}  // namespace orvid
