#include "orvid/automation/utf8_text.h"

#include <cstddef>
#include <cstdint>

namespace orvid {
namespace {

// Length of the well-formed sequence starting at data[index], 0 when it is
// malformed, or -1 when it is well-formed so far but cut off by the end of `data`.
int sequenceLength(std::string_view data, std::size_t index) {
  auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(data[at]); };
  std::uint8_t lead = byte(index);
  if (lead < 0x80) return 1;
  int length;
  std::uint8_t secondMin = 0x80, secondMax = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) secondMin = 0xA0;
    if (lead == 0xED) secondMax = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) secondMin = 0x90;
    if (lead == 0xF4) secondMax = 0x8F;
  } else {
    return 0;
  }
  for (int offset = 1; offset < length; ++offset) {
    if (index + offset >= data.size()) return -1;
    std::uint8_t next = byte(index + offset);
    std::uint8_t low = offset == 1 ? secondMin : 0x80;
    std::uint8_t high = offset == 1 ? secondMax : 0xBF;
    if (next < low || next > high) return 0;
  }
  return length;
}

// Scans `data`: returns false for a malformed sequence; otherwise sets
// `completeLength` to the length of the prefix that holds whole characters only.
bool scan(std::string_view data, std::size_t& completeLength) {
  std::size_t index = 0;
  while (index < data.size()) {
    int length = sequenceLength(data, index);
    if (length == 0) return false;
    if (length < 0) break;
    index += static_cast<std::size_t>(length);
  }
  completeLength = index;
  return true;
}

}  // namespace

bool isValidUTF8(std::string_view data) {
  std::size_t complete = 0;
  return scan(data, complete) && complete == data.size();
}

std::optional<std::string> decodeUTF8(std::string_view data) {
  if (!isValidUTF8(data)) return std::nullopt;
  return std::string(data);
}

std::optional<std::string> decodeUTF8(const Bytes& data) {
  return decodeUTF8(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

std::string decodeUTF8OrEmpty(std::string_view data) { return decodeUTF8(data).value_or(std::string()); }

std::string UTF8ChunkDecoder::decode(std::string_view chunk) {
  std::string joined = pending_;
  joined.append(chunk);
  std::size_t complete = 0;
  if (!scan(joined, complete)) {
    pending_.clear();
    return {};
  }
  pending_ = joined.substr(complete);
  joined.resize(complete);
  return joined;
}

}  // namespace orvid
