#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvid/core/corelib/transcription_prompt.h"

namespace orvid {

// The host's prompt picker: which prompts to list and which one is selected.
struct TranscriptionPromptLibrary {
  // The built-in prompts when nothing is stored; otherwise the stored prompts (never
  // merged with the built-in ones), sorted stably by `sortOrder` and, for equal
  // order, by name in the current locale's case-insensitive order.
  static std::vector<TranscriptionPrompt> mergedPrompts(const std::vector<TranscriptionPrompt>& storedPrompts);

  // `id` after translating an earlier release's built-in identifiers ("correct" to
  // "default_correct", and likewise "improve", "restructure", "translate") when a
  // prompt with exactly that identifier is available; otherwise, and for an absent
  // `id`, TranscriptionPrompt::fallbackPromptID.
  static std::string normalizedSelectedPromptID(const std::optional<std::string>& id,
                                                const std::vector<TranscriptionPrompt>& availablePrompts);
};

}  // namespace orvid
