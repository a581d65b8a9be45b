#pragma once

#include <stop_token>

#include "orvid/ai/chat_completion_request.h"
#include "orvid/ai/chat_completion_result.h"
#include "orvid/core/corelib/ai_provider.h"

namespace orvid {

// The one contract for language-model calls: a system prompt and one user message
// to a configured provider, answered with text and token counts. No streaming, no
// history, no tools. Implementations are safe to call from several threads at once.
class ChatCompletionClient {
 public:
  virtual ~ChatCompletionClient() = default;

  // Sends `request` to the provider described by `provider` and `configuration`
  // and returns its answer. Throws OrvidProviderError (missing base URL, model or
  // credential; unsupportedProvider with the service's redacted error text;
  // invalidResponse), the transport's errors unchanged, and CancellationError once
  // `stop` is requested.
  virtual ChatCompletionResult complete(const ChatCompletionRequest& request, const AIProviderDescriptor& provider,
                                        const AIProviderConfiguration& configuration, std::stop_token stop = {}) = 0;
};

}  // namespace orvid
