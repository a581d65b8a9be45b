#pragma once

#include <cmath>
#include <concepts>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

// Helpers for the JSON forms of records: absent optionals are omitted when
// encoding, and a missing or null key decodes as absent.
namespace orvid::json_support {

// The member `key` of `object`; null when `object` is not an object or has no such member.
const nlohmann::json* member(const nlohmann::json& object, const char* key);
// The text of the member `key` of `object`; absent when there is none or it is not text.
std::optional<std::string> stringMember(const nlohmann::json& object, const char* key);

// The integer `json` holds, as T: an integer, or a number with no fraction, within
// T's range. Anything else throws the decoder's error (nlohmann::json::exception),
// so an out-of-range number never overflows a conversion or loses its fraction.
template <std::integral T>
  requires(!std::same_as<T, bool>)
T integer(const nlohmann::json& json) {
  if (json.is_number_unsigned()) {
    auto value = json.get<std::uint64_t>();
    if (std::in_range<T>(value)) return static_cast<T>(value);
  } else if (json.is_number_integer()) {
    auto value = json.get<std::int64_t>();
    if (std::in_range<T>(value)) return static_cast<T>(value);
  } else if (json.is_number_float()) {
    const double value = json.get<double>();
    // Both bounds are powers of two, exact in a double.
    const double lowest = static_cast<double>(std::numeric_limits<T>::min());
    const double beyond = std::ldexp(1.0, std::numeric_limits<T>::digits);
    if (std::isfinite(value) && std::trunc(value) == value && value >= lowest && value < beyond) {
      return static_cast<T>(value);
    }
  } else {
    throw nlohmann::json::type_error::create(302, "expected an integer", &json);
  }
  throw nlohmann::json::out_of_range::create(406, "integer out of range", &json);
}

// json.get<T>(), with integers read by integer<T>().
template <typename T>
T value(const nlohmann::json& json) {
  if constexpr (std::integral<T> && !std::same_as<T, bool>) {
    return integer<T>(json);
  } else {
    return json.template get<T>();
  }
}

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
    value = json_support::value<T>(*it);
  }
}

// Reads `key` into `value` when present; leaves `value` (its default) otherwise.
template <typename T>
void getIfPresent(const nlohmann::json& json, const char* key, T& value) {
  auto it = json.find(key);
  if (it != json.end() && !it->is_null()) value = json_support::value<T>(*it);
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
    if (!parsed) throw json::other_error::create(501, "not an ISO 8601 date the clock can hold", &j);
    time = *parsed;
  }
};
}  // namespace nlohmann
