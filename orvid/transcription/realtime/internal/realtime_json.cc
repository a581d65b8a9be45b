#include "orvid/transcription/realtime/internal/realtime_json.h"

#include <array>

#include "orvid/platform/internal/text.h"

namespace orvid::RealtimeJSON {

const nlohmann::json* member(const nlohmann::json* object, std::string_view key) {
  if (object == nullptr || !object->is_object()) return nullptr;
  auto found = object->find(key);
  return found == object->end() ? nullptr : &*found;
}

const nlohmann::json* member(const nlohmann::json& object, std::string_view key) { return member(&object, key); }

namespace {

// Values nested deeper than this are not looked into, so that a hostile event
// cannot exhaust the stack.
constexpr int kMaximumDepth = 32;

std::optional<std::string> firstText(const nlohmann::json* value, int depth) {
  if (value == nullptr || depth > kMaximumDepth) return std::nullopt;
  if (value->is_string()) {
    std::string_view trimmed = internal::trimUnicodeWhitespace(value->get_ref<const std::string&>());
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
  }
  if (value->is_object()) {
    static constexpr std::array<std::string_view, 4> kTextMembers = {"text", "transcript", "message", "detail"};
    for (std::string_view key : kTextMembers) {
      if (auto text = firstText(member(value, key), depth + 1)) return text;
    }
    return std::nullopt;
  }
  if (value->is_array()) {
    for (const nlohmann::json& element : *value) {
      if (auto text = firstText(&element, depth + 1)) return text;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> string(const nlohmann::json* value) { return firstText(value, 0); }

std::optional<bool> boolean(const nlohmann::json* value) {
  if (value == nullptr) return std::nullopt;
  if (value->is_boolean()) return value->get<bool>();
  if (value->is_number_integer()) return value->get<std::int64_t>() != 0;
  if (value->is_number_unsigned()) return value->get<std::uint64_t>() != 0;
  if (value->is_number_float()) return value->get<double>() != 0;
  if (!value->is_string()) return std::nullopt;
  std::string word =
      internal::lowercaseASCII(internal::trimUnicodeWhitespace(value->get_ref<const std::string&>()));
  if (word == "true" || word == "yes" || word == "final" || word == "1") return true;
  if (word == "false" || word == "no" || word == "0") return false;
  return std::nullopt;
}

std::string encode(const nlohmann::json& event) {
  return event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace orvid::RealtimeJSON
