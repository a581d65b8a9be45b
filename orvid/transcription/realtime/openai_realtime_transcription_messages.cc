#include "orvid/transcription/realtime/openai_realtime_transcription_messages.h"

#include <array>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "orvid/platform/base64.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"

namespace orvid {

namespace OpenAIRealtimeTranscriptionMessageBuilder {

std::string sessionUpdate(const std::string& modelID, const std::optional<std::string>& language,
                          const std::optional<std::string>& prompt) {
  nlohmann::json transcription = {{"model", modelID}};
  if (language && !language->empty() && *language != "auto") transcription["language"] = *language;
  if (prompt && !prompt->empty()) transcription["prompt"] = *prompt;
  nlohmann::json session = {
      {"input_audio_format", "pcm16"},
      {"input_audio_transcription", std::move(transcription)},
      {"turn_detection", {{"type", "server_vad"}}},
  };
  return RealtimeJSON::encode({{"type", "transcription_session.update"}, {"session", std::move(session)}});
}

std::string appendAudio(std::span<const std::uint8_t> pcm16LittleEndian) {
  return RealtimeJSON::encode({{"type", "input_audio_buffer.append"}, {"audio", Base64::encode(pcm16LittleEndian)}});
}

std::string commit() { return RealtimeJSON::encode({{"type", "input_audio_buffer.commit"}}); }

}  // namespace OpenAIRealtimeTranscriptionMessageBuilder

namespace OpenAIRealtimeTranscriptionEventParser {

std::optional<TranscriptionPartialResult> parse(const Bytes& payload) {
  nlohmann::json event = nlohmann::json::parse(payload, nullptr, /*allow_exceptions=*/false);
  if (!event.is_object()) return std::nullopt;

  static constexpr std::array<std::string_view, 4> kTextMembers = {"delta", "transcript", "text", "content"};
  std::optional<std::string> text;
  for (std::string_view key : kTextMembers) {
    if ((text = stringValue(RealtimeJSON::member(event, key)))) break;
  }
  if (!text || text->empty()) return std::nullopt;

  const nlohmann::json* type = RealtimeJSON::member(event, "type");
  std::string lowercasedType =
      type != nullptr && type->is_string() ? internal::lowercaseASCII(type->get_ref<const std::string&>()) : "";
  bool isFinal = lowercasedType.find("completed") != std::string::npos ||
                 lowercasedType.find("final") != std::string::npos ||
                 boolValue(RealtimeJSON::member(event, "is_final")).value_or(false);
  return TranscriptionPartialResult{std::move(*text), isFinal, std::nullopt};
}

std::optional<std::string> stringValue(const nlohmann::json* value) {
  // Walks down the "text" / "transcript" members without recursion, so that no
  // nesting depth can exhaust the stack.
  std::vector<const nlohmann::json*> pending = {value};
  while (!pending.empty()) {
    const nlohmann::json* current = pending.back();
    pending.pop_back();
    if (current == nullptr) continue;
    if (current->is_string()) return current->get<std::string>();
    if (current->is_object()) {
      pending.push_back(RealtimeJSON::member(current, "transcript"));
      pending.push_back(RealtimeJSON::member(current, "text"));
    }
  }
  return std::nullopt;
}

std::optional<bool> boolValue(const nlohmann::json* value) {
  if (value == nullptr) return std::nullopt;
  if (value->is_boolean()) return value->get<bool>();
  if (!value->is_string()) return std::nullopt;
  std::string word = internal::lowercaseASCII(value->get_ref<const std::string&>());
  if (word == "true" || word == "yes" || word == "final") return true;
  if (word == "false" || word == "no") return false;
  return std::nullopt;
}

}  // namespace OpenAIRealtimeTranscriptionEventParser

}  // namespace orvid
