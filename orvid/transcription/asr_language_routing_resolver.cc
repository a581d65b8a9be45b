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

// The selection limited to the codes the provider lists (any selection when it
// lists none but "auto"), with a diagnostic naming the codes it drops.
std::vector<std::string> limitedToProvider(const ASRLanguageSelection& selection,
                                           const TranscriptionProviderDescriptor& provider,
                                           std::vector<std::string>& diagnostics) {
  std::set<std::string> supported;
  for (const auto& code : provider.supportedLanguageCodes) supported.insert(lowercaseASCII(code));
  supported.erase("auto");
  if (supported.empty()) return selection.languageCodes;

  std::vector<std::string> limited = selection.limited(provider.supportedLanguageCodes).languageCodes;
  if (limited == selection.languageCodes) return limited;
  std::vector<std::string> ignored;
  for (const auto& code : selection.languageCodes) {
    if (!supported.contains(lowercaseASCII(code))) ignored.push_back(code);
  }
  if (!ignored.empty()) diagnostics.push_back("Ignored unsupported language codes: " + joined(ignored, ", "));
  return limited;
}

// The codes of one request: as the user selected them, and as the provider expects them.
struct RouteCodes {
  std::vector<std::string> selected;
  std::vector<std::string> sent;
};

// No language selected for a provider that needs one: its first listed language.
void routeToFirstSupported(ResolvedASRLanguageRoute& route, const TranscriptionProviderDescriptor& provider) {
  route.strategy = Strategy::unavailableFallback;
  const auto& codes = provider.supportedLanguageCodes;
  auto fallback =
      std::find_if(codes.begin(), codes.end(), [](const std::string& code) { return lowercaseASCII(code) != "auto"; });
  if (fallback == codes.end()) {
    route.diagnostics.push_back("Automatic language selection is unsupported and no fallback language is available.");
    return;
  }
  route.providerLanguage = normalize(*fallback, provider);
  route.effectivePostProcessingLanguage = *fallback;
  route.diagnostics.push_back("Automatic language selection is unsupported; using " + *fallback + ".");
}

// A provider that takes one language: the primary selection, or with none what
// the capability says for an unspecified language.
void routeSingleLanguage(ResolvedASRLanguageRoute& route, const ASRLanguageInputCapability& capability,
                         const TranscriptionProviderDescriptor& provider, const RouteCodes& codes) {
  if (codes.selected.empty()) {
    switch (capability.whenUnspecified) {
      case Behavior::omitLanguage:
      case Behavior::detectAutomatically:
        route.strategy = Strategy::automatic;
        break;
      case Behavior::sendFixedValue:
        route.strategy = Strategy::automatic;
        route.providerLanguage = capability.value;
        break;
      case Behavior::fallbackToFirstSupported:
        routeToFirstSupported(route, provider);
        break;
    }
    return;
  }
  const bool single = codes.selected.size() == 1;
  route.strategy = single ? Strategy::explicitSingle : Strategy::unavailableFallback;
  route.providerLanguage = codes.sent.front();
  route.effectivePostProcessingLanguage = codes.selected.front();
  if (!single) route.diagnostics.push_back("The provider accepts one language; using the primary selection.");
}

// A provider with a broad multilingual mode: one selected language goes as it is;
// none or several use the multilingual value.
void routeBroadMultilingual(ResolvedASRLanguageRoute& route, const std::optional<std::string>& multilingualValue,
                            const RouteCodes& codes) {
  if (codes.selected.size() == 1) {
    route.strategy = Strategy::explicitSingle;
    route.providerLanguage = codes.sent.front();
    route.effectivePostProcessingLanguage = codes.selected.front();
    return;
  }
  route.strategy = Strategy::multilingualMode;
  route.providerLanguage = multilingualValue;
  route.diagnostics.push_back(
      codes.selected.empty()
          ? "Automatic selection uses the provider's broad multilingual mode."
          : "The provider's multilingual mode is broad; the selected subset is not enforced server-side.");
}

// A provider that takes several languages, as hints or as the languages its
// detection expects; with none selected it detects on its own.
void routeCandidates(ResolvedASRLanguageRoute& route, Strategy strategy, const RouteCodes& codes) {
  if (codes.selected.empty()) {
    route.strategy = Strategy::automatic;
    return;
  }
  route.strategy = strategy;
  (strategy == Strategy::candidateHints ? route.providerLanguageHints : route.expectedLanguages) = codes.sent;
  route.effectivePostProcessingLanguage = onlyOf(codes.selected);
}

// A transport with no language-aware adapter: the primary selection, noted as a compromise.
void routeWithoutAdapter(ResolvedASRLanguageRoute& route, const RouteCodes& codes) {
  route.strategy = Strategy::unavailableFallback;
  route.providerLanguage = firstOf(codes.sent);
  route.effectivePostProcessingLanguage = firstOf(codes.selected);
  route.diagnostics.push_back("The selected transport has no constructible language-aware adapter.");
}

}  // namespace

ResolvedASRLanguageRoute ASRLanguageRoutingResolver::resolve(const ASRLanguageSelection& selection,
                                                             const TranscriptionProviderDescriptor& provider,
                                                             ASRTranscriptionTransport transport,
                                                             const std::optional<std::string>& modelID) {
  const auto capability = ASRLanguageCapabilityResolver::capability(provider, transport, modelID);

  ResolvedASRLanguageRoute route;
  route.providerID = provider.id;
  route.modelID = modelID;
  route.transport = transport;
  route.selectedLanguageCodes = limitedToProvider(selection, provider, route.diagnostics);

  RouteCodes codes{route.selectedLanguageCodes, {}};
  for (const auto& code : codes.selected) codes.sent.push_back(normalize(code, provider));

  switch (capability.kind) {
    case Kind::singleLanguage:
      routeSingleLanguage(route, capability, provider, codes);
      break;
    case Kind::broadMultilingual:
      routeBroadMultilingual(route, capability.value, codes);
      break;
    case Kind::languageHints:
      routeCandidates(route, Strategy::candidateHints, codes);
      break;
    case Kind::candidateDetection:
      routeCandidates(route, Strategy::candidateDetection, codes);
      break;
    case Kind::noLanguageAwareAdapter:
      routeWithoutAdapter(route, codes);
      break;
    case Kind::noLanguageInput:
      route.strategy = Strategy::noLanguageInput;
      break;
  }
  return route;
}

}  // namespace orvid
