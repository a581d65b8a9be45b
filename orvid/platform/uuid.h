#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

// A 128-bit universally unique identifier. Its text form is the standard
// 8-4-4-4-12 hexadecimal form in upper case, e.g. "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
struct UUID {
  std::array<std::uint8_t, 16> bytes{};

  // A random (version 4, RFC 4122 variant) identifier from the system's entropy source.
  static UUID random();
  // Parses the 36-character hyphenated form in either case; absent for anything else.
  static std::optional<UUID> parse(std::string_view text);

  // The upper-case hyphenated text form.
  std::string uuidString() const;

  bool operator==(const UUID&) const = default;
  auto operator<=>(const UUID&) const = default;
};

// JSON form: the upper-case text. Decoding throws nlohmann::json::type_error
// (via other_error) for text that is not an identifier.
void to_json(nlohmann::json& json, const UUID& uuid);
void from_json(const nlohmann::json& json, UUID& uuid);

}  // namespace orvid

template <>
struct std::hash<orvid::UUID> {
  std::size_t operator()(const orvid::UUID& uuid) const noexcept;
};
