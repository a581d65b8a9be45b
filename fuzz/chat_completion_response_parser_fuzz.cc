// Feeds arbitrary bytes to ChatCompletionResponseParser::parse as a provider's
// answer. It may throw only OrvidProviderError::invalidResponse, whose text is the
// fixed message and never quotes the body. A parsed answer has no debug texts,
// and reading the same JSON written out again gives the same result.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/ai/chat_completion_response_parser.h"
#include "orvid/ai/orvid_provider_error.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

using orvid::Bytes;
using orvid::ChatCompletionResult;
using orvid::OrvidProviderError;
namespace ChatCompletionResponseParser = orvid::ChatCompletionResponseParser;

constexpr std::string_view kMessage = "Invalid provider response.";
// Long enough that the fixed message cannot contain it by chance.
constexpr std::size_t kDistinctiveLength = 12;

std::optional<ChatCompletionResult> parsed(const Bytes& body) {
  try {
    return ChatCompletionResponseParser::parse(body);
  } catch (const OrvidProviderError& error) {
    require(error.errorCase() == OrvidProviderError::Case::invalidResponse, "failures are invalidResponse");
    require(error.payload().empty() && error.what() == kMessage, "the failure's text is the fixed message");
    const std::string_view message = error.what();
    const std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
    // A body cut from the fixed message itself says nothing about quoting.
    if (body.size() >= kDistinctiveLength && kMessage.find(text) == std::string_view::npos) {
      require(message.find(text) == std::string_view::npos, "the failure's text never quotes the body");
    }
    return std::nullopt;
  }
}

orvid::fuzz::Seeds seeds() {
  return {
      {"openai", bytes(R"({"choices":[{"message":{"role":"assistant","content":"Hello!"}}],)"
                       R"("usage":{"prompt_tokens":12,"completion_tokens":3}})")},
      {"anthropic", bytes(R"({"content":[{"type":"text","text":"Hel"},{"type":"text","text":"lo"}],)"
                          R"("usage":{"input_tokens":1e2,"output_tokens":18446744073709551615}})")},
      {"content-string", bytes(R"({"content":"plain","usage":{"prompt_tokens":-1,"input_tokens":4.5}})")},
      {"no-content", bytes(R"({"choices":[{"message":{"content":null}}]})")},
      {"huge-number", bytes(R"({"content":"x","usage":{"prompt_tokens":1e999}})")},
      {"not-json", bytes("<html>502 Bad Gateway: upstream sk-live-123 failed</html>")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes body(data, data + size);
  const std::optional<ChatCompletionResult> result = parsed(body);
  if (!result) return 0;
  require(!result->rawRequestDebug && !result->rawResponseDebug, "debug texts stay absent");

  const auto json = nlohmann::json::parse(body.begin(), body.end(), nullptr, false);
  require(!json.is_discarded() && json.is_object(), "only a JSON object parses");
  const std::string written = json.dump();
  require(parsed(Bytes(written.begin(), written.end())) == result, "the same JSON written again parses alike");
  return 0;
}
