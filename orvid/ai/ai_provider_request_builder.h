#pragma once

#include <memory>
#include <string>

#include "orvid/ai/chat_completion_request.h"
#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// Turns a provider description and the user's configuration into ready-to-send
// HTTP requests: URL, method, timeout, credential and custom headers, and body.
//
// Headers, in this order (a later header replaces an earlier one of the same name):
// 1. the credential by API style, read under "provider." + configuration id +
//    ".api-key": none for openAICompatibleWithoutKey; "Authorization: Bearer <key>"
//    for openAICompatibleBearer; "x-api-key: <key>" and the bearer header for
//    anthropicMessages (an absent or empty key throws missingCredential);
// 2. the descriptor's default headers;
// 3. the configuration's custom headers with a non-blank (trimmed) name: a secret
//    header with a reference takes the stored credential (skipped when absent),
//    any other its value (skipped when absent); empty values are skipped.
// Credential store errors propagate.
class AIProviderRequestBuilder {
 public:
  explicit AIProviderRequestBuilder(std::shared_ptr<const OrvidCredentialStore> credentialStore);

  // "provider." + configurationID + "." + suffix.
  static std::string credentialReference(const std::string& configurationID, const std::string& suffix);

  // POST of the chat body to chatEndpoint(base, "messages") for the Anthropic
  // style and chatEndpoint(base, "chat/completions") for the others, where base is
  // the configuration's baseURL or else the descriptor's defaultBaseURL. Timeout
  // 60 s, "Content-Type: application/json", then the headers above.
  // Throws OrvidProviderError missingBaseURL, missingModel (empty modelID) or
  // missingCredential, and credential store errors.
  //
  // The body, for OpenAI-compatible styles: "model", "messages" (a system message
  // when the system prompt is non-empty, then the user message), "response_format"
  // with a strict JSON schema named "script_automation_result" or
  // "transcription_result" when a schema is given and supported, and
  // "reasoning_effort" and/or "reasoning" {"effort", "exclude"} when an effort is
  // given and supported. For the Anthropic style: "model", "max_tokens" (the
  // configuration's maxOutputTokens or 4096), "messages" with the user message and
  // "system" when non-empty.
  OrvidHTTPRequest chatCompletionRequest(const ChatCompletionRequest& request, const AIProviderDescriptor& provider,
                                         const AIProviderConfiguration& configuration) const;

  // GET of endpoint(base, modelListPath), with the configuration's values before
  // the descriptor's. Timeout 60 s, the headers above. Throws
  // OrvidProviderError::unsupportedProvider(provider id) when the provider has no
  // model discovery, missingBaseURL when no URL results, missingCredential, and
  // credential store errors.
  OrvidHTTPRequest modelDiscoveryRequest(const AIProviderDescriptor& provider,
                                         const AIProviderConfiguration& configuration) const;

  const std::shared_ptr<const OrvidCredentialStore>& credentialStore() const { return credentialStore_; }

 private:
  void applyHeaders(OrvidHTTPRequest& request, const AIProviderDescriptor& provider,
                    const AIProviderConfiguration& configuration) const;

  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
};

}  // namespace orvid
