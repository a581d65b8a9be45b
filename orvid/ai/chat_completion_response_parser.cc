#include "orvid/ai/chat_completion_response_parser.h"

#include <cmath>
#include <cstdint>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"

namespace orvid::ChatCompletionResponseParser {
namespace {

using nlohmann::json;

bool isArrayOfObjects(const json& value) {
  if (!value.is_array()) return false;
  for (const auto& element : value) {
    if (!element.is_object()) return false;
  }
  return true;
}

// An integer member: a JSON integer, or a floating-point number with a whole value.
std::optional<std::int64_t> integerMember(const json& object, const char* key) {
  auto found = object.find(key);
  if (found == object.end()) return std::nullopt;
  if (found->is_number_unsigned()) {
    auto value = found->get<std::uint64_t>();
    if (value > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
    return static_cast<std::int64_t>(value);
  }
  if (found->is_number_integer()) return found->get<std::int64_t>();
  if (found->is_number_float()) {
    double value = found->get<double>();
    if (std::isfinite(value) && std::floor(value) == value && std::fabs(value) < 9.2e18) {
      return static_cast<std::int64_t>(value);
    }
  }
  return std::nullopt;
}

std::optional<std::string> content(const json& body) {
  auto choices = body.find("choices");
  if (choices != body.end() && isArrayOfObjects(*choices) && !choices->empty()) {
    const json& first = choices->front();
    auto message = first.find("message");
    if (message != first.end() && message->is_object()) {
      auto text = message->find("content");
      if (text == message->end() || !text->is_string()) throw OrvidProviderError::invalidResponse();
      return text->get<std::string>();
    }
  }
  auto top = body.find("content");
  if (top != body.end() && isArrayOfObjects(*top)) {
    std::string joined;
    for (const auto& block : *top) {
      auto text = block.find("text");
      if (text != block.end() && text->is_string()) joined += text->get<std::string>();
    }
    return joined;
  }
  if (top != body.end() && top->is_string()) return top->get<std::string>();
  return std::nullopt;
}

}  // namespace

ChatCompletionResult parse(const Bytes& data) {
  // Not JSON (including numbers past a double's range) is reported without the reader's
  // own text, which quotes the body's bytes.
  json body = json::parse(data.begin(), data.end(), nullptr, /*allow_exceptions=*/false);
  if (body.is_discarded() || !body.is_object()) throw OrvidProviderError::invalidResponse();
  auto text = content(body);
  if (!text) throw OrvidProviderError::invalidResponse();

  ChatCompletionResult result;
  result.content = std::move(*text);
  auto usage = body.find("usage");
  if (usage != body.end() && usage->is_object()) {
    result.inputTokens = integerMember(*usage, "prompt_tokens");
    if (!result.inputTokens) result.inputTokens = integerMember(*usage, "input_tokens");
    result.outputTokens = integerMember(*usage, "completion_tokens");
    if (!result.outputTokens) result.outputTokens = integerMember(*usage, "output_tokens");
  }
  return result;
}

}  // namespace orvid::ChatCompletionResponseParser
