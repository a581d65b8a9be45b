#include "orvid/transcription/asr_language_routing_resolver.h"

#include <algorithm>
#include <set>
#include <vector>

#include "orvid/platform/internal/text.h"
#include "orvid/platform/joined.h"

namespace orvid {
namespace {

using Kind = ASRLanguageInputCapability::Kind;
using Behavior = ASRUnspecifiedLanguageBehavior;
using Strategy = ASRLanguageRoutingStrategy;
using internal::lowercaseASCII;

// The value a cloud service expects for a picker code; on-device engines get codes unchanged.
std::string normalize(const std::string& code, const TranscriptionProviderDescriptor& provider) {
  if (!provider.backend.isCloud()) return code;
  if (code == "zh-Hans" || code == "zh-Hant") return provider.id == "elevenlabs" ? "zho" : "zh";
  if (code == "yue-Hant" || code == "yue-Hans") return "yue";
  return code;
}

std::optional<std::string> firstOf(const std::vector<std::string>& codes) {
  if (codes.empty()) return std::nullopt;
  return codes.front();
}

// The effective language when exactly one language was selected.
std::optional<std::string> onlyOf(const std::vector<std::string>& codes) {
  if (codes.size() != 1) return std::nullopt;
  return codes.front();
}

}  // namespace

ResolvedASRLanguageRoute ASRLanguageRoutingResolver::resolve(const ASRLanguageSelection& selection,
                                                             const TranscriptionProviderDescriptor& provider,
                                                             ASRTranscriptionTransport transport,
                                                             const std::optional<std::string>& modelID) {
  const auto capability = ASRLanguageCapabilityResolver::capability(provider, transport, modelID);

  std::set<std::string> supported;
  for (const auto& code : provider.supportedLanguageCodes) supported.insert(lowercaseASCII(code));
  supported.erase("auto");

  ResolvedASRLanguageRoute route;
  route.providerID = provider.id;
  route.modelID = modelID;
  route.transport = transport;

  std::vector<std::string> limited = selection.languageCodes;
  if (!supported.empty()) {
    limited = selection.limited(provider.supportedLanguageCodes).languageCodes;
    if (limited != selection.languageCodes) {
      std::vector<std::string> ignored;
      for (const auto& code : selection.languageCodes) {
        if (!supported.contains(lowercaseASCII(code))) ignored.push_back(code);
      }
      if (!ignored.empty()) route.diagnostics.push_back("Ignored unsupported language codes: " + joined(ignored, ", "));
    }
  }
  route.selectedLanguageCodes = limited;

  std::vector<std::string> normalized;
  for (const auto& code : limited) normalized.push_back(normalize(code, provider));
  const std::size_t count = limited.size();

  switch (capability.kind) {
    case Kind::singleLanguage:
      if (count == 0) {
        switch (capability.whenUnspecified) {
          case Behavior::omitLanguage:
          case Behavior::detectAutomatically:
            route.strategy = Strategy::automatic;
            break;
          case Behavior::sendFixedValue:
            route.strategy = Strategy::automatic;
            route.providerLanguage = capability.value;
            break;
          case Behavior::fallbackToFirstSupported: {
            route.strategy = Strategy::unavailableFallback;
            auto fallback = std::find_if(provider.supportedLanguageCodes.begin(), provider.supportedLanguageCodes.end(),
                                         [](const std::string& code) { return lowercaseASCII(code) != "auto"; });
            if (fallback != provider.supportedLanguageCodes.end()) {
              route.providerLanguage = normalize(*fallback, provider);
              route.effectivePostProcessingLanguage = *fallback;
              route.diagnostics.push_back("Automatic language selection is unsupported; using " + *fallback + ".");
            } else {
              route.diagnostics.push_back(
                  "Automatic language selection is unsupported and no fallback language is available.");
            }
            break;
          }
        }
      } else {
        route.strategy = count == 1 ? Strategy::explicitSingle : Strategy::unavailableFallback;
        route.providerLanguage = normalized.front();
        route.effectivePostProcessingLanguage = limited.front();
        if (count > 1) route.diagnostics.push_back("The provider accepts one language; using the primary selection.");
      }
      break;
    case Kind::broadMultilingual:
      if (count == 1) {
        route.strategy = Strategy::explicitSingle;
        route.providerLanguage = normalized.front();
        route.effectivePostProcessingLanguage = limited.front();
      } else {
        route.strategy = Strategy::multilingualMode;
        route.providerLanguage = capability.value;
        route.diagnostics.push_back(
            count == 0 ? "Automatic selection uses the provider's broad multilingual mode."
                       : "The provider's multilingual mode is broad; the selected subset is not enforced server-side.");
      }
      break;
    case Kind::languageHints:
      if (count == 0) {
        route.strategy = Strategy::automatic;
      } else {
        route.strategy = Strategy::candidateHints;
        route.providerLanguageHints = normalized;
        route.effectivePostProcessingLanguage = onlyOf(limited);
      }
      break;
    case Kind::candidateDetection:
      if (count == 0) {
        route.strategy = Strategy::automatic;
      } else {
        route.strategy = Strategy::candidateDetection;
        route.expectedLanguages = normalized;
        route.effectivePostProcessingLanguage = onlyOf(limited);
      }
      break;
    case Kind::noLanguageAwareAdapter:
      route.strategy = Strategy::unavailableFallback;
      route.providerLanguage = firstOf(normalized);
      route.effectivePostProcessingLanguage = firstOf(limited);
      route.diagnostics.push_back("The selected transport has no constructible language-aware adapter.");
      break;
    case Kind::noLanguageInput:
      route.strategy = Strategy::noLanguageInput;
      break;
  }
  return route;
}

}  // namespace orvid
