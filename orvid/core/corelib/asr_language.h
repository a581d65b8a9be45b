#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/corelib/asr_transport.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"

namespace orvid {

// The spoken languages the user picked, in the user's order and spelling.
struct ASRLanguageSelection {
  std::vector<std::string> languageCodes;

  // The selected codes a provider supporting `supportedLanguageCodes` accepts: codes
  // compared case-insensitively (otherwise exactly), "auto" and empty codes never
  // kept, each language once (its first spelling wins), order and spelling as the
  // user wrote them.
  ASRLanguageSelection limited(const std::vector<std::string>& supportedLanguageCodes) const;

  bool operator==(const ASRLanguageSelection&) const = default;
};

// What a provider does when the user picked no language but it takes one language.
enum class ASRUnspecifiedLanguageBehavior {
  omitLanguage,              // send nothing; the service uses its own default
  detectAutomatically,       // send nothing; the service detects the language
  fallbackToFirstSupported,  // send the provider's first supported language
  sendFixedValue,            // send the capability's fixed value
};

// How a provider accepts language input on one transport. Kinds in routing order.
struct ASRLanguageInputCapability {
  enum class Kind {
    singleLanguage,          // one language value; `whenUnspecified` says what to do without one
    broadMultilingual,       // one language, or `value` for its broad multilingual mode
    languageHints,           // a list of hints
    candidateDetection,      // a list of expected languages for detection
    noLanguageAwareAdapter,  // the transport has no adapter that could send a language
    noLanguageInput,         // the engine takes no language at all
  };

  Kind kind = Kind::noLanguageInput;
  ASRUnspecifiedLanguageBehavior whenUnspecified = ASRUnspecifiedLanguageBehavior::omitLanguage;
  // The fixed value of `sendFixedValue`, or the multilingual value of `broadMultilingual`.
  std::optional<std::string> value;

  static ASRLanguageInputCapability singleLanguage(ASRUnspecifiedLanguageBehavior whenUnspecified);
  static ASRLanguageInputCapability singleLanguageWithFixedValue(std::string value);
  static ASRLanguageInputCapability broadMultilingual(std::string multilingualValue);
  static ASRLanguageInputCapability languageHints();
  static ASRLanguageInputCapability candidateDetection();
  static ASRLanguageInputCapability noLanguageAwareAdapter();
  static ASRLanguageInputCapability noLanguageInput();

  bool operator==(const ASRLanguageInputCapability&) const = default;
};

std::string rawValue(ASRLanguageInputCapability::Kind kind);
std::string rawValue(ASRUnspecifiedLanguageBehavior behavior);

// Which kind of language input each provider, transport and model accepts.
struct ASRLanguageCapabilityResolver {
  // `modelID` absent means the provider's default model for the transport. Cloud
  // services are judged by their API and model (Deepgram's Nova-3 has a "multi" mode,
  // Aliyun's Fun-ASR and Paraformer real-time models take hints, its Qwen models one
  // language); a transport the service has no adapter for gives noLanguageAwareAdapter.
  // On-device models are judged by their engine and language list.
  static ASRLanguageInputCapability capability(const TranscriptionProviderDescriptor& provider,
                                               ASRTranscriptionTransport transport,
                                               const std::optional<std::string>& modelID = std::nullopt);
};

// JSON: {"languageCodes": [...]}; the capability as
// {"kind": ..., "whenUnspecified": ..., "value": ...} with "value" omitted when absent.
void to_json(nlohmann::json& json, const ASRLanguageSelection& selection);
void from_json(const nlohmann::json& json, ASRLanguageSelection& selection);
void to_json(nlohmann::json& json, const ASRLanguageInputCapability& capability);
void from_json(const nlohmann::json& json, ASRLanguageInputCapability& capability);

}  // namespace orvid
