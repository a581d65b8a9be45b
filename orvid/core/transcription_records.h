#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/asr_language_route.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/core/pcm_frame.h"

namespace orvid {

// The input of one batch transcription.
struct TranscriptionRequest {
  // In capture order; providers concatenate them.
  std::vector<PCMFrame> audioFrames;
  ResolvedASRLanguageRoute languageRoute;
  // Context or vocabulary prompt for engines that accept one.
  std::optional<std::string> promptHint;
  // Provider-specific settings, passed untouched to the provider that reads them.
  TranscriptionProviderOptions providerOptions;
};

// A finished transcript.
struct TranscriptionResult {
  std::string text;
  // The provider's overall confidence in 0…1, where it reports one.
  std::optional<double> confidence;
  // The language the provider reports it heard.
  std::optional<std::string> language;
  // The language post-processing is to assume.
  std::optional<std::string> effectiveLanguage;
  // Free text lines for logs and diagnostics screens.
  std::optional<std::string> providerDiagnostics;

  // Stamps the routing decision onto this result: fills a missing effective
  // language from `language` or the route, and adds the route's summary to the
  // diagnostics unless they already contain it.
  TranscriptionResult applying(const ResolvedASRLanguageRoute& route) const;

  bool operator==(const TranscriptionResult&) const = default;
};

// One increment of a streaming transcription.
struct TranscriptionPartialResult {
  std::string text;
  // The provider has committed the text and will not revise it.
  bool isFinal = false;
  // True: `text` replaces everything delivered so far; false: it extends it;
  // absent: the provider does not say.
  std::optional<bool> isReplace;

  bool operator==(const TranscriptionPartialResult&) const = default;
};

void to_json(nlohmann::json& json, const TranscriptionResult& result);
void from_json(const nlohmann::json& json, TranscriptionResult& result);
void to_json(nlohmann::json& json, const TranscriptionPartialResult& partial);
void from_json(const nlohmann::json& json, TranscriptionPartialResult& partial);

}  // namespace orvid

template <>
struct std::hash<orvid::TranscriptionResult> {
  std::size_t operator()(const orvid::TranscriptionResult& result) const noexcept;
};
template <>
struct std::hash<orvid::TranscriptionPartialResult> {
  std::size_t operator()(const orvid::TranscriptionPartialResult& partial) const noexcept;
};
