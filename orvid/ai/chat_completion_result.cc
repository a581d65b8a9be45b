#include "orvid/ai/chat_completion_result.h"

#include <functional>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/hash.h"

namespace orvid {

void to_json(nlohmann::json& json, const ChatCompletionResult& result) {
  json = nlohmann::json::object();
  json["content"] = result.content;
  json_support::putOptional(json, "inputTokens", result.inputTokens);
  json_support::putOptional(json, "outputTokens", result.outputTokens);
  json_support::putOptional(json, "rawRequestDebug", result.rawRequestDebug);
  json_support::putOptional(json, "rawResponseDebug", result.rawResponseDebug);
}

void from_json(const nlohmann::json& json, ChatCompletionResult& result) {
  result.content = json.at("content").get<std::string>();
  json_support::getOptional(json, "inputTokens", result.inputTokens);
  json_support::getOptional(json, "outputTokens", result.outputTokens);
  json_support::getOptional(json, "rawRequestDebug", result.rawRequestDebug);
  json_support::getOptional(json, "rawResponseDebug", result.rawResponseDebug);
}

}  // namespace orvid

std::size_t std::hash<orvid::ChatCompletionResult>::operator()(const orvid::ChatCompletionResult& result) const noexcept {
  return orvid::internal::hashCombinedValues(0, result.content, result.inputTokens, result.outputTokens,
                                             result.rawRequestDebug, result.rawResponseDebug);
}
