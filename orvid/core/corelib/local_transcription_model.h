#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/platform/url.h"

namespace orvid {

// The engine family that runs an on-device model. The order of the cases is fixed:
// preview pacing, download patterns and loaders are indexed by it.
enum class LocalTranscriptionEngineType {
  whisperKit,                    // 0: WhisperKit Core ML pipeline
  whisperCpp,                    // 1: the whisper.cpp command-line program
  mlxSenseVoice,                 // 2
  sherpaOnnxSenseVoice,          // 3: earlier ONNX runtime models, no longer loadable
  sherpaOnnxParakeet,            // 4
  mlxParakeet,                   // 5
  sherpaOnnxCohere,              // 6
  appleSpeech,                   // 7: the platform speech recogniser
  mlxCohere,                     // 8
  mlxQwen3ASR,                   // 9
  mlxVoxtral,                    // 10
  mlxGLMASR,                     // 11
  mlxGraniteSpeech,              // 12
  mlxFireRedASR,                 // 13
  sherpaOnnxStreamingZipformer,  // 14
  speechSwiftQwen3,              // 15
  speechSwiftWhisper,            // 16
  speechSwiftParakeet,           // 17
  speechSwiftParakeetStreaming,  // 18
  speechSwiftNemotron,           // 19
  speechSwiftOmnilingualCoreML,  // 20
  speechSwiftOmnilingualMLX,     // 21
  pocketSphinx,                  // 22: CMU PocketSphinx, the on-device engine of Linux hosts
};

// How a model's files are laid out and which loader can open them.
enum class LocalTranscriptionArtifactFormat {
  whisperKitManaged,
  whisperCppModel,
  mlxCheckpointDirectory,
  systemSpeech,
  speechSwiftModule,
  onnxRuntimeBundle,  // earlier releases' format; no engine here loads it
  // Installed by the system's package manager: `fileName` is the absolute path of the
  // model's folder, which is never downloaded or deleted here.
  systemPackage,
};

// Where on-device models are downloaded from.
enum class ModelDownloadSource { huggingFace, huggingFaceMirror, modelScope };

// The case names, e.g. "whisperCpp", "mlxCheckpointDirectory", "huggingFaceMirror".
std::string rawValue(LocalTranscriptionEngineType type);
std::string rawValue(LocalTranscriptionArtifactFormat format);
std::string rawValue(ModelDownloadSource source);
// The case whose name is exactly `text`; absent for anything else.
std::optional<LocalTranscriptionEngineType> localTranscriptionEngineType(std::string_view text);
std::optional<LocalTranscriptionArtifactFormat> localTranscriptionArtifactFormat(std::string_view text);
std::optional<ModelDownloadSource> modelDownloadSource(std::string_view text);
// The case's position, counted from 0 in declaration order.
int caseIndex(LocalTranscriptionEngineType type);

// One on-device model the host can download and run.
struct LocalTranscriptionModelDescriptor {
  std::string id;
  std::string name;
  // The model's entry name under the models folder (a file, or a folder when `isDirectory`).
  std::string fileName;
  // Direct download of the file or archive; absent for models fetched by repository.
  std::optional<URL> downloadURL;
  int approximateSizeMB = 0;
  std::optional<std::int64_t> downloadSizeBytes;
  bool isDirectory = false;
  LocalTranscriptionEngineType engineType = LocalTranscriptionEngineType::whisperCpp;
  // Language codes the model accepts; "auto" when it detects the language itself.
  std::vector<std::string> languageCodes;
  // WhisperKit's variant folder name, for WhisperKit models.
  std::optional<std::string> whisperKitVariant;
  LocalTranscriptionArtifactFormat artifactFormat = LocalTranscriptionArtifactFormat::whisperCppModel;
  // Hugging Face repository of checkpoint-folder and speech-module models.
  std::optional<std::string> repositoryID;
  // Lower-case hex SHA-256 of the directly downloaded file or archive, when known; a
  // download whose bytes do not match it is not installed.
  std::optional<std::string> sha256;

  bool operator==(const LocalTranscriptionModelDescriptor&) const = default;
};

// When the engine store unloads a model after use.
struct LocalTranscriptionEngineUnloadPolicy {
  enum class Kind { afterIdleSeconds, keepLoaded, immediately };

