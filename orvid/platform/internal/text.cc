#include "orvid/platform/internal/text.h"

#include <cstdint>

namespace orvid::internal {
namespace {

constexpr int kCutOff = -1;

// Length of the well-formed sequence starting at text[index]; 0 when it is
// malformed, or kCutOff when it is well-formed so far but cut off by the end.
int sequenceLength(std::string_view text, std::size_t index) {
  auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
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
    if (index + offset >= text.size()) return kCutOff;
    std::uint8_t next = byte(index + offset);
    std::uint8_t low = offset == 1 ? secondMin : 0x80;
    std::uint8_t high = offset == 1 ? secondMax : 0xBF;
    if (next < low || next > high) return 0;
  }
  return length;
}

// The code point of the whole, well-formed character text[begin, end); absent
// when those bytes are anything else.
std::optional<char32_t> characterAt(std::string_view text, std::size_t begin, std::size_t end) {
  int length = sequenceLength(text, begin);
  if (length <= 0 || begin + static_cast<std::size_t>(length) != end) return std::nullopt;
  auto lead = static_cast<std::uint8_t>(text[begin]);
  char32_t codePoint = length == 1 ? lead : lead & (0x7F >> length);
  for (std::size_t at = begin + 1; at < end; ++at) codePoint = (codePoint << 6) | (text[at] & 0x3F);
  return codePoint;
}

bool isContinuationByte(char c) { return (static_cast<std::uint8_t>(c) & 0xC0) == 0x80; }

std::string_view asText(const Bytes& data) {
  return std::string_view(reinterpret_cast<const char*>(data.data()), data.size());
}

}  // namespace

std::optional<std::size_t> wholeUTF8CharactersLength(std::string_view text) {
  std::size_t index = 0;
  while (index < text.size()) {
    int length = sequenceLength(text, index);
    if (length == 0) return std::nullopt;
    if (length == kCutOff) break;
    index += static_cast<std::size_t>(length);
  }
  return index;
}

bool isValidUTF8(std::string_view text) { return wholeUTF8CharactersLength(text) == text.size(); }

std::optional<std::string> decodeUTF8(std::string_view data) {
  if (!isValidUTF8(data)) return std::nullopt;
  return std::string(data);
}

std::optional<std::string> decodeUTF8(const Bytes& data) { return decodeUTF8(asText(data)); }

std::string decodeUTF8OrEmpty(std::string_view data) { return decodeUTF8(data).value_or(std::string()); }

std::string decodeUTF8OrEmpty(const Bytes& data) { return decodeUTF8OrEmpty(asText(data)); }

std::string_view trimASCIIWhitespace(std::string_view text) {
  while (!text.empty() && isASCIIWhitespace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isASCIIWhitespace(text.back())) text.remove_suffix(1);
  return text;
}

bool isUnicodeWhitespace(char32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

std::string_view trimUnicodeWhitespace(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    int length = sequenceLength(text, begin);
    if (length <= 0) break;
    std::size_t next = begin + static_cast<std::size_t>(length);
    auto codePoint = characterAt(text, begin, next);
    if (!codePoint || !isUnicodeWhitespace(*codePoint)) break;
    begin = next;
  }
  std::size_t end = text.size();
  while (end > begin) {
    // The last character starts at most three continuation bytes before `end`.
    std::size_t start = end - 1;
    while (start > begin && end - start < 4 && isContinuationByte(text[start])) --start;
    auto codePoint = characterAt(text, start, end);
    if (!codePoint || !isUnicodeWhitespace(*codePoint)) break;
    end = start;
  }
  return text.substr(begin, end - begin);
}

std::string lowercaseASCII(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = lowercaseASCII(c);
  return lower;
}

std::u32string lowercaseASCII(std::u32string_view text) {
  std::u32string lower(text);
  for (char32_t& c : lower) c = lowercaseASCII(c);
  return lower;
}

}  // namespace orvid::internal
