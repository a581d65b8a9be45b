#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "orvid/ai/chat_completion_client.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/transcription_prompt.h"

namespace orvid {

// Rewrites a cleaned transcript with the user's prompt through a language model
// and returns the text with timing and token statistics. Keeps no state between
// calls: several calls may run at once on one processor.
class PromptPostProcessor {
 public:
  // The monotonic clock that times the model call.
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  explicit PromptPostProcessor(std::shared_ptr<ChatCompletionClient> client,
                               Clock now = [] { return std::chrono::steady_clock::now(); });

  std::shared_ptr<ChatCompletionClient> client;

  // Sends the trimmed transcript as the user message and the prompt's text as
  // the system prompt (with alternativesInstruction() appended when the prompt
  // asks for alternatives) to the model chosen by the prompt's `modelID`, else
  // the configuration's `selectedModelID`, else `defaultModelID`. Structured
  // output (JSONSchema::transcriptionOutput) is asked for when the provider
  // supports it and the prompt does not ask for alternatives; when the provider
  // then rejects the schema (unsupportedProvider whose text names it), the same
  // request is sent once more without it.
  //
  // Returns nothing, without sending, for a transcript of only white space.
  // Throws OrvidProviderError::missingModel when no model (or an empty one) is
  // chosen, and the client's errors (CancellationError once `stop` is requested).
  std::optional<PromptPostProcessResult> process(std::string_view cleanedTranscript, const TranscriptionPrompt& prompt,
                                                 const AIProviderDescriptor& provider,
                                                 const AIProviderConfiguration& configuration,
                                                 const std::optional<std::string>& defaultModelID,
                                                 std::stop_token stop = {}) const;

  // The model's reply as text: invisible characters removed; with
  // `prefersStructuredOutput`, the "transcription" string of a JSON object reply
  // (trimmed); otherwise, or when the reply is not such an object,
  // PromptOutputParser::extractOutput of it.
  static std::string parseProcessedText(std::string_view content, bool prefersStructuredOutput);

  // What is appended to a prompt that asks for alternatives: a line break and
  // five lines asking for a bare JSON array of {"text", "start", "end"} objects,
  // all rewriting the same region of the input.
  static const std::string& alternativesInstruction();

  // Whether `error` says that the provider cannot honour a response schema: an
  // unsupportedProvider error whose text contains, in any letter case,
  // "guided_grammar", "compile_grammar", "response_format", "json_schema",
  // "structured output", "structured_output" or "unsupported tokenizer".
  static bool isStructuredOutputIncompatibility(const OrvidProviderError& error);

 private:
  Clock now_;
};

}  // namespace orvid
