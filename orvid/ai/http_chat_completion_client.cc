#include "orvid/ai/http_chat_completion_client.h"

#include <optional>
#include <string>
#include <string_view>

#include "orvid/ai/chat_completion_response_parser.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

// The bytes as redacted text; absent when they are not UTF-8.
std::optional<std::string> redactedText(const Bytes& bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (!internal::isValidUTF8(text)) return std::nullopt;
  return SecretRedactor::redact(text);
}

}  // namespace

HTTPChatCompletionClient::HTTPChatCompletionClient(std::shared_ptr<OrvidHTTPClient> httpClient,
                                                   std::shared_ptr<const OrvidCredentialStore> credentialStore)
    : httpClient_(std::move(httpClient)), requestBuilder_(std::move(credentialStore)) {}

ChatCompletionResult HTTPChatCompletionClient::complete(const ChatCompletionRequest& request,
                                                        const AIProviderDescriptor& provider,
                                                        const AIProviderConfiguration& configuration,
                                                        std::stop_token stop) {
  checkCancellation(stop);
  OrvidHTTPRequest httpRequest = requestBuilder_.chatCompletionRequest(request, provider, configuration);
  std::optional<std::string> requestDebug;
  if (httpRequest.body) requestDebug = redactedText(*httpRequest.body);

  OrvidHTTPResponse response = httpClient_->data(httpRequest, stop);
  if (!response.isSuccess()) {
    auto failure = redactedText(response.body);
    throw OrvidProviderError::unsupportedProvider(failure ? std::move(*failure) : "Chat completion failed");
  }
  std::optional<std::string> responseDebug = redactedText(response.body);
  ChatCompletionResult result = ChatCompletionResponseParser::parse(response.body);
  result.rawRequestDebug = std::move(requestDebug);
  result.rawResponseDebug = std::move(responseDebug);
  return result;
}

}  // namespace orvid
