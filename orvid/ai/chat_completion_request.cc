#include "orvid/ai/chat_completion_request.h"

#include <array>

#include <nlohmann/json.hpp>

namespace orvid {
namespace {

constexpr std::array<const char*, 3> kEffortNames{"low", "medium", "high"};

}  // namespace

std::string rawValue(AIReasoningEffort effort) { return kEffortNames[static_cast<std::size_t>(effort)]; }

std::optional<AIReasoningEffort> aiReasoningEffortFromRawValue(const std::string& text) {
  for (std::size_t i = 0; i < kEffortNames.size(); ++i) {
    if (text == kEffortNames[i]) return static_cast<AIReasoningEffort>(i);
  }
  return std::nullopt;
}

const std::vector<AIReasoningEffort>& allAIReasoningEfforts() {
  static const std::vector<AIReasoningEffort> efforts{AIReasoningEffort::low, AIReasoningEffort::medium,
                                                      AIReasoningEffort::high};
  return efforts;
}

void to_json(nlohmann::json& json, const AIReasoningEffort& effort) { json = rawValue(effort); }

void from_json(const nlohmann::json& json, AIReasoningEffort& effort) {
  auto parsed = aiReasoningEffortFromRawValue(json.get<std::string>());
  if (!parsed) throw nlohmann::json::other_error::create(501, "unknown reasoning effort: " + json.dump(), &json);
  effort = *parsed;
}

}  // namespace orvid
