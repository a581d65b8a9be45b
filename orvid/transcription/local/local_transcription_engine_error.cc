#include "orvid/transcription/local/local_transcription_engine_error.h"

#include <utility>

namespace orvid {

LocalTranscriptionEngineError::LocalTranscriptionEngineError(Case errorCase, std::string modelID, std::string message)
    : case_(errorCase), modelID_(std::move(modelID)), message_(std::move(message)) {}

LocalTranscriptionEngineError LocalTranscriptionEngineError::unknownModel(std::string modelID) {
  std::string message = "Local model '" + modelID + "' is not supported in this version of the app.";
  return {Case::unknownModel, std::move(modelID), std::move(message)};
}

LocalTranscriptionEngineError LocalTranscriptionEngineError::modelNotInstalled(std::string modelID) {
  std::string message =
      "Local model '" + modelID + "' is not downloaded. Please open Settings -> Orvid to download it.";
  return {Case::modelNotInstalled, std::move(modelID), std::move(message)};
}

LocalTranscriptionEngineError LocalTranscriptionEngineError::unsupportedLanguage(std::string modelID,
                                                                                 std::string language) {
  std::string message = "Language '" + language + "' is not supported by local model '" + modelID + "'.";
  LocalTranscriptionEngineError error(Case::unsupportedLanguage, std::move(modelID), std::move(message));
  error.language_ = std::move(language);
  return error;
}

LocalTranscriptionEngineError LocalTranscriptionEngineError::unsupportedArtifact(
    std::string modelID, LocalTranscriptionArtifactFormat format) {
  std::string message;
  switch (format) {
    case LocalTranscriptionArtifactFormat::whisperKitManaged:
    case LocalTranscriptionArtifactFormat::whisperCppModel:
    case LocalTranscriptionArtifactFormat::mlxCheckpointDirectory:
    case LocalTranscriptionArtifactFormat::systemSpeech:
    case LocalTranscriptionArtifactFormat::speechSwiftModule:
    case LocalTranscriptionArtifactFormat::systemPackage:
      message = "Local model '" + modelID + "' uses unsupported artifact format '" + rawValue(format) + "'.";
      break;
    case LocalTranscriptionArtifactFormat::onnxRuntimeBundle:
      message = "Local model '" + modelID + "' is not supported in this version of the app.";
      break;
  }
  LocalTranscriptionEngineError error(Case::unsupportedArtifact, std::move(modelID), std::move(message));
  error.format_ = format;
  return error;
}

}  // namespace orvid
