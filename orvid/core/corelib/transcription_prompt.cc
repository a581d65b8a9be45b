#include "orvid/core/corelib/transcription_prompt.h"

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"

namespace orvid {

const std::string TranscriptionPrompt::fallbackPromptID = "default_correct";

void to_json(nlohmann::json& json, const TranscriptionPrompt& prompt) {
  json = nlohmann::json::object();
  json["id"] = prompt.id;
  json["name"] = prompt.name;
  json["sortOrder"] = prompt.sortOrder;
  json["promptText"] = prompt.promptText;
  json_support::putOptional(json, "modelID", prompt.modelID);
  json["rewritesAsAlternatives"] = prompt.rewritesAsAlternatives;
  json["isBuiltIn"] = prompt.isBuiltIn;
}

void from_json(const nlohmann::json& json, TranscriptionPrompt& prompt) {
  prompt = {};
  json.at("id").get_to(prompt.id);
  json.at("name").get_to(prompt.name);
  json_support::getIfPresent(json, "sortOrder", prompt.sortOrder);
  json.at("promptText").get_to(prompt.promptText);
  json_support::getOptional(json, "modelID", prompt.modelID);
  json_support::getIfPresent(json, "rewritesAsAlternatives", prompt.rewritesAsAlternatives);
  json_support::getIfPresent(json, "isBuiltIn", prompt.isBuiltIn);
}

void to_json(nlohmann::json& json, const PromptPostProcessResult& result) {
  json = nlohmann::json::object();
  json["text"] = result.text;
  json["providerID"] = result.providerID;
  json["modelID"] = result.modelID;
  json["promptID"] = result.promptID;
  json["elapsedMilliseconds"] = result.elapsedMilliseconds;
  json_support::putOptional(json, "inputTokens", result.inputTokens);
  json_support::putOptional(json, "outputTokens", result.outputTokens);
  json_support::putOptional(json, "tokensPerSecond", result.tokensPerSecond);
  json_support::putOptional(json, "rawRequestDebug", result.rawRequestDebug);
  json_support::putOptional(json, "rawResponseDebug", result.rawResponseDebug);
}

void from_json(const nlohmann::json& json, PromptPostProcessResult& result) {
  result = {};
  json.at("text").get_to(result.text);
  json.at("providerID").get_to(result.providerID);
  json.at("modelID").get_to(result.modelID);
  json.at("promptID").get_to(result.promptID);
  result.elapsedMilliseconds = json_support::integer<long long>(json.at("elapsedMilliseconds"));
  json_support::getOptional(json, "inputTokens", result.inputTokens);
  json_support::getOptional(json, "outputTokens", result.outputTokens);
  json_support::getOptional(json, "tokensPerSecond", result.tokensPerSecond);
  json_support::getOptional(json, "rawRequestDebug", result.rawRequestDebug);
  json_support::getOptional(json, "rawResponseDebug", result.rawResponseDebug);
}

void to_json(nlohmann::json& json, const RewriteChoice& choice) {
  json = {{"text", choice.text}, {"start", choice.start}, {"end", choice.end}};
}

void from_json(const nlohmann::json& json, RewriteChoice& choice) {
  const auto& text = json.at("text");
  const auto& start = json.at("start");
  const auto& end = json.at("end");
  // An unsigned number past the signed range would wrap on reading.
  auto isOffset = [](const nlohmann::json& value) {
    return value.is_number_integer() &&
           (!value.is_number_unsigned() || value.get<std::uint64_t>() <= static_cast<std::uint64_t>(INT64_MAX));
  };
  if (!text.is_string() || !isOffset(start) || !isOffset(end)) {
    throw nlohmann::json::type_error::create(302, "a rewrite choice needs text, start and end", &json);
  }
  choice.text = text.get<std::string>();
  choice.start = start.get<std::int64_t>();
  choice.end = end.get<std::int64_t>();
}

}  // namespace orvid
