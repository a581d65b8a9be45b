#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/platform/url.h"

namespace orvid {

// How requests to a language-model provider are shaped and authenticated.
enum class AIProviderAPIStyle {
  // OpenAI-compatible chat completions without any credential (local servers).
  openAICompatibleWithoutKey,
  // OpenAI-compatible chat completions with "Authorization: Bearer <key>".
  openAICompatibleBearer,
  // The Anthropic messages API ("x-api-key").
  anthropicMessages,
};

std::string rawValue(AIProviderAPIStyle style);
std::optional<AIProviderAPIStyle> aiProviderAPIStyleFromRawValue(const std::string& text);

// A header a provider always needs, e.g. "anthropic-version".
struct AIProviderHeader {
  std::string name;
  std::string value;

  bool operator==(const AIProviderHeader&) const = default;
};

// A header the user adds to a configuration. A secret header takes its value from
// the credential store under `credentialReference`; any other uses `value`.
struct AIProviderCustomHeader {
  std::string name;
  std::optional<std::string> credentialReference;
  std::optional<std::string> value;
  bool isSecret = false;

  bool operator==(const AIProviderCustomHeader&) const = default;
};

// A language-model service the host knows how to talk to.
struct AIProviderDescriptor {
  std::string id;
  std::string displayName;
  AIProviderAPIStyle apiStyle = AIProviderAPIStyle::openAICompatibleBearer;
  // Absent for services whose address the user must supply.
  std::optional<URL> defaultBaseURL;
  // The model list's path relative to the base URL, e.g. "models".
  std::string modelListPath = "models";
  std::vector<AIProviderHeader> defaultHeaders;
  bool supportsModelDiscovery = true;
  // Accepts "response_format" with a JSON schema.
  bool supportsStructuredOutput = false;
  // Accepts a top-level "reasoning_effort".
  bool supportsReasoningEffort = false;
  // Accepts a "reasoning" object with "effort" and "exclude".
  bool supportsReasoningObject = false;
  // Runs on the user's own machine.
  bool isLocal = false;

  bool operator==(const AIProviderDescriptor&) const = default;
};

// A model of a configured provider, as the host lists and selects it.
struct AIModelReference {
  std::string modelID;
  std::string displayName;
  // The provider configuration's identifier.
  std::string providerID;
  bool supportsStructuredOutput = false;
  // The model's context window in tokens, when the provider reports it.
  std::optional<int> contextWindow;

  bool operator==(const AIModelReference&) const = default;
};

// Whether a configuration has been proven to work.
struct AIProviderValidationState {
  enum class Kind { validated, notValidated, failed };

  Kind kind = Kind::notValidated;
  // When validation succeeded (validated only).
  std::optional<std::chrono::system_clock::time_point> validatedAt;
  // Why validation failed (failed only).
  std::optional<std::string> message;

  static AIProviderValidationState validated(std::chrono::system_clock::time_point at) {
    return {Kind::validated, at, std::nullopt};
  }
  static AIProviderValidationState notValidated() { return {}; }
  static AIProviderValidationState failed(std::string message) {
    return {Kind::failed, std::nullopt, std::move(message)};
  }
  bool isValidated() const { return kind == Kind::validated; }

  bool operator==(const AIProviderValidationState&) const = default;
};

std::string rawValue(AIProviderValidationState::Kind kind);

// The user's set-up of one provider: where it lives, which models it offers and
// which one is selected. The API key is stored in the credential store under
// "provider." + id + ".api-key", never here.
struct AIProviderConfiguration {
  std::string id;
  // The descriptor this configuration is for.
  std::string providerID;
  std::string displayName;
  // Overrides the descriptor's defaultBaseURL.
  std::optional<URL> baseURL;
  // Overrides the descriptor's modelListPath.
  std::optional<std::string> modelListPath;
  std::vector<AIProviderCustomHeader> customHeaders;
  std::optional<std::string> selectedModelID;
  std::vector<std::string> modelIDs;
  // Upper bound of a reply's tokens (sent as "max_tokens" where required).
  std::optional<int> maxOutputTokens;
  AIProviderValidationState validationState;

  bool operator==(const AIProviderConfiguration&) const = default;
};

// One HTTP exchange with a provider as shown in a diagnostics view, secrets removed.
struct AIProviderDebugHTTPExchange {
  // The request line followed by the request headers, one per line.
  std::string request;
  // The status line followed by the response headers; absent when no response came.
  std::optional<std::string> response;
  // The response body as text; absent when no response came.
  std::optional<std::string> responseBody;

  bool operator==(const AIProviderDebugHTTPExchange&) const = default;
};

// The outcome of a traced model discovery: the models found or why it failed,
// together with the exchange itself.
struct AIProviderModelDiscoveryDebugResult {
  std::vector<AIModelReference> models;
  std::optional<std::string> errorMessage;
  AIProviderDebugHTTPExchange exchange;

  bool succeeded() const { return !errorMessage.has_value(); }

  bool operator==(const AIProviderModelDiscoveryDebugResult&) const = default;
};

void to_json(nlohmann::json& json, const AIProviderAPIStyle& style);
void from_json(const nlohmann::json& json, AIProviderAPIStyle& style);
void to_json(nlohmann::json& json, const AIProviderHeader& header);
void from_json(const nlohmann::json& json, AIProviderHeader& header);
void to_json(nlohmann::json& json, const AIProviderCustomHeader& header);
void from_json(const nlohmann::json& json, AIProviderCustomHeader& header);
void to_json(nlohmann::json& json, const AIProviderDescriptor& descriptor);
void from_json(const nlohmann::json& json, AIProviderDescriptor& descriptor);
void to_json(nlohmann::json& json, const AIModelReference& reference);
void from_json(const nlohmann::json& json, AIModelReference& reference);
void to_json(nlohmann::json& json, const AIProviderValidationState& state);
void from_json(const nlohmann::json& json, AIProviderValidationState& state);
void to_json(nlohmann::json& json, const AIProviderConfiguration& configuration);
void from_json(const nlohmann::json& json, AIProviderConfiguration& configuration);
void to_json(nlohmann::json& json, const AIProviderDebugHTTPExchange& exchange);
void from_json(const nlohmann::json& json, AIProviderDebugHTTPExchange& exchange);
void to_json(nlohmann::json& json, const AIProviderModelDiscoveryDebugResult& result);
void from_json(const nlohmann::json& json, AIProviderModelDiscoveryDebugResult& result);

}  // namespace orvid
