#include "orvid/core/asr_language_route.h"

#include <array>
#include <functional>

#include "orvid/platform/joined.h"

namespace orvid {
namespace {

void combine(std::size_t& seed, std::size_t value) { seed ^= value + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2); }

std::size_t hashText(const std::string& text) { return std::hash<std::string>()(text); }

std::size_t hashOptional(const std::optional<std::string>& text) { return text ? hashText(*text) * 31 + 1 : 0; }

std::size_t hashList(const std::vector<std::string>& list) {
  std::size_t seed = list.size();
  for (const auto& text : list) combine(seed, hashText(text));
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
  using orvid::combine;
  std::size_t seed = orvid::hashText(route.providerID);
  combine(seed, orvid::hashOptional(route.modelID));
  combine(seed, static_cast<std::size_t>(route.transport));
  combine(seed, static_cast<std::size_t>(route.strategy));
  combine(seed, orvid::hashList(route.selectedLanguageCodes));
  combine(seed, orvid::hashOptional(route.providerLanguage));
  combine(seed, orvid::hashList(route.providerLanguageHints));
  combine(seed, orvid::hashList(route.expectedLanguages));
  combine(seed, orvid::hashOptional(route.effectivePostProcessingLanguage));
  combine(seed, orvid::hashList(route.diagnostics));
  return seed;
}
