#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

#include "orvid/core/corelib/local_transcription_model.h"

namespace orvid {

// Failures of the whisper.cpp engine. what() is the text every caller shows.
class WhisperCPPTranscriptionError : public std::exception {
 public:
  enum class Case { unsupportedEngine, processFailed, executableNotFound, missingTranscript };

  // "Local ASR engine `<raw name>` is not supported by the whisper.cpp adapter."
  static WhisperCPPTranscriptionError unsupportedEngine(LocalTranscriptionEngineType engineType);
  // "whisper.cpp transcription failed with exit status <status>: <trimmed message>",
  // or "... exit status <status>." when the trimmed message is empty.
  static WhisperCPPTranscriptionError processFailed(std::int32_t status, std::string message);
  static WhisperCPPTranscriptionError executableNotFound();
  static WhisperCPPTranscriptionError missingTranscript();

  Case errorCase() const { return case_; }
  // The engine type of unsupportedEngine.
  const std::optional<LocalTranscriptionEngineType>& engineType() const { return engineType_; }
  // The exit status of processFailed.
  const std::optional<std::int32_t>& status() const { return status_; }
  // The diagnostic text of processFailed, as given.
  const std::string& processMessage() const { return processMessage_; }
  const char* what() const noexcept override { return description_.c_str(); }

  bool operator==(const WhisperCPPTranscriptionError& other) const {
    return case_ == other.case_ && engineType_ == other.engineType_ && status_ == other.status_ &&
           processMessage_ == other.processMessage_;
  }

 private:
  WhisperCPPTranscriptionError(Case errorCase, std::string description);

  Case case_;
  std::optional<LocalTranscriptionEngineType> engineType_;
  std::optional<std::int32_t> status_;
  std::string processMessage_;
  std::string description_;
};

}  // namespace orvid
