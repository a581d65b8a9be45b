#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"

#include <array>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/cloud_batch/server_sent_event_fragment_reader.h"

namespace orvid {
namespace {

using internal::trimUnicodeWhitespace;
using nlohmann::json;

constexpr int kMaximumDepth = 256;

constexpr std::array<const char*, 5> kTextMembers = {"text", "transcript", "transcription", "utterance",
                                                     "result_text"};
constexpr std::array<const char*, 10> kNestedMembers = {"result", "results",      "data",     "message",   "output",
                                                        "content", "choices", "alternatives", "segments", "utterances"};

std::optional<std::string> nonBlank(const json& value) {
  std::string text(trimUnicodeWhitespace(value.get_ref<const std::string&>()));
  if (text.empty()) return std::nullopt;
  return text;
}

std::optional<std::string> extract(const json& value, int depth) {
  if (depth > kMaximumDepth) return std::nullopt;
  if (value.is_string()) return nonBlank(value);
  if (value.is_object()) {
    for (const char* key : kTextMembers) {
      auto member = value.find(key);
      if (member == value.end() || !member->is_string()) continue;
      if (auto text = nonBlank(*member)) return text;
    }
    for (const char* key : kNestedMembers) {
      auto member = value.find(key);
      if (member == value.end()) continue;
      if (auto text = extract(*member, depth + 1)) return text;
    }
    return std::nullopt;
  }
  if (value.is_array()) {
    for (const auto& element : value) {
      if (auto text = extract(element, depth + 1)) return text;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> CloudTranscriptionResponseParser::extractText(const json& value) {
  return extract(value, 0);
}

TranscriptionResult CloudTranscriptionResponseParser::parse(const Bytes& data) const {
  // Like a JSON reader without options: only an object or an array is a JSON document.
  json body = json::parse(data.begin(), data.end(), nullptr, false);
  const bool isDocument = !body.is_discarded() && (body.is_object() || body.is_array());

  TranscriptionResult result;
  std::optional<std::string> text = isDocument ? extractText(body) : std::nullopt;
  result.text = text ? std::move(*text) : std::string(trimUnicodeWhitespace(internal::decodeUTF8OrEmpty(data)));
  if (isDocument && body.is_object()) {
    result.language = json_support::stringMember(body, "language");
    const json* confidence = json_support::member(body, "confidence");
    if (confidence != nullptr && confidence->is_number()) result.confidence = confidence->get<double>();
  }
  return result;
}

TranscriptionResult CloudTranscriptionResponseParser::parseDeepgram(const Bytes& data) const {
  json body = json::parse(data.begin(), data.end(), nullptr, false);
  if (body.is_discarded() || !(body.is_object() || body.is_array())) throw OrvidProviderError::invalidResponse();

  // Each step of results.channels[0].alternatives[0], null where the walk stopped.
  auto objectMember = [](const json* object, const char* key) -> const json* {
    if (object == nullptr || !object->is_object()) return nullptr;
    const json* found = json_support::member(*object, key);
    return found != nullptr && found->is_object() ? found : nullptr;
  };
  auto firstObject = [](const json* object, const char* key) -> const json* {
    if (object == nullptr) return nullptr;
    const json* array = json_support::member(*object, key);
    if (array == nullptr || !array->is_array() || array->empty() || !array->front().is_object()) return nullptr;
    return &array->front();
  };
  const json* results = objectMember(&body, "results");
  const json* channel = firstObject(results, "channels");
  const json* alternative = firstObject(channel, "alternatives");

  TranscriptionResult result;
  if (alternative != nullptr) {
    result.text = json_support::stringMember(*alternative, "transcript").value_or("");
    const json* confidence = json_support::member(*alternative, "confidence");
    if (confidence != nullptr && confidence->is_number()) result.confidence = confidence->get<double>();
  }
  for (const json* level : {alternative, channel, results}) {
    if (level == nullptr) continue;
    if (auto language = json_support::stringMember(*level, "detected_language")) {
      result.language = std::move(language);
      break;
    }
  }
  return result;
}

TranscriptionResult CloudTranscriptionResponseParser::parseStreamFragments(const Bytes& data) const {
  ServerSentEventFragmentReader reader;
  reader.append(data);
  return reader.finish();
}

}  // namespace orvid