  Kind kind = Kind::afterIdleSeconds;
  // For `afterIdleSeconds` only.
  std::uint64_t idleSeconds = 300;

  static LocalTranscriptionEngineUnloadPolicy afterIdle(std::uint64_t seconds);
  static LocalTranscriptionEngineUnloadPolicy keepLoaded();
  static LocalTranscriptionEngineUnloadPolicy immediately();

  bool operator==(const LocalTranscriptionEngineUnloadPolicy&) const = default;
};

std::string rawValue(LocalTranscriptionEngineUnloadPolicy::Kind kind);

// What the engine store did last.
struct LocalTranscriptionEnginePhase {
  enum class Kind { unloaded, loading, loaded, failed };

  Kind kind = Kind::unloaded;
  // The model of `loading`, `loaded` and `failed`.
  std::optional<std::string> modelID;
  // The failure text of `failed`.
  std::optional<std::string> message;

  static LocalTranscriptionEnginePhase unloaded();
  static LocalTranscriptionEnginePhase loading(std::string modelID);
  static LocalTranscriptionEnginePhase loaded(std::string modelID);
  static LocalTranscriptionEnginePhase failed(std::string modelID, std::string message);

  bool operator==(const LocalTranscriptionEnginePhase&) const = default;
};

std::string rawValue(LocalTranscriptionEnginePhase::Kind kind);

// The engine store's published state.
struct LocalTranscriptionEngineState {
  LocalTranscriptionEnginePhase phase;
  // Sorted ascending.
  std::vector<std::string> loadedModelIDs;
  std::optional<std::string> lastErrorMessage;

  // No model loaded, nothing loading, no message.
  static LocalTranscriptionEngineState unloaded();

  bool operator==(const LocalTranscriptionEngineState&) const = default;
};

// The on-disk state of one model, as the model manager reports it.
struct LocalTranscriptionModelState {
  std::string modelID;
  bool isInstalled = false;
  bool isDownloading = false;
  bool isExtracting = false;
  std::int64_t downloadedBytes = 0;
  // 0…1; absent when no total is known.
  std::optional<double> progress;
  std::optional<std::string> message;
  std::optional<double> bytesPerSecond;
  // The model's final location.
  std::optional<std::string> path;

  bool operator==(const LocalTranscriptionModelState&) const = default;
};

// JSON: enumerations as their case names; records with their field names as keys,
// absent optionals omitted; URLs as their absolute text. Decoding throws
// nlohmann::json::exception for unknown case names or unparsable URLs.
void to_json(nlohmann::json& json, const LocalTranscriptionEngineType& type);
void from_json(const nlohmann::json& json, LocalTranscriptionEngineType& type);
void to_json(nlohmann::json& json, const LocalTranscriptionArtifactFormat& format);
void from_json(const nlohmann::json& json, LocalTranscriptionArtifactFormat& format);
void to_json(nlohmann::json& json, const ModelDownloadSource& source);
void from_json(const nlohmann::json& json, ModelDownloadSource& source);
void to_json(nlohmann::json& json, const LocalTranscriptionModelDescriptor& descriptor);
void from_json(const nlohmann::json& json, LocalTranscriptionModelDescriptor& descriptor);
// {"kind": "afterIdleSeconds", "idleSeconds": 300} | {"kind": "keepLoaded"} | {"kind": "immediately"}
void to_json(nlohmann::json& json, const LocalTranscriptionEngineUnloadPolicy& policy);
void from_json(const nlohmann::json& json, LocalTranscriptionEngineUnloadPolicy& policy);
void to_json(nlohmann::json& json, const LocalTranscriptionEnginePhase& phase);
void from_json(const nlohmann::json& json, LocalTranscriptionEnginePhase& phase);
void to_json(nlohmann::json& json, const LocalTranscriptionEngineState& state);
void from_json(const nlohmann::json& json, LocalTranscriptionEngineState& state);
void to_json(nlohmann::json& json, const LocalTranscriptionModelState& state);
void from_json(const nlohmann::json& json, LocalTranscriptionModelState& state);

}  // namespace orvid
