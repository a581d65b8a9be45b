#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace orvid {

// What the on-device engines, downloads, streaming sessions and speech gating need
// from a speech model library. Audio is mono float samples in -1...1 at 16,000 Hz
// unless a call names a rate. A backend implements these classes; the libraries
// that exist only on Apple platforms have no backend here and their factories throw
// SpeechModelLibraryError::notSupportedOnPlatform.

// The speech model libraries the engines know.
enum class SpeechModelLibrary {
  whisperKit,    // WhisperKit's Core ML pipeline
  mlx,           // MLX arrays and its memory cache
  mlxAudioSTT,   // MLX speech-to-text model loaders and streaming inference
  mlxAudioCore,  // MLX model folder resolution through the hub
  speechSwift,   // the speech model modules (Parakeet, Nemotron, Omnilingual, Qwen3, Whisper)
  speechVAD,     // Silero voice activity and WeSpeaker speaker embeddings
  voxtralKit,    // the Voxtral transcriber
};

// The library's name as users know it, e.g. "WhisperKit", "MLXAudioSTT".
std::string displayName(SpeechModelLibrary library);

class SpeechModelLibraryError : public std::exception {
 public:
  enum class Case { notSupportedOnPlatform, invalidModelFolder };
  // "<library> is not supported on Linux."
  static SpeechModelLibraryError notSupportedOnPlatform(SpeechModelLibrary library);
  // "The model folder <path> cannot be loaded: <reason>."
  static SpeechModelLibraryError invalidModelFolder(const std::filesystem::path& folder, std::string reason);
  Case errorCase() const { return case_; }
  std::optional<SpeechModelLibrary> library() const { return library_; }
  const char* what() const noexcept override { return message_.c_str(); }
  bool operator==(const SpeechModelLibraryError& other) const {
    return case_ == other.case_ && library_ == other.library_ && message_ == other.message_;
  }

 private:
  SpeechModelLibraryError(Case errorCase, std::optional<SpeechModelLibrary> library, std::string message);
  Case case_;
  std::optional<SpeechModelLibrary> library_;
  std::string message_;
};

// Decoding settings an engine passes to a Whisper-family model.
struct SpeechDecodingOptions {
  enum class Task { transcribe, translate };
  Task task = Task::transcribe;
  std::optional<std::string> language;
  float temperature = 0;
  float temperatureIncrementOnFallback = 0.2f;
  int temperatureFallbackCount = 5;
  std::optional<float> compressionRatioThreshold;
  std::optional<float> logProbThreshold;
  std::optional<float> noSpeechThreshold;
  bool operator==(const SpeechDecodingOptions&) const = default;
};

// A loaded model that turns a finished recording into text.
class SpeechRecognitionModel {
 public:
  // Receives the text recognised so far while a call runs; used for previews.
  using PartialTextHandler = std::function<void(const std::string& text)>;
  virtual ~SpeechRecognitionModel() = default;
  // The text of `samples` (mono, at `sampleRate`). Throws the backend's error, or
  // CancellationError once `stop` is requested.
  virtual std::string transcribe(std::span<const float> samples, double sampleRate, const SpeechDecodingOptions& options,
                                 const PartialTextHandler& onPartialText = {}, std::stop_token stop = {}) = 0;
  // Releases the model's weights and caches; later calls throw.
  virtual void unload() = 0;
};

// A push session of a streaming model: audio goes in as it is captured, text comes out.
class StreamingSpeechSession {
 public:
  virtual ~StreamingSpeechSession() = default;
  // Feeds samples at 16,000 Hz; returns the text recognised so far.
  virtual std::string push(std::span<const float> samples) = 0;
  // Ends the audio and returns the final text.
  virtual std::string finish() = 0;
};

// A model that can also stream.
class StreamingSpeechRecognitionModel : public SpeechRecognitionModel {
 public:
  // Phrases to favour while decoding, with their weight (Nemotron's word boosting).
  struct WordBoosting {
    std::vector<std::string> phrases;
    float boost = 0;
    float contextScore = 0;
    float depthScaling = 0;
    bool operator==(const WordBoosting&) const = default;
  };
  virtual std::unique_ptr<StreamingSpeechSession> startStreaming(const std::optional<WordBoosting>& boosting) = 0;
};

// Opens models of one engine family.
class SpeechModelLoader {
 public:
  virtual ~SpeechModelLoader() = default;
  // Loads the checkpoint in `modelFolder`. Throws SpeechModelLibraryError::invalidModelFolder
  // when the folder does not hold a usable model.
  virtual std::unique_ptr<SpeechRecognitionModel> load(const std::filesystem::path& modelFolder,
                                                       std::stop_token stop = {}) = 0;
  // Loads the model published under the hub repository `repositoryID`, downloading it
  // into the library's own cache when needed.
  virtual std::unique_ptr<SpeechRecognitionModel> loadPretrained(const std::string& repositoryID,
                                                                 std::stop_token stop = {}) = 0;
  // Frees the library's shared caches after models were unloaded (MLX's memory cache).
  virtual void clearCache() {}
};

// A change in a voice activity stream.
struct VoiceActivityEvent {
  enum class Kind { speechStarted, speechEnded };
  Kind kind = Kind::speechStarted;
  // Position of the change, in seconds since the detector was created or reset.
  double time = 0;
  bool operator==(const VoiceActivityEvent&) const = default;
};

// A streaming voice activity detector with its default (Silero) configuration.
class VoiceActivityDetector {
 public:
  virtual ~VoiceActivityDetector() = default;
  virtual std::vector<VoiceActivityEvent> process(std::span<const float> samples) = 0;
  virtual void reset() = 0;
  virtual void unload() = 0;
};

// Speaker embeddings for keeping only the enrolled speaker's voice.
class SpeakerEmbeddingModel {
 public:
  virtual ~SpeakerEmbeddingModel() = default;
  virtual std::vector<float> embed(std::span<const float> audio, double sampleRate) = 0;
  virtual void unload() = 0;
};

// The cosine of the angle between two embeddings; 0 when either is empty, zero or
// their lengths differ.
double cosineSimilarity(std::span<const float> a, std::span<const float> b);

// Factories of the libraries that exist only on Apple platforms. Each throws
// SpeechModelLibraryError::notSupportedOnPlatform naming its library.
std::unique_ptr<SpeechModelLoader> makeWhisperKitModelLoader();
std::unique_ptr<SpeechModelLoader> makeMLXAudioSTTModelLoader();
std::unique_ptr<SpeechModelLoader> makeSpeechSwiftModelLoader();
std::unique_ptr<SpeechModelLoader> makeVoxtralKitModelLoader();
std::unique_ptr<VoiceActivityDetector> makeSileroVoiceActivityDetector();
std::unique_ptr<SpeakerEmbeddingModel> makeWeSpeakerEmbeddingModel();

}  // namespace orvid
