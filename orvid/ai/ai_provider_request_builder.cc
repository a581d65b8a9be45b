#include "orvid/ai/ai_provider_request_builder.h"

#include <chrono>

#include <nlohmann/json.hpp>

#include "orvid/ai/ai_provider_url_builder.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};
constexpr int kDefaultAnthropicMaxTokens = 4096;

nlohmann::json message(const char* role, const std::string& content) {
  return {{"role", role}, {"content", content}};
}

nlohmann::json chatBody(const ChatCompletionRequest& request, const AIProviderDescriptor& provider,
                        const AIProviderConfiguration& configuration) {
  const bool hasSystemPrompt = request.systemPrompt && !request.systemPrompt->empty();
  nlohmann::json body = nlohmann::json::object();
  body["model"] = request.modelID;

  if (provider.apiStyle == AIProviderAPIStyle::anthropicMessages) {
    body["max_tokens"] = configuration.maxOutputTokens.value_or(kDefaultAnthropicMaxTokens);
    body["messages"] = nlohmann::json::array({message("user", request.userText)});
    if (hasSystemPrompt) body["system"] = *request.systemPrompt;
    return body;
  }

  auto messages = nlohmann::json::array();
  if (hasSystemPrompt) messages.push_back(message("system", *request.systemPrompt));
  messages.push_back(message("user", request.userText));
  body["messages"] = std::move(messages);

  if (request.responseSchema && provider.supportsStructuredOutput) {
    const char* name = *request.responseSchema == JSONSchema::scriptAutomationOutput() ? "script_automation_result"
                                                                                         : "transcription_result";
    body["response_format"] = {
        {"type", "json_schema"},
        {"json_schema", {{"name", name}, {"strict", true}, {"schema", request.responseSchema->value.foundationValue()}}},
    };
  }
  if (request.reasoningEffort) {
    if (provider.supportsReasoningEffort) body["reasoning_effort"] = rawValue(*request.reasoningEffort);
    if (provider.supportsReasoningObject) {
      body["reasoning"] = {{"effort", rawValue(*request.reasoningEffort)},
                           {"exclude", request.excludeReasoningFromResponse.value_or(true)}};
    }
  }
  return body;
}

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

}  // namespace

AIProviderRequestBuilder::AIProviderRequestBuilder(std::shared_ptr<const OrvidCredentialStore> credentialStore)
    : credentialStore_(std::move(credentialStore)) {}

std::string AIProviderRequestBuilder::credentialReference(const std::string& configurationID,
                                                          const std::string& suffix) {
  return "provider." + configurationID + "." + suffix;
}

OrvidHTTPRequest AIProviderRequestBuilder::chatCompletionRequest(const ChatCompletionRequest& request,
                                                                 const AIProviderDescriptor& provider,
                                                                 const AIProviderConfiguration& configuration) const {
  const auto& base = configuration.baseURL ? configuration.baseURL : provider.defaultBaseURL;
  if (!base) throw OrvidProviderError::missingBaseURL();
  if (request.modelID.empty()) throw OrvidProviderError::missingModel();

  const char* path = provider.apiStyle == AIProviderAPIStyle::anthropicMessages ? "messages" : "chat/completions";
  OrvidHTTPRequest httpRequest;
  httpRequest.method = "POST";
  httpRequest.url = AIProviderURLBuilder::chatEndpoint(*base, path);
  httpRequest.timeout = kRequestTimeout;
  httpRequest.setHeader("Content-Type", "application/json");
  applyHeaders(httpRequest, provider, configuration);
  httpRequest.body = bytesOf(chatBody(request, provider, configuration).dump());
  return httpRequest;
}

OrvidHTTPRequest AIProviderRequestBuilder::modelDiscoveryRequest(const AIProviderDescriptor& provider,
                                                                 const AIProviderConfiguration& configuration) const {
  if (!provider.supportsModelDiscovery) throw OrvidProviderError::unsupportedProvider(provider.id);

  std::string base;
  if (configuration.baseURL) {
    base = configuration.baseURL->absoluteString();
  } else if (provider.defaultBaseURL) {
    base = provider.defaultBaseURL->absoluteString();
  }
  const auto& path = configuration.modelListPath ? *configuration.modelListPath : provider.modelListPath;
  auto url = AIProviderURLBuilder::endpoint(base, path);
  if (!url) throw OrvidProviderError::missingBaseURL();

  OrvidHTTPRequest httpRequest;
  httpRequest.method = "GET";
  httpRequest.url = std::move(*url);
  httpRequest.timeout = kRequestTimeout;
  applyHeaders(httpRequest, provider, configuration);
  return httpRequest;
}

void AIProviderRequestBuilder::applyHeaders(OrvidHTTPRequest& request, const AIProviderDescriptor& provider,
                                            const AIProviderConfiguration& configuration) const {
  switch (provider.apiStyle) {
    case AIProviderAPIStyle::openAICompatibleBearer:
    case AIProviderAPIStyle::anthropicMessages: {
      auto key = credentialStore_->readCredential(credentialReference(configuration.id, "api-key"));
      if (!key || key->empty()) throw OrvidProviderError::missingCredential();
      if (provider.apiStyle == AIProviderAPIStyle::anthropicMessages) request.setHeader("x-api-key", *key);
      request.setHeader("Authorization", "Bearer " + *key);
      break;
    }
    case AIProviderAPIStyle::openAICompatibleWithoutKey:
      break;
  }

  for (const auto& header : provider.defaultHeaders) request.setHeader(header.name, header.value);

  for (const auto& header : configuration.customHeaders) {
    const std::string name(internal::trimUnicodeWhitespace(header.name));
    if (name.empty()) continue;
    std::optional<std::string> value;
    if (header.isSecret && header.credentialReference) {
      value = credentialStore_->readCredential(*header.credentialReference);
    } else {
      value = header.value;
    }
    if (!value || value->empty()) continue;
    request.setHeader(name, *value);
  }
}

}  // namespace orvid
