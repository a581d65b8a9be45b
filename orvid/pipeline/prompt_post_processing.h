#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/transcription_prompt.h"

namespace orvid {

// Rewrites a cleaned transcript with a language model, as the automation pipeline
// needs it: the seam between the pipeline and the prompt post-processor.
class PromptPostProcessing {
 public:
  virtual ~PromptPostProcessing() = default;

  // Sends `cleanedTranscript` with the instruction of `prompt` to the provider.
  // The model is the prompt's, else the configuration's selected model, else
  // `defaultModelID`. Absent when the transcript is blank (nothing is sent).
  // Throws the provider's errors and CancellationError once `stop` is requested.
  virtual std::optional<PromptPostProcessResult> process(const std::string& cleanedTranscript,
                                                         const TranscriptionPrompt& prompt,
                                                         const AIProviderDescriptor& provider,
                                                         const AIProviderConfiguration& configuration,
                                                         const std::optional<std::string>& defaultModelID,
                                                         std::stop_token stop = {}) = 0;
};

// Serves PromptPostProcessing with any processor whose process() takes the same
// arguments, with or without the trailing stop token; the host hands the pipeline
// its PromptPostProcessor as PromptPostProcessorAdapter<PromptPostProcessor>.
template <typename Processor>
class PromptPostProcessorAdapter : public PromptPostProcessing {
 public:
  explicit PromptPostProcessorAdapter(Processor processor) : processor_(std::move(processor)) {}

  std::optional<PromptPostProcessResult> process(const std::string& cleanedTranscript,
                                                 const TranscriptionPrompt& prompt,
                                                 const AIProviderDescriptor& provider,
                                                 const AIProviderConfiguration& configuration,
                                                 const std::optional<std::string>& defaultModelID,
                                                 std::stop_token stop = {}) override {
    if constexpr (requires {
                    processor_.process(cleanedTranscript, prompt, provider, configuration, defaultModelID, stop);
                  }) {
      return processor_.process(cleanedTranscript, prompt, provider, configuration, defaultModelID, stop);
    } else {
      return processor_.process(cleanedTranscript, prompt, provider, configuration, defaultModelID);
    }
  }

 private:
  Processor processor_;
};

}  // namespace orvid
