#include "orvid/core/corelib/asr_language.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

using Kind = ASRLanguageInputCapability::Kind;
using Behavior = ASRUnspecifiedLanguageBehavior;
using API = CloudTranscriptionProviderAPI;
using EngineType = LocalTranscriptionEngineType;
using internal::lowercaseASCII;

constexpr std::array<std::pair<Kind, const char*>, 6> kKindNames{{
    {Kind::singleLanguage, "singleLanguage"},
    {Kind::broadMultilingual, "broadMultilingual"},
    {Kind::languageHints, "languageHints"},
    {Kind::candidateDetection, "candidateDetection"},
    {Kind::noLanguageAwareAdapter, "noLanguageAwareAdapter"},
    {Kind::noLanguageInput, "noLanguageInput"},
}};

constexpr std::array<std::pair<Behavior, const char*>, 4> kBehaviorNames{{
    {Behavior::omitLanguage, "omitLanguage"},
    {Behavior::detectAutomatically, "detectAutomatically"},
    {Behavior::fallbackToFirstSupported, "fallbackToFirstSupported"},
    {Behavior::sendFixedValue, "sendFixedValue"},
}};

bool startsWith(const std::string& text, std::string_view prefix) { return text.rfind(prefix, 0) == 0; }

bool listsAuto(const std::vector<std::string>& codes) {
  return std::any_of(codes.begin(), codes.end(),
                     [](const std::string& code) { return lowercaseASCII(code) == "auto"; });
}

// A model that takes one language: it detects the language itself when its list
// says "auto", otherwise it needs one and falls back to its first language.
ASRLanguageInputCapability singleFromList(const std::vector<std::string>& codes) {
  return ASRLanguageInputCapability::singleLanguage(listsAuto(codes) ? Behavior::detectAutomatically
                                                                     : Behavior::fallbackToFirstSupported);
}

ASRLanguageInputCapability onDeviceCapability(const LocalTranscriptionModelDescriptor& model) {
  if (model.languageCodes.empty()) return ASRLanguageInputCapability::noLanguageInput();
  switch (model.engineType) {
    case EngineType::whisperKit:
    case EngineType::whisperCpp:
    case EngineType::speechSwiftWhisper:
    case EngineType::mlxSenseVoice:
    case EngineType::mlxQwen3ASR:
    case EngineType::speechSwiftQwen3:
    case EngineType::pocketSphinx:
      return singleFromList(model.languageCodes);
    case EngineType::mlxCohere:
      // Cohere Transcribe has no language detection: it always needs a language.
      return ASRLanguageInputCapability::singleLanguage(Behavior::fallbackToFirstSupported);
    case EngineType::appleSpeech:
      // Without a language the recogniser uses the system locale.
      return ASRLanguageInputCapability::singleLanguage(Behavior::omitLanguage);
    case EngineType::mlxParakeet:
    case EngineType::mlxVoxtral:
    case EngineType::mlxGLMASR:
    case EngineType::mlxGraniteSpeech:
    case EngineType::mlxFireRedASR:
    case EngineType::speechSwiftParakeet:
    case EngineType::speechSwiftParakeetStreaming:
    case EngineType::speechSwiftNemotron:
    case EngineType::speechSwiftOmnilingualCoreML:
    case EngineType::speechSwiftOmnilingualMLX:
      return ASRLanguageInputCapability::noLanguageInput();
    case EngineType::sherpaOnnxSenseVoice:
    case EngineType::sherpaOnnxParakeet:
    case EngineType::sherpaOnnxCohere:
    case EngineType::sherpaOnnxStreamingZipformer:
      // No engine of this release loads these formats.
      return ASRLanguageInputCapability::noLanguageAwareAdapter();
  }
  return ASRLanguageInputCapability::noLanguageInput();
}

bool isDeepgramMultilingualModel(const std::string& model) { return startsWith(model, "nova-3"); }

ASRLanguageInputCapability cloudBatchCapability(API api, const std::string& model) {
  switch (api) {
    case API::openAICompatible:
    case API::elevenLabs:
    case API::mistral:
      return ASRLanguageInputCapability::singleLanguage(Behavior::detectAutomatically);
    case API::deepgram:
      if (isDeepgramMultilingualModel(model)) return ASRLanguageInputCapability::broadMultilingual("multi");
      return ASRLanguageInputCapability::singleLanguage(Behavior::omitLanguage);
    case API::cartesia:
      // Cartesia transcribes English unless told otherwise; say so in the route.
      return ASRLanguageInputCapability::singleLanguageWithFixedValue("en");
    case API::soniox:
      return ASRLanguageInputCapability::languageHints();
    case API::assemblyAI:
      return ASRLanguageInputCapability::candidateDetection();
    case API::doubao:
      return ASRLanguageInputCapability::noLanguageAwareAdapter();
    case API::glm:
    case API::aliyunCompatible:
      // Neither request carries a language: the services detect it.
      return ASRLanguageInputCapability::noLanguageInput();
    case API::stepFun:
      // The request always names a language; without a selection it is the first one.
      return ASRLanguageInputCapability::singleLanguage(Behavior::fallbackToFirstSupported);
  }
  return ASRLanguageInputCapability::noLanguageInput();
}

