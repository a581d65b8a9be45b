#pragma once

#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "orvid/ai/ai_provider_request_builder.h"
#include "orvid/ai/chat_completion_client.h"
#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/platform/bytes.h"
#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// Reads a provider's model list.
namespace AIModelDiscoveryParser {

// One reference per identifier of the first shape that matches: an object whose
// "data" is an array of objects, an object whose "models" is an array of objects, an
// array of strings, an array of objects. An object element gives its "id", else its
// "name" (strings), else nothing. Blank identifiers are dropped; the rest keep their
// order and their text, untrimmed, with `providerID` and `supportsStructuredOutput`.
// Throws OrvidProviderError::invalidResponse for a body that is not JSON or has none
// of these shapes (the error never quotes the body).
std::vector<AIModelReference> parse(const Bytes& data, const std::string& providerID, bool supportsStructuredOutput);

}  // namespace AIModelDiscoveryParser

// Fetches a language-model provider's model list over an OrvidHTTPClient.
// Immutable after construction; calls may overlap.
class HTTPAIModelDiscoveryClient {
 public:
  HTTPAIModelDiscoveryClient(std::shared_ptr<OrvidHTTPClient> httpClient,
                             std::shared_ptr<const OrvidCredentialStore> credentialStore);

  // GETs the model list (AIProviderRequestBuilder::modelDiscoveryRequest) once and
  // parses a 2xx answer for the configuration's identifier. Throws the builder's
  // errors (unsupportedProvider with the provider's id when it has no discovery),
  // OrvidProviderError::unsupportedProvider with the redacted body (or "Model
  // discovery failed" when it is not UTF-8) for any other status, the parser's
  // invalidResponse, transport errors and CancellationError.
  std::vector<AIModelReference> discoverModels(const AIProviderDescriptor& provider,
                                               const AIProviderConfiguration& configuration,
                                               std::stop_token stop = {}) const;

  // The same exchange with a secret-free trace for a diagnostics view: the request
  // line and its headers sorted by name (authorization, proxy-authorization, x-api-key
  // for the Anthropic style and the configuration's secret headers shown as
  // "[REDACTED]"), the status line and headers, and the redacted body. Failures of
  // the exchange become the result's error message; only request-building errors
  // are thrown.
  AIProviderModelDiscoveryDebugResult discoverModelsWithDebugTrace(const AIProviderDescriptor& provider,
                                                                   const AIProviderConfiguration& configuration,
                                                                   std::stop_token stop = {}) const;

 private:
  std::shared_ptr<OrvidHTTPClient> httpClient_;
  AIProviderRequestBuilder requestBuilder_;
};

// Proves a language-model configuration with one tiny chat request.
class AIProviderValidationClient {
 public:
  explicit AIProviderValidationClient(std::shared_ptr<ChatCompletionClient> client);

  // Asks the configuration's selected model (trimmed, when not blank) or else its
  // first model to "Reply with exactly: ok"; any successful answer validates, stamped
  // with the current time. Throws OrvidProviderError::missingModel before any request
  // when there is no model, and the client's errors unchanged.
  AIProviderValidationState validate(const AIProviderDescriptor& provider,
                                     const AIProviderConfiguration& configuration, std::stop_token stop = {}) const;

 private:
  std::shared_ptr<ChatCompletionClient> client_;
};

}  // namespace orvid
