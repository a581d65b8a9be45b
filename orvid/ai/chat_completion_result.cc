#include "orvid/ai/chat_completion_result.h"

#include <functional>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"

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

namespace {

template <typename T>
void combine(std::size_t& seed, const T& value) {
  seed ^= std::hash<T>{}(value) + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2);
}

}  // namespace

std::size_t std::hash<orvid::ChatCompletionResult>::operator()(const orvid::ChatCompletionResult& result) const noexcept {
  std::size_t seed = 0;
  combine(seed, result.content);
  combine(seed, result.inputTokens);
  combine(seed, result.outputTokens);
  combine(seed, result.rawRequestDebug);
  combine(seed, result.rawResponseDebug);
  return seed;
}
