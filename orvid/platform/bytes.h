#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvid {

// Binary data: audio samples, file contents, request and response bodies.
using Bytes = std::vector<std::uint8_t>;

inline Bytes bytesFromString(std::string_view text) { return Bytes(text.begin(), text.end()); }
inline std::string stringFromBytes(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

}  // namespace orvid
