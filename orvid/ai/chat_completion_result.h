#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

// A language model's answer to one ChatCompletionRequest.
struct ChatCompletionResult {
  // The model's reply text as received (not trimmed).
  std::string content;
  std::optional<std::int64_t> inputTokens;
  std::optional<std::int64_t> outputTokens;
  // The request body with secrets redacted.
  std::optional<std::string> rawRequestDebug;
  // The response body with secrets redacted.
  std::optional<std::string> rawResponseDebug;

  bool operator==(const ChatCompletionResult&) const = default;
};

// JSON keys "content", "inputTokens", "outputTokens", "rawRequestDebug",
// "rawResponseDebug"; absent optionals are omitted.
void to_json(nlohmann::json& json, const ChatCompletionResult& result);
void from_json(const nlohmann::json& json, ChatCompletionResult& result);

}  // namespace orvid

template <>
struct std::hash<orvid::ChatCompletionResult> {
  std::size_t operator()(const orvid::ChatCompletionResult& result) const noexcept;
};
