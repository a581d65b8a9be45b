#pragma once

#include <optional>
#include <string>

#include "orvid/core/corelib/transcription_provider_descriptor.h"

namespace orvid {

// Picks the language value to show or store for a provider, around the host's language picker.
struct TranscriptionLanguageResolver {
  // `requested` ("auto" when absent or empty) when the provider supports it exactly;
  // for "auto", the first supported code other than "auto"; for "zh-Hans" or
  // "zh-Hant", "zh", else "zh-Hans", else "zh-Hant" when supported; otherwise the
  // first supported code (even "auto"), or "auto" for a provider listing none.
  static std::string language(const std::optional<std::string>& requested,
                              const TranscriptionProviderDescriptor& descriptor);
};

}  // namespace orvid
