#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

// An instruction for a language model that rewrites a cleaned transcript, e.g.
// "fix the grammar" or "translate into English".
struct TranscriptionPrompt {
  std::string id;
  std::string name;
  // Position in the host's list, ascending.
  int sortOrder = 0;
  // Sent as the system prompt.
  std::string promptText;
  // Overrides the configuration's selected model for this prompt.
  std::optional<std::string> modelID;
  // Ask for several alternative rewrites of one region instead of one answer.
  bool rewritesAsAlternatives = false;
  bool isBuiltIn = false;

  // The built-in prompt used when a selected prompt no longer exists.
  static const std::string fallbackPromptID;

  bool operator==(const TranscriptionPrompt&) const = default;
};

// A transcript rewritten by a language model, with timing and token statistics.
struct PromptPostProcessResult {
  std::string text;
  // The provider configuration's identifier.
  std::string providerID;
  std::string modelID;
  std::string promptID;
  long long elapsedMilliseconds = 0;
  std::optional<int> inputTokens;
  std::optional<int> outputTokens;
  std::optional<double> tokensPerSecond;
  // The request and response bodies, secrets removed.
  std::optional<std::string> rawRequestDebug;
  std::optional<std::string> rawResponseDebug;

  bool operator==(const PromptPostProcessResult&) const = default;
};

// One alternative rewrite of the region [start, end) of the input, in characters.
// Decoding takes any offset a signed 64-bit integer holds and rejects the rest.
struct RewriteChoice {
  std::string text;
  std::int64_t start = 0;
  std::int64_t end = 0;

  bool operator==(const RewriteChoice&) const = default;
};

void to_json(nlohmann::json& json, const TranscriptionPrompt& prompt);
void from_json(const nlohmann::json& json, TranscriptionPrompt& prompt);
void to_json(nlohmann::json& json, const PromptPostProcessResult& result);
void from_json(const nlohmann::json& json, PromptPostProcessResult& result);
// Every key is required when decoding: "text" a string, "start" and "end" integers.
void to_json(nlohmann::json& json, const RewriteChoice& choice);
void from_json(const nlohmann::json& json, RewriteChoice& choice);

}  // namespace orvid
