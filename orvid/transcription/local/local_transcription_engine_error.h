#pragma once

#include <exception>
#include <optional>
#include <string>

#include "orvid/core/corelib/local_transcription_model.h"

namespace orvid {

// Failures of the engine store and of engine factories. what() is the text shown
// to the user.
class LocalTranscriptionEngineError : public std::exception {
 public:
  enum class Case { unknownModel, modelNotInstalled, unsupportedLanguage, unsupportedArtifact };

  // "Local model '<id>' is not supported in this version of the app."
  static LocalTranscriptionEngineError unknownModel(std::string modelID);
  // "Local model '<id>' is not downloaded. Please open Settings -> Orvid to download it."
  static LocalTranscriptionEngineError modelNotInstalled(std::string modelID);
  // "Language '<language>' is not supported by local model '<id>'."
  static LocalTranscriptionEngineError unsupportedLanguage(std::string modelID, std::string language);
  // "Local model '<id>' uses unsupported artifact format '<format>'."; for the
  // onnxRuntimeBundle format, which nothing here loads, the unknownModel sentence.
  static LocalTranscriptionEngineError unsupportedArtifact(std::string modelID,
                                                           LocalTranscriptionArtifactFormat format);

  Case errorCase() const { return case_; }
  const std::string& modelID() const { return modelID_; }
  // The language of unsupportedLanguage.
  const std::optional<std::string>& language() const { return language_; }
  // The format of unsupportedArtifact.
  const std::optional<LocalTranscriptionArtifactFormat>& format() const { return format_; }
  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const LocalTranscriptionEngineError& other) const {
    return case_ == other.case_ && modelID_ == other.modelID_ && language_ == other.language_ &&
           format_ == other.format_;
  }

 private:
  LocalTranscriptionEngineError(Case errorCase, std::string modelID, std::string message);

  Case case_;
  std::string modelID_;
  std::optional<std::string> language_;
  std::optional<LocalTranscriptionArtifactFormat> format_;
  std::string message_;
};

}  // namespace orvid
