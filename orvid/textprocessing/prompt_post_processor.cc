#include "orvid/textprocessing/prompt_post_processor.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/ai/json_value.h"
#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"
#include "orvid/textprocessing/prompt_output_parser.h"
#include "orvid/textprocessing/text_support.h"

namespace orvid {
namespace {

using internal::trimUnicodeWhitespace;

constexpr std::array<std::string_view, 7> kStructuredOutputIncompatibilityMarkers{
    "guided_grammar",    "compile_grammar",   "response_format",       "json_schema",
    "structured output", "structured_output", "unsupported tokenizer",
};

// The prompt's own model when it has one (even an empty one), else the
// configuration's selection, else the caller's default.
std::string chosenModel(const TranscriptionPrompt& prompt, const AIProviderConfiguration& configuration,
                        const std::optional<std::string>& defaultModelID) {
  std::optional<std::string> model = prompt.modelID;
  if (!model) model = configuration.selectedModelID;
  if (!model) model = defaultModelID;
  if (!model || model->empty()) throw OrvidProviderError::missingModel();
  return *model;
}

std::optional<int> tokenCount(const std::optional<std::int64_t>& count) {
  if (!count) return std::nullopt;
  return static_cast<int>(std::clamp<std::int64_t>(*count, std::numeric_limits<int>::min(),
                                                   std::numeric_limits<int>::max()));
}

}  // namespace

PromptPostProcessor::PromptPostProcessor(std::shared_ptr<ChatCompletionClient> client, Clock now)
    : client(std::move(client)), now_(std::move(now)) {}

std::optional<PromptPostProcessResult> PromptPostProcessor::process(
    std::string_view cleanedTranscript, const TranscriptionPrompt& prompt, const AIProviderDescriptor& provider,
    const AIProviderConfiguration& configuration, const std::optional<std::string>& defaultModelID,
    std::stop_token stop) const {
  std::string transcript(trimUnicodeWhitespace(cleanedTranscript));
  if (transcript.empty()) return std::nullopt;

  ChatCompletionRequest request;
  request.providerID = provider.id;
  request.modelID = chosenModel(prompt, configuration, defaultModelID);
  request.systemPrompt = prompt.promptText;
  if (prompt.rewritesAsAlternatives) *request.systemPrompt += alternativesInstruction();
  request.userText = std::move(transcript);
  const bool prefersStructuredOutput = provider.supportsStructuredOutput && !prompt.rewritesAsAlternatives;
  if (prefersStructuredOutput) request.responseSchema = JSONSchema::transcriptionOutput();

  const auto start = now_();
  std::optional<ChatCompletionResult> result;
  try {
    result = client->complete(request, provider, configuration, stop);
  } catch (const OrvidProviderError& error) {
    if (!request.responseSchema || !isStructuredOutputIncompatibility(error)) throw;
  }
  if (!result) {
    checkCancellation(stop);
    request.responseSchema.reset();
    result = client->complete(request, provider, configuration, stop);
  }
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now_() - start).count();

  PromptPostProcessResult processed;
  processed.text = parseProcessedText(result->content, prefersStructuredOutput);
  processed.providerID = configuration.id;
  processed.modelID = request.modelID;
  processed.promptID = prompt.id;
  processed.elapsedMilliseconds = elapsed;
  processed.inputTokens = tokenCount(result->inputTokens);
  processed.outputTokens = tokenCount(result->outputTokens);
  if (result->outputTokens && elapsed >= 1) {
    processed.tokensPerSecond =
        static_cast<double>(*result->outputTokens) / (static_cast<double>(elapsed) / 1000.0);
  }
  processed.rawRequestDebug = std::move(result->rawRequestDebug);
  processed.rawResponseDebug = std::move(result->rawResponseDebug);
  return processed;
}

std::string PromptPostProcessor::parseProcessedText(std::string_view content, bool prefersStructuredOutput) {
  std::string visible = PromptOutputParser::stripInvisibleCharacters(content);
  if (prefersStructuredOutput) {
    nlohmann::json json = nlohmann::json::parse(visible, nullptr, false);
    if (!json.is_discarded() && json.is_object()) {
      if (auto field = json_support::stringMember(json, "transcription")) {
        return std::string(trimUnicodeWhitespace(PromptOutputParser::stripInvisibleCharacters(*field)));
      }
    }
  }
  return PromptOutputParser::extractOutput(visible);
}

const std::string& PromptPostProcessor::alternativesInstruction() {
  static const std::string instruction =
      "\n"
      "CRITICAL INSTRUCTION: You must return the output as a JSON-formatted array of objects. Each object "
      "represents one distinct, complete, self-contained alternative rewrite of the SAME region of the input, and "
      "has exactly three fields:\n"
      "  - \"text\": the rewritten text for this alternative (a string)\n"
      "  - \"start\": the character offset in the input where the rewritten region begins (an integer)\n"
      "  - \"end\": the character offset in the input where the rewritten region ends, exclusive (an integer)\n"
      "Every object in the array MUST cover the SAME [start, end) region \u2014 the array is a set of alternative "
      "rewrites of that single region, NOT a list of separate edits. The chosen object's \"text\" will replace the "
      "input's [start, end) substring verbatim, so \"start\"/\"end\" must be exact character offsets into the input "
      "text. Do NOT split a single rewrite into multiple objects by line, sentence, paragraph, or bullet. Provide 3 "
      "to 5 alternative objects. Return ONLY the JSON array \u2014 no markdown fences (like ```json), no "
      "explanations, no other text.";
  return instruction;
}

bool PromptPostProcessor::isStructuredOutputIncompatibility(const OrvidProviderError& error) {
  if (error.errorCase() != OrvidProviderError::Case::unsupportedProvider) return false;
  const std::string message = text_support::lowercased(error.what());
  return std::any_of(kStructuredOutputIncompatibilityMarkers.begin(), kStructuredOutputIncompatibilityMarkers.end(),
                     [&](std::string_view marker) { return message.find(marker) != std::string::npos; });
}

}  // namespace orvid
