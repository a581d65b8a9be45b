#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

// Helpers for the JSON forms of records: absent optionals are omitted when
// encoding, and a missing or null key decodes as absent.
namespace orvid::json_support {

// The member `key` of `object`; null when `object` is not an object or has no such member.
const nlohmann::json* member(const nlohmann::json& object, const char* key);
// The text of the member `key` of `object`; absent when there is none or it is not text.
std::optional<std::string> stringMember(const nlohmann::json& object, const char* key);

template <typename T>
void putOptional(nlohmann::json& json, const char* key, const std::optional<T>& value) {
  if (value) json[key] = *value;
}

template <typename T>
void getOptional(const nlohmann::json& json, const char* key, std::optional<T>& value) {
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) {
    value.reset();
  } else {
    value = it->template get<T>();
  }
}

// Reads `key` into `value` when present; leaves `value` (its default) otherwise.
template <typename T>
void getIfPresent(const nlohmann::json& json, const char* key, T& value) {
  auto it = json.find(key);
  if (it != json.end() && !it->is_null()) value = it->template get<T>();
}

}  // namespace orvid::json_support

#include <chrono>

namespace orvid::json_support {

// Dates travel as ISO 8601 UTC text with milliseconds, e.g. "2026-11-23T08:15:02.125Z".
std::string iso8601(std::chrono::system_clock::time_point time);
// Parses the form above (fraction optional); absent for anything else.
std::optional<std::chrono::system_clock::time_point> parseISO8601(const std::string& text);

}  // namespace orvid::json_support

namespace nlohmann {
template <>
struct adl_serializer<std::chrono::system_clock::time_point> {
  static void to_json(json& j, const std::chrono::system_clock::time_point& time) {
    j = orvid::json_support::iso8601(time);
  }
  static void from_json(const json& j, std::chrono::system_clock::time_point& time) {
    auto parsed = orvid::json_support::parseISO8601(j.get<std::string>());
    if (!parsed) throw json::other_error::create(501, "not an ISO 8601 date: " + j.get<std::string>(), &j);
    time = *parsed;
  }
};
}  // namespace nlohmann
