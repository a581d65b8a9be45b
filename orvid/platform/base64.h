#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "orvid/platform/bytes.h"

namespace orvid::Base64 {

// Standard base64 (RFC 4648 alphabet, '=' padding, no line breaks).
std::string encode(std::span<const std::uint8_t> data);
std::string encode(std::string_view data);

// Decodes standard base64; padding is optional, ASCII white space is skipped.
// Absent for any other character or an impossible length.
std::optional<Bytes> decode(std::string_view text);

}  // namespace orvid::Base64
