#pragma once

#include <cstddef>
#include <functional>
#include <optional>

// Internal-only, not API: mixing the hashes of a record's members into one.
namespace orvid::internal {

// `seed` with the hash `value` mixed in (the formula of boost::hash_combine).
constexpr std::size_t hashCombined(std::size_t seed, std::size_t value) {
  return seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
}

// `seed` with std::hash of each of `values` mixed in, in order.
template <typename... Values>
std::size_t hashCombinedValues(std::size_t seed, const Values&... values) {
  ((seed = hashCombined(seed, std::hash<Values>{}(values))), ...);
  return seed;
}

// std::hash of the value, told apart from absence (0).
template <typename T>
std::size_t hashOptional(const std::optional<T>& value) {
  return value ? std::hash<T>{}(*value) * 31 + 1 : 0;
}

}  // namespace orvid::internal
