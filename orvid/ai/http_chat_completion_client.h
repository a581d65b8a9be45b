#pragma once

#include <memory>
#include <stop_token>

#include "orvid/ai/ai_provider_request_builder.h"
#include "orvid/ai/chat_completion_client.h"
#include "orvid/ai/orvid_credential_store.h"
#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// ChatCompletionClient over an OrvidHTTPClient: builds the request with
// AIProviderRequestBuilder, sends it once (no retry), and reads a 2xx answer with
// ChatCompletionResponseParser, adding the redacted request and response bodies as
// debug texts. Any other status throws OrvidProviderError::unsupportedProvider with
// the redacted response body, or "Chat completion failed" when the body is not
// UTF-8. Immutable after construction.
class HTTPChatCompletionClient final : public ChatCompletionClient {
 public:
  HTTPChatCompletionClient(std::shared_ptr<OrvidHTTPClient> httpClient,
                           std::shared_ptr<const OrvidCredentialStore> credentialStore);

  ChatCompletionResult complete(const ChatCompletionRequest& request, const AIProviderDescriptor& provider,
                                const AIProviderConfiguration& configuration, std::stop_token stop = {}) override;

  const AIProviderRequestBuilder& requestBuilder() const { return requestBuilder_; }

 private:
  std::shared_ptr<OrvidHTTPClient> httpClient_;
  AIProviderRequestBuilder requestBuilder_;
};

}  // namespace orvid
