#include "orvid/transcription/local/engines/whisper_cpp_transcription_engine_factory.h"

#include <utility>

#include "orvid/transcription/local/engines/whisper_cpp_transcription_engine.h"
#include "orvid/transcription/local/engines/whisper_cpp_transcription_error.h"

namespace orvid {
namespace {

WhisperCPPExecutableLocator locator(std::optional<std::filesystem::path> executableURL,
                                    std::optional<std::filesystem::path> bundledResourcesDirectory) {
  WhisperCPPExecutableLocator locator;
  locator.explicitExecutableURL = std::move(executableURL);
  locator.environment = currentProcessEnvironment();
  locator.bundledResourcesDirectory = std::move(bundledResourcesDirectory);
  return locator;
}

}  // namespace

WhisperCPPTranscriptionEngineFactory::WhisperCPPTranscriptionEngineFactory(
    std::optional<std::filesystem::path> executableURL, std::shared_ptr<OrvidProcessRunning> processRunner,
    std::filesystem::path temporaryDirectory, std::optional<std::filesystem::path> bundledResourcesDirectory)
    : WhisperCPPTranscriptionEngineFactory(locator(std::move(executableURL), std::move(bundledResourcesDirectory)),
                                           std::move(processRunner), std::move(temporaryDirectory)) {}

WhisperCPPTranscriptionEngineFactory::WhisperCPPTranscriptionEngineFactory(
    WhisperCPPExecutableLocator executableLocator, std::shared_ptr<OrvidProcessRunning> processRunner,
    std::filesystem::path temporaryDirectory)
    : executableLocator_(std::move(executableLocator)),
      processRunner_(std::move(processRunner)),
      temporaryDirectory_(std::move(temporaryDirectory)) {}

std::shared_ptr<LocalTranscriptionEngine> WhisperCPPTranscriptionEngineFactory::loadEngine(
    const LocalTranscriptionModelDescriptor& descriptor, const std::filesystem::path& modelURL, std::stop_token) {
  if (descriptor.engineType != LocalTranscriptionEngineType::whisperCpp) {
    throw WhisperCPPTranscriptionError::unsupportedEngine(descriptor.engineType);
  }
  std::optional<std::filesystem::path> executable = executableLocator_.executableURL();
  if (!executable) throw WhisperCPPTranscriptionError::executableNotFound();
  return std::make_shared<WhisperCPPTranscriptionEngine>(descriptor.id, modelURL, *executable, processRunner_,
                                                         temporaryDirectory_);
}

}  // namespace orvid
