#include "orvid/transcription/local/speech_model_library.h"

#include <cmath>
#include <utility>

namespace orvid {

std::string displayName(SpeechModelLibrary library) {
  switch (library) {
    case SpeechModelLibrary::whisperKit: return "WhisperKit";
    case SpeechModelLibrary::mlx: return "MLX";
    case SpeechModelLibrary::mlxAudioSTT: return "MLXAudioSTT";
    case SpeechModelLibrary::mlxAudioCore: return "MLXAudioCore";
    case SpeechModelLibrary::speechSwift: return "speech-swift";
    case SpeechModelLibrary::speechVAD: return "SpeechVAD";
    case SpeechModelLibrary::voxtralKit: return "VoxtralKit";
  }
  return "speech model library";
}

SpeechModelLibraryError::SpeechModelLibraryError(Case errorCase, std::optional<SpeechModelLibrary> library,
                                                 std::string message)
    : case_(errorCase), library_(library), message_(std::move(message)) {}

SpeechModelLibraryError SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary library) {
  return {Case::notSupportedOnPlatform, library, displayName(library) + " is not supported on Linux."};
}

SpeechModelLibraryError SpeechModelLibraryError::invalidModelFolder(const std::filesystem::path& folder,
                                                                    std::string reason) {
  return {Case::invalidModelFolder, std::nullopt,
          "The model folder " + folder.string() + " cannot be loaded: " + reason + "."};
}

double cosineSimilarity(std::span<const float> a, std::span<const float> b) {
  if (a.empty() || a.size() != b.size()) return 0;
  double dot = 0, normA = 0, normB = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    dot += double(a[i]) * b[i];
    normA += double(a[i]) * a[i];
    normB += double(b[i]) * b[i];
  }
  if (normA == 0 || normB == 0) return 0;
  return dot / (std::sqrt(normA) * std::sqrt(normB));
}

std::unique_ptr<SpeechModelLoader> makeWhisperKitModelLoader() {
  throw SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary::whisperKit);
}
std::unique_ptr<SpeechModelLoader> makeMLXAudioSTTModelLoader() {
  throw SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary::mlxAudioSTT);
}
std::unique_ptr<SpeechModelLoader> makeSpeechSwiftModelLoader() {
  throw SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary::speechSwift);
}
std::unique_ptr<SpeechModelLoader> makeVoxtralKitModelLoader() {
  throw SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary::voxtralKit);
}
std::unique_ptr<VoiceActivityDetector> makeSileroVoiceActivityDetector() {
  throw SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary::speechVAD);
}
std::unique_ptr<SpeakerEmbeddingModel> makeWeSpeakerEmbeddingModel() {
  throw SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary::speechVAD);
}

}  // namespace orvid
