#pragma once

#include <optional>
#include <string>

#include "orvid/core/asr_language_route.h"
#include "orvid/core/corelib/asr_language.h"
#include "orvid/core/corelib/asr_transport.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"

namespace orvid {

// Turns the user's language selection and the chosen provider into the language
// decision of one request.
struct ASRLanguageRoutingResolver {
  // Limits the selection to the provider's supported codes (noting the codes it
  // ignores), then routes it by the provider's language capability for `transport`
  // and `modelID`: one language, the broad multilingual value, hints, expected
  // languages for detection, or nothing, with a diagnostic for every compromise.
  // Codes sent to cloud services are normalised ("zh-Hans"/"zh-Hant" to "zh", or
  // "zho" for ElevenLabs; "yue-Hant"/"yue-Hans" to "yue"). Pure; never throws.
  static ResolvedASRLanguageRoute resolve(const ASRLanguageSelection& selection,
                                          const TranscriptionProviderDescriptor& provider,
                                          ASRTranscriptionTransport transport,
                                          const std::optional<std::string>& modelID = std::nullopt);
};

}  // namespace orvid
