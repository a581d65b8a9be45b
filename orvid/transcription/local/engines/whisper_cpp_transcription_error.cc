#include "orvid/transcription/local/engines/whisper_cpp_transcription_error.h"

#include <utility>

#include "orvid/platform/internal/text.h"

namespace orvid {

WhisperCPPTranscriptionError::WhisperCPPTranscriptionError(Case errorCase, std::string description)
    : case_(errorCase), description_(std::move(description)) {}

WhisperCPPTranscriptionError WhisperCPPTranscriptionError::unsupportedEngine(LocalTranscriptionEngineType engineType) {
  WhisperCPPTranscriptionError error(Case::unsupportedEngine, "Local ASR engine `" + rawValue(engineType) +
                                                                  "` is not supported by the whisper.cpp adapter.");
  error.engineType_ = engineType;
  return error;
}

WhisperCPPTranscriptionError WhisperCPPTranscriptionError::processFailed(std::int32_t status, std::string message) {
  const std::string_view trimmed = internal::trimUnicodeWhitespace(message);
  std::string description = "whisper.cpp transcription failed with exit status " + std::to_string(status);
  description += trimmed.empty() ? "." : ": " + std::string(trimmed);
  WhisperCPPTranscriptionError error(Case::processFailed, std::move(description));
  error.status_ = status;
  error.processMessage_ = std::move(message);
  return error;
}

WhisperCPPTranscriptionError WhisperCPPTranscriptionError::executableNotFound() {
  return {Case::executableNotFound,
          "whisper.cpp executable not found. Install whisper.cpp so `whisper-cli` is on PATH, or bundle a compatible "
          "executable with Brindle."};
}

WhisperCPPTranscriptionError WhisperCPPTranscriptionError::missingTranscript() {
  return {Case::missingTranscript, "whisper.cpp completed but did not produce transcript text."};
}

}  // namespace orvid
