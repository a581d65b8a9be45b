#include "orvid/core/corelib/local_transcription_model.h"

#include <array>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/core/corelib/url_json_support.h"

namespace orvid {
namespace {

using EngineType = LocalTranscriptionEngineType;
using Format = LocalTranscriptionArtifactFormat;

constexpr std::array<std::pair<EngineType, const char*>, 23> kEngineTypeNames{{
    {EngineType::whisperKit, "whisperKit"},
    {EngineType::whisperCpp, "whisperCpp"},
    {EngineType::mlxSenseVoice, "mlxSenseVoice"},
    {EngineType::sherpaOnnxSenseVoice, "sherpaOnnxSenseVoice"},
    {EngineType::sherpaOnnxParakeet, "sherpaOnnxParakeet"},
    {EngineType::mlxParakeet, "mlxParakeet"},
    {EngineType::sherpaOnnxCohere, "sherpaOnnxCohere"},
    {EngineType::appleSpeech, "appleSpeech"},
    {EngineType::mlxCohere, "mlxCohere"},
    {EngineType::mlxQwen3ASR, "mlxQwen3ASR"},
    {EngineType::mlxVoxtral, "mlxVoxtral"},
    {EngineType::mlxGLMASR, "mlxGLMASR"},
    {EngineType::mlxGraniteSpeech, "mlxGraniteSpeech"},
    {EngineType::mlxFireRedASR, "mlxFireRedASR"},
    {EngineType::sherpaOnnxStreamingZipformer, "sherpaOnnxStreamingZipformer"},
    {EngineType::speechSwiftQwen3, "speechSwiftQwen3"},
    {EngineType::speechSwiftWhisper, "speechSwiftWhisper"},
    {EngineType::speechSwiftParakeet, "speechSwiftParakeet"},
    {EngineType::speechSwiftParakeetStreaming, "speechSwiftParakeetStreaming"},
    {EngineType::speechSwiftNemotron, "speechSwiftNemotron"},
    {EngineType::speechSwiftOmnilingualCoreML, "speechSwiftOmnilingualCoreML"},
    {EngineType::speechSwiftOmnilingualMLX, "speechSwiftOmnilingualMLX"},
    {EngineType::pocketSphinx, "pocketSphinx"},
}};

constexpr std::array<std::pair<Format, const char*>, 7> kFormatNames{{
    {Format::whisperKitManaged, "whisperKitManaged"},
    {Format::whisperCppModel, "whisperCppModel"},
    {Format::mlxCheckpointDirectory, "mlxCheckpointDirectory"},
    {Format::systemSpeech, "systemSpeech"},
    {Format::speechSwiftModule, "speechSwiftModule"},
    {Format::onnxRuntimeBundle, "onnxRuntimeBundle"},
    {Format::systemPackage, "systemPackage"},
}};

constexpr std::array<std::pair<ModelDownloadSource, const char*>, 3> kSourceNames{{
    {ModelDownloadSource::huggingFace, "huggingFace"},
    {ModelDownloadSource::huggingFaceMirror, "huggingFaceMirror"},
    {ModelDownloadSource::modelScope, "modelScope"},
}};

using PolicyKind = LocalTranscriptionEngineUnloadPolicy::Kind;
constexpr std::array<std::pair<PolicyKind, const char*>, 3> kPolicyNames{{
    {PolicyKind::afterIdleSeconds, "afterIdleSeconds"},
    {PolicyKind::keepLoaded, "keepLoaded"},
    {PolicyKind::immediately, "immediately"},
}};

using PhaseKind = LocalTranscriptionEnginePhase::Kind;
constexpr std::array<std::pair<PhaseKind, const char*>, 4> kPhaseNames{{
    {PhaseKind::unloaded, "unloaded"},
    {PhaseKind::loading, "loading"},
    {PhaseKind::loaded, "loaded"},
    {PhaseKind::failed, "failed"},
}};

template <typename E, std::size_t N>
std::string nameIn(const std::array<std::pair<E, const char*>, N>& table, E value) {
  for (const auto& [candidate, name] : table) {
    if (candidate == value) return name;
  }
  return table.front().second;
}

template <typename E, std::size_t N>
std::optional<E> caseIn(const std::array<std::pair<E, const char*>, N>& table, std::string_view text) {
  for (const auto& [candidate, name] : table) {
    if (text == name) return candidate;
  }
  return std::nullopt;
}

template <typename E, std::size_t N>
E decodeCase(const std::array<std::pair<E, const char*>, N>& table, const nlohmann::json& json, const char* what) {
  auto text = json.get<std::string>();
  if (auto value = caseIn(table, text)) return *value;
  throw nlohmann::json::other_error::create(501, std::string("unknown ") + what + ": " + text, &json);
}

}  // namespace

std::string rawValue(LocalTranscriptionEngineType type) { return nameIn(kEngineTypeNames, type); }
std::string rawValue(LocalTranscriptionArtifactFormat format) { return nameIn(kFormatNames, format); }
std::string rawValue(ModelDownloadSource source) { return nameIn(kSourceNames, source); }
std::string rawValue(LocalTranscriptionEngineUnloadPolicy::Kind kind) { return nameIn(kPolicyNames, kind); }
std::string rawValue(LocalTranscriptionEnginePhase::Kind kind) { return nameIn(kPhaseNames, kind); }

std::optional<LocalTranscriptionEngineType> localTranscriptionEngineType(std::string_view text) {
  return caseIn(kEngineTypeNames, text);
}
std::optional<LocalTranscriptionArtifactFormat> localTranscriptionArtifactFormat(std::string_view text) {
  return caseIn(kFormatNames, text);
}
std::optional<ModelDownloadSource> modelDownloadSource(std::string_view text) { return caseIn(kSourceNames, text); }

int caseIndex(LocalTranscriptionEngineType type) { return static_cast<int>(type); }

LocalTranscriptionEngineUnloadPolicy LocalTranscriptionEngineUnloadPolicy::afterIdle(std::uint64_t seconds) {
  return {Kind::afterIdleSeconds, seconds};
}
LocalTranscriptionEngineUnloadPolicy LocalTranscriptionEngineUnloadPolicy::keepLoaded() {
  return {Kind::keepLoaded, 0};
}
LocalTranscriptionEngineUnloadPolicy LocalTranscriptionEngineUnloadPolicy::immediately() {
  return {Kind::immediately, 0};
}

LocalTranscriptionEnginePhase LocalTranscriptionEnginePhase::unloaded() { return {}; }
LocalTranscriptionEnginePhase LocalTranscriptionEnginePhase::loading(std::string modelID) {
  return {Kind::loading, std::move(modelID), std::nullopt};
}
LocalTranscriptionEnginePhase LocalTranscriptionEnginePhase::loaded(std::string modelID) {
  return {Kind::loaded, std::move(modelID), std::nullopt};
}
LocalTranscriptionEnginePhase LocalTranscriptionEnginePhase::failed(std::string modelID, std::string message) {
  return {Kind::failed, std::move(modelID), std::move(message)};
}

LocalTranscriptionEngineState LocalTranscriptionEngineState::unloaded() { return {}; }

void to_json(nlohmann::json& json, const LocalTranscriptionEngineType& type) { json = rawValue(type); }
void from_json(const nlohmann::json& json, LocalTranscriptionEngineType& type) {
  type = decodeCase(kEngineTypeNames, json, "engine type");
}
void to_json(nlohmann::json& json, const LocalTranscriptionArtifactFormat& format) { json = rawValue(format); }
void from_json(const nlohmann::json& json, LocalTranscriptionArtifactFormat& format) {
  format = decodeCase(kFormatNames, json, "artifact format");
}
void to_json(nlohmann::json& json, const ModelDownloadSource& source) { json = rawValue(source); }
void from_json(const nlohmann::json& json, ModelDownloadSource& source) {
  source = decodeCase(kSourceNames, json, "download source");
}

void to_json(nlohmann::json& json, const LocalTranscriptionModelDescriptor& descriptor) {
  json = nlohmann::json::object();
  json["id"] = descriptor.id;
  json["name"] = descriptor.name;
  json["fileName"] = descriptor.fileName;
  json_support::putOptionalURL(json, "downloadURL", descriptor.downloadURL);
  json["approximateSizeMB"] = descriptor.approximateSizeMB;
  json_support::putOptional(json, "downloadSizeBytes", descriptor.downloadSizeBytes);
  json["isDirectory"] = descriptor.isDirectory;
  json["engineType"] = descriptor.engineType;
  json["languageCodes"] = descriptor.languageCodes;
  json_support::putOptional(json, "whisperKitVariant", descriptor.whisperKitVariant);
  json["artifactFormat"] = descriptor.artifactFormat;
  json_support::putOptional(json, "repositoryID", descriptor.repositoryID);
  json_support::putOptional(json, "sha256", descriptor.sha256);
}

void from_json(const nlohmann::json& json, LocalTranscriptionModelDescriptor& descriptor) {
  descriptor.id = json.at("id").get<std::string>();
  descriptor.name = json.at("name").get<std::string>();
  descriptor.fileName = json.at("fileName").get<std::string>();
  json_support::getOptionalURL(json, "downloadURL", descriptor.downloadURL);
  descriptor.approximateSizeMB = json_support::integer<int>(json.at("approximateSizeMB"));
  json_support::getOptional(json, "downloadSizeBytes", descriptor.downloadSizeBytes);
  descriptor.isDirectory = json.at("isDirectory").get<bool>();
  descriptor.engineType = json.at("engineType").get<LocalTranscriptionEngineType>();
  descriptor.languageCodes = json.at("languageCodes").get<std::vector<std::string>>();
  json_support::getOptional(json, "whisperKitVariant", descriptor.whisperKitVariant);
  descriptor.artifactFormat = json.at("artifactFormat").get<LocalTranscriptionArtifactFormat>();
  json_support::getOptional(json, "repositoryID", descriptor.repositoryID);
  json_support::getOptional(json, "sha256", descriptor.sha256);
}

void to_json(nlohmann::json& json, const LocalTranscriptionEngineUnloadPolicy& policy) {
  json = nlohmann::json{{"kind", rawValue(policy.kind)}};
  if (policy.kind == PolicyKind::afterIdleSeconds) json["idleSeconds"] = policy.idleSeconds;
}

void from_json(const nlohmann::json& json, LocalTranscriptionEngineUnloadPolicy& policy) {
  auto kind = decodeCase(kPolicyNames, json.at("kind"), "unload policy");
  policy = {kind, kind == PolicyKind::afterIdleSeconds ? json_support::integer<std::uint64_t>(json.at("idleSeconds")) : 0};
}

void to_json(nlohmann::json& json, const LocalTranscriptionEnginePhase& phase) {
  json = nlohmann::json{{"kind", rawValue(phase.kind)}};
  json_support::putOptional(json, "modelID", phase.modelID);
  json_support::putOptional(json, "message", phase.message);
}

void from_json(const nlohmann::json& json, LocalTranscriptionEnginePhase& phase) {
  phase.kind = decodeCase(kPhaseNames, json.at("kind"), "engine phase");
  json_support::getOptional(json, "modelID", phase.modelID);
  json_support::getOptional(json, "message", phase.message);
}

void to_json(nlohmann::json& json, const LocalTranscriptionEngineState& state) {
  json = nlohmann::json{{"phase", state.phase}, {"loadedModelIDs", state.loadedModelIDs}};
  json_support::putOptional(json, "lastErrorMessage", state.lastErrorMessage);
}

void from_json(const nlohmann::json& json, LocalTranscriptionEngineState& state) {
  state.phase = json.at("phase").get<LocalTranscriptionEnginePhase>();
  state.loadedModelIDs = json.at("loadedModelIDs").get<std::vector<std::string>>();
  json_support::getOptional(json, "lastErrorMessage", state.lastErrorMessage);
}

void to_json(nlohmann::json& json, const LocalTranscriptionModelState& state) {
  json = nlohmann::json{{"modelID", state.modelID},
                        {"isInstalled", state.isInstalled},
                        {"isDownloading", state.isDownloading},
                        {"isExtracting", state.isExtracting},
                        {"downloadedBytes", state.downloadedBytes}};
  json_support::putOptional(json, "progress", state.progress);
  json_support::putOptional(json, "message", state.message);
  json_support::putOptional(json, "bytesPerSecond", state.bytesPerSecond);
  json_support::putOptional(json, "path", state.path);
}

void from_json(const nlohmann::json& json, LocalTranscriptionModelState& state) {
  state.modelID = json.at("modelID").get<std::string>();
  state.isInstalled = json.at("isInstalled").get<bool>();
  state.isDownloading = json.at("isDownloading").get<bool>();
  state.isExtracting = json.at("isExtracting").get<bool>();
  state.downloadedBytes = json_support::integer<std::int64_t>(json.at("downloadedBytes"));
  json_support::getOptional(json, "progress", state.progress);
  json_support::getOptional(json, "message", state.message);
  json_support::getOptional(json, "bytesPerSecond", state.bytesPerSecond);
  json_support::getOptional(json, "path", state.path);
}

}  // namespace orvid
