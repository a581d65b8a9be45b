#include "orvid/core/asr_language_route.h"

#include <array>

namespace orvid {
namespace {

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += separator;
    text += parts[i];
  }
  return text;
}

}  // namespace

std::string rawValue(ASRLanguageRoutingStrategy strategy) {
  static constexpr std::array<const char*, 7> names{"automatic",        "explicitSingle",  "candidateHints",
                                                    "candidateDetection", "multilingualMode", "noLanguageInput",
                                                    "unavailableFallback"};
  return names[static_cast<std::size_t>(strategy)];
}

const ResolvedASRLanguageRoute ResolvedASRLanguageRoute::unspecified = {
    "unspecified", std::nullopt, ASRTranscriptionTransport::batch, ASRLanguageRoutingStrategy::noLanguageInput,
    {},            std::nullopt, {},
    {},            std::nullopt, {}};

std::string ResolvedASRLanguageRoute::diagnosticSummary() const {
  std::vector<std::string> parts;
  parts.push_back("provider=" + providerID);
  parts.push_back("model=" + modelID.value_or("default"));
  parts.push_back(std::string("transport=") + (transport == ASRTranscriptionTransport::realtime ? "realtime" : "batch"));
  parts.push_back("strategy=" + rawValue(strategy));
  parts.push_back("selected=" + (selectedLanguageCodes.empty() ? std::string("auto") : joined(selectedLanguageCodes, ",")));
  if (providerLanguage) parts.push_back("language=" + *providerLanguage);
  if (!providerLanguageHints.empty()) parts.push_back("language_hints=" + joined(providerLanguageHints, ","));
  if (!expectedLanguages.empty()) parts.push_back("expected_languages=" + joined(expectedLanguages, ","));
  if (effectivePostProcessingLanguage) parts.push_back("cleanup_language=" + *effectivePostProcessingLanguage);
  if (!diagnostics.empty()) parts.push_back("notes=" + joined(diagnostics, "; "));
  return joined(parts, " | ");
}

}  // namespace orvid
