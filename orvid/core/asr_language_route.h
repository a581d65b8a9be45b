#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "orvid/core/corelib/asr_transport.h"

namespace orvid {

// How the language reached the engine.
enum class ASRLanguageRoutingStrategy {
  automatic,
  explicitSingle,
  candidateHints,
  candidateDetection,
  multilingualMode,
  noLanguageInput,
  unavailableFallback,
};

// The case name, e.g. "candidateHints".
std::string rawValue(ASRLanguageRoutingStrategy strategy);

// The per-request language decision for one provider: what to send and what
// post-processing should assume, with the reasons for any compromise. A
// default-constructed route equals `unspecified`.
struct ResolvedASRLanguageRoute {
  std::string providerID = "unspecified";
  std::optional<std::string> modelID;
  ASRTranscriptionTransport transport = ASRTranscriptionTransport::batch;
  ASRLanguageRoutingStrategy strategy = ASRLanguageRoutingStrategy::noLanguageInput;
  std::vector<std::string> selectedLanguageCodes;
  std::optional<std::string> providerLanguage;
  std::vector<std::string> providerLanguageHints;
  std::vector<std::string> expectedLanguages;
  std::optional<std::string> effectivePostProcessingLanguage;
  std::vector<std::string> diagnostics;

  // The route used where none was resolved: provider "unspecified", batch, no language input.
  static const ResolvedASRLanguageRoute unspecified;

  // One line "provider=… | model=… | transport=… | strategy=… | selected=…" followed
  // by the parts that are present; never empty.
  std::string diagnosticSummary() const;

  bool operator==(const ResolvedASRLanguageRoute&) const = default;
};

}  // namespace orvid

template <>
struct std::hash<orvid::ResolvedASRLanguageRoute> {
  std::size_t operator()(const orvid::ResolvedASRLanguageRoute& route) const noexcept;
};
