#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/ai/json_value.h"

namespace orvid {

// How much reasoning a model may spend on a reply.
enum class AIReasoningEffort { low, medium, high };

// "low", "medium", "high".
std::string rawValue(AIReasoningEffort effort);
std::optional<AIReasoningEffort> aiReasoningEffortFromRawValue(const std::string& text);
// Every effort, from low to high.
const std::vector<AIReasoningEffort>& allAIReasoningEfforts();

void to_json(nlohmann::json& json, const AIReasoningEffort& effort);
void from_json(const nlohmann::json& json, AIReasoningEffort& effort);

// One call to a language model: a system prompt and one user message.
struct ChatCompletionRequest {
  // The provider the caller chose (carried, not sent).
  std::string providerID;
  // Sent as "model"; must not be empty.
  std::string modelID;
  // Omitted from the body when absent or empty.
  std::optional<std::string> systemPrompt;
  std::string userText;
  // Structured output, sent when the provider supports it.
  std::optional<JSONSchema> responseSchema;
  // A reasoning budget, sent when the provider supports it.
  std::optional<AIReasoningEffort> reasoningEffort;
  // For providers with a reasoning object: keep the reasoning text out of the
  // reply. Absent means true.
  std::optional<bool> excludeReasoningFromResponse;

  bool operator==(const ChatCompletionRequest&) const = default;
};

}  // namespace orvid
