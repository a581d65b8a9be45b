#include "orvid/core/transcription_records.h"

#include <functional>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/hash.h"

namespace orvid {
TranscriptionResult TranscriptionResult::applying(const ResolvedASRLanguageRoute& route) const {
  TranscriptionResult stamped = *this;
  if (!stamped.effectiveLanguage) {
    stamped.effectiveLanguage = language ? language : route.effectivePostProcessingLanguage;
  }
  std::string summary = route.diagnosticSummary();
  if (!providerDiagnostics || providerDiagnostics->empty()) {
    stamped.providerDiagnostics = summary;
  } else if (providerDiagnostics->find(summary) == std::string::npos) {
    stamped.providerDiagnostics = *providerDiagnostics + "\n" + summary;
  }
  return stamped;
}

void to_json(nlohmann::json& json, const TranscriptionResult& result) {
  json = nlohmann::json{{"text", result.text}};
  json_support::putOptional(json, "confidence", result.confidence);
  json_support::putOptional(json, "language", result.language);
  json_support::putOptional(json, "effectiveLanguage", result.effectiveLanguage);
  json_support::putOptional(json, "providerDiagnostics", result.providerDiagnostics);
}

void from_json(const nlohmann::json& json, TranscriptionResult& result) {
  result = {};
  json.at("text").get_to(result.text);
  json_support::getOptional(json, "confidence", result.confidence);
  json_support::getOptional(json, "language", result.language);
  json_support::getOptional(json, "effectiveLanguage", result.effectiveLanguage);
  json_support::getOptional(json, "providerDiagnostics", result.providerDiagnostics);
}

void to_json(nlohmann::json& json, const TranscriptionPartialResult& partial) {
  json = nlohmann::json{{"text", partial.text}, {"isFinal", partial.isFinal}};
  json_support::putOptional(json, "isReplace", partial.isReplace);
}

void from_json(const nlohmann::json& json, TranscriptionPartialResult& partial) {
  partial = {};
  json.at("text").get_to(partial.text);
  json.at("isFinal").get_to(partial.isFinal);
  json_support::getOptional(json, "isReplace", partial.isReplace);
}

}  // namespace orvid

std::size_t std::hash<orvid::TranscriptionResult>::operator()(const orvid::TranscriptionResult& result) const noexcept {
  using orvid::internal::hashCombined;
  using orvid::internal::hashOptional;
  std::size_t seed = std::hash<std::string>()(result.text);
  seed = hashCombined(seed, hashOptional(result.confidence));
  seed = hashCombined(seed, hashOptional(result.language));
  seed = hashCombined(seed, hashOptional(result.effectiveLanguage));
  return hashCombined(seed, hashOptional(result.providerDiagnostics));
}

std::size_t std::hash<orvid::TranscriptionPartialResult>::operator()(
    const orvid::TranscriptionPartialResult& partial) const noexcept {
  using orvid::internal::hashCombined;
  std::size_t seed = hashCombined(std::hash<std::string>()(partial.text), partial.isFinal ? 1 : 2);
  return hashCombined(seed, orvid::internal::hashOptional(partial.isReplace));
}
