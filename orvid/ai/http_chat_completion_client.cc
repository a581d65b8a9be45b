#include "orvid/ai/http_chat_completion_client.h"

#include <optional>
#include <string>
#include <string_view>

#include "orvid/ai/chat_completion_response_parser.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/platform/cancellation.h"

namespace orvid {
namespace {

// True when `text` is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF).
bool isValidUTF8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      ++i;
      continue;
    }
    std::size_t length = 0;
    char32_t codePoint = 0;
    char32_t minimum = 0;
    if ((byte & 0xE0) == 0xC0) {
      length = 2, codePoint = byte & 0x1F, minimum = 0x80;
    } else if ((byte & 0xF0) == 0xE0) {
      length = 3, codePoint = byte & 0x0F, minimum = 0x800;
    } else if ((byte & 0xF8) == 0xF0) {
      length = 4, codePoint = byte & 0x07, minimum = 0x10000;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (std::size_t j = 1; j < length; ++j) {
      auto continuation = static_cast<unsigned char>(text[i + j]);
      if ((continuation & 0xC0) != 0x80) return false;
      codePoint = (codePoint << 6) | (continuation & 0x3F);
    }
    if (codePoint < minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

// The bytes as redacted text; absent when they are not UTF-8.
std::optional<std::string> redactedText(const Bytes& bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (!isValidUTF8(text)) return std::nullopt;
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
