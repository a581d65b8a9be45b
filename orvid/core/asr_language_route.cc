#include "orvid/core/asr_language_route.h"

#include <array>
#include <functional>

#include "orvid/platform/internal/hash.h"
#include "orvid/platform/joined.h"

namespace orvid {
namespace {

std::size_t hashList(const std::vector<std::string>& list) {
  std::size_t seed = list.size();
  for (const auto& text : list) seed = internal::hashCombinedValues(seed, text);
  return seed;
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

std::size_t std::hash<orvid::ResolvedASRLanguageRoute>::operator()(
    const orvid::ResolvedASRLanguageRoute& route) const noexcept {
  using orvid::hashList;
  using orvid::internal::hashCombined;
  using orvid::internal::hashOptional;
  std::size_t seed = std::hash<std::string>()(route.providerID);
  seed = hashCombined(seed, hashOptional(route.modelID));
  seed = hashCombined(seed, static_cast<std::size_t>(route.transport));
  seed = hashCombined(seed, static_cast<std::size_t>(route.strategy));
  seed = hashCombined(seed, hashList(route.selectedLanguageCodes));
  seed = hashCombined(seed, hashOptional(route.providerLanguage));
  seed = hashCombined(seed, hashList(route.providerLanguageHints));
  seed = hashCombined(seed, hashList(route.expectedLanguages));
  seed = hashCombined(seed, hashOptional(route.effectivePostProcessingLanguage));
  return hashCombined(seed, hashList(route.diagnostics));
}