ASRLanguageInputCapability cloudRealtimeCapability(API api, const std::string& model) {
  switch (api) {
    case API::openAICompatible:
      return ASRLanguageInputCapability::singleLanguage(Behavior::detectAutomatically);
    case API::soniox:
      return ASRLanguageInputCapability::languageHints();
    case API::deepgram:
      if (isDeepgramMultilingualModel(model)) return ASRLanguageInputCapability::broadMultilingual("multi");
      return ASRLanguageInputCapability::singleLanguage(Behavior::omitLanguage);
    case API::stepFun:
      return ASRLanguageInputCapability::singleLanguage(Behavior::fallbackToFirstSupported);
    case API::aliyunCompatible:
      if (startsWith(model, "fun-asr") || startsWith(model, "paraformer-realtime")) {
        return ASRLanguageInputCapability::languageHints();
      }
      return ASRLanguageInputCapability::singleLanguage(Behavior::detectAutomatically);
    case API::elevenLabs:
    case API::cartesia:
    case API::mistral:
    case API::assemblyAI:
    case API::doubao:
    case API::glm:
      return ASRLanguageInputCapability::noLanguageAwareAdapter();
  }
  return ASRLanguageInputCapability::noLanguageAwareAdapter();
}

template <typename E, std::size_t N>
E decodeCase(const std::array<std::pair<E, const char*>, N>& table, const nlohmann::json& json, const char* what) {
  auto text = json.get<std::string>();
  for (const auto& [candidate, name] : table) {
    if (text == name) return candidate;
  }
  throw nlohmann::json::other_error::create(501, std::string("unknown ") + what + ": " + text, &json);
}

template <typename E, std::size_t N>
std::string nameIn(const std::array<std::pair<E, const char*>, N>& table, E value) {
  for (const auto& [candidate, name] : table) {
    if (candidate == value) return name;
  }
  return table.front().second;
}

}  // namespace

ASRLanguageSelection ASRLanguageSelection::limited(const std::vector<std::string>& supportedLanguageCodes) const {
  std::set<std::string> supported;
  for (const auto& code : supportedLanguageCodes) supported.insert(lowercaseASCII(code));
  supported.erase("auto");
  supported.erase("");
  ASRLanguageSelection result;
  std::set<std::string> kept;
  for (const auto& code : languageCodes) {
    auto key = lowercaseASCII(code);
    if (!supported.contains(key) || !kept.insert(key).second) continue;
    result.languageCodes.push_back(code);
  }
  return result;
}

ASRLanguageInputCapability ASRLanguageInputCapability::singleLanguage(ASRUnspecifiedLanguageBehavior whenUnspecified) {
  return {Kind::singleLanguage, whenUnspecified, std::nullopt};
}
ASRLanguageInputCapability ASRLanguageInputCapability::singleLanguageWithFixedValue(std::string value) {
  return {Kind::singleLanguage, Behavior::sendFixedValue, std::move(value)};
}
ASRLanguageInputCapability ASRLanguageInputCapability::broadMultilingual(std::string multilingualValue) {
  return {Kind::broadMultilingual, Behavior::omitLanguage, std::move(multilingualValue)};
}
ASRLanguageInputCapability ASRLanguageInputCapability::languageHints() {
  return {Kind::languageHints, Behavior::omitLanguage, std::nullopt};
}
ASRLanguageInputCapability ASRLanguageInputCapability::candidateDetection() {
  return {Kind::candidateDetection, Behavior::omitLanguage, std::nullopt};
}
ASRLanguageInputCapability ASRLanguageInputCapability::noLanguageAwareAdapter() {
  return {Kind::noLanguageAwareAdapter, Behavior::omitLanguage, std::nullopt};
}
ASRLanguageInputCapability ASRLanguageInputCapability::noLanguageInput() {
  return {Kind::noLanguageInput, Behavior::omitLanguage, std::nullopt};
}

std::string rawValue(ASRLanguageInputCapability::Kind kind) { return nameIn(kKindNames, kind); }
std::string rawValue(ASRUnspecifiedLanguageBehavior behavior) { return nameIn(kBehaviorNames, behavior); }

ASRLanguageInputCapability ASRLanguageCapabilityResolver::capability(const TranscriptionProviderDescriptor& provider,
                                                                     ASRTranscriptionTransport transport,
                                                                     const std::optional<std::string>& modelID) {
  if (const auto* model = provider.backend.localModel()) return onDeviceCapability(*model);
  const auto& cloud = *provider.backend.cloudDescriptor();
  bool realtime = transport == ASRTranscriptionTransport::realtime;
  if (realtime && !cloud.realtimeBaseURL) return ASRLanguageInputCapability::noLanguageAwareAdapter();
  std::string model = modelID ? *modelID : provider.defaultModelID(realtime).value_or("");
  model = lowercaseASCII(internal::trimASCIIWhitespace(model));
  return realtime ? cloudRealtimeCapability(cloud.api, model) : cloudBatchCapability(cloud.api, model);
}

void to_json(nlohmann::json& json, const ASRLanguageSelection& selection) {
  json = nlohmann::json{{"languageCodes", selection.languageCodes}};
}

void from_json(const nlohmann::json& json, ASRLanguageSelection& selection) {
  selection.languageCodes = json.at("languageCodes").get<std::vector<std::string>>();
}

void to_json(nlohmann::json& json, const ASRLanguageInputCapability& capability) {
  json = nlohmann::json{{"kind", rawValue(capability.kind)}, {"whenUnspecified", rawValue(capability.whenUnspecified)}};
  json_support::putOptional(json, "value", capability.value);
}

void from_json(const nlohmann::json& json, ASRLanguageInputCapability& capability) {
  capability.kind = decodeCase(kKindNames, json.at("kind"), "capability kind");
  capability.whenUnspecified = json.contains("whenUnspecified")
                                   ? decodeCase(kBehaviorNames, json.at("whenUnspecified"), "unspecified behaviour")
                                   : Behavior::omitLanguage;
  json_support::getOptional(json, "value", capability.value);
}

}  // namespace orvid
