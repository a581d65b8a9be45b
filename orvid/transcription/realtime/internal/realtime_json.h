#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

// Internal-only, not API: tolerant readers of the JSON events that real-time
// transcription services send, and the encoder of the events sent to them.
namespace orvid::RealtimeJSON {

// The member `key` of `object`; null when `object` is null, not an object, or
// has no such member.
const nlohmann::json* member(const nlohmann::json* object, std::string_view key);
const nlohmann::json* member(const nlohmann::json& object, std::string_view key);

// The first readable text in a loosely shaped value: a string trimmed of Unicode
// white space (absent when nothing is left); for an object, the first result of
// its members "text", "transcript", "message", "detail" in that order; for an
// array, the first result of its elements. Absent for null (or a null pointer),
// numbers and booleans, and for text nested more than 32 levels deep.
std::optional<std::string> string(const nlohmann::json* value);

// A loosely written flag: a boolean as it is; a number, false for zero and true
// otherwise; a string trimmed and lower-cased, true for "true", "yes", "final",
// "1" and false for "false", "no", "0". Absent for anything else.
std::optional<bool> boolean(const nlohmann::json* value);

// `event` as compact JSON text with its object keys sorted; text that is not
// well-formed UTF-8 is repaired (each bad byte becomes U+FFFD).
std::string encode(const nlohmann::json& event);

}  // namespace orvid::RealtimeJSON
