#include "orvid/transcription/cloud_batch/cloud_batch_text.h"

#include <cstddef>
#include <optional>

namespace orvid::CloudBatchText {
namespace {

bool isWhiteSpace(char32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// The code point of the well-formed sequence of `length` bytes at `at`; absent when malformed.
std::optional<char32_t> decodeAt(std::string_view text, std::size_t at, std::size_t& length) {
  auto lead = static_cast<unsigned char>(text[at]);
  char32_t codePoint = 0;
  char32_t minimum = 0;
  if (lead < 0x80) {
    length = 1;
    return lead;
  }
  if ((lead & 0xE0) == 0xC0) {
    length = 2, codePoint = lead & 0x1F, minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, codePoint = lead & 0x0F, minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4, codePoint = lead & 0x07, minimum = 0x10000;
  } else {
    return std::nullopt;
  }
  if (at + length > text.size()) return std::nullopt;
  for (std::size_t i = 1; i < length; ++i) {
    auto continuation = static_cast<unsigned char>(text[at + i]);
    if ((continuation & 0xC0) != 0x80) return std::nullopt;
    codePoint = (codePoint << 6) | (continuation & 0x3F);
  }
  if (codePoint < minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return std::nullopt;
  return codePoint;
}

// The start of the last character of text[0, end), stepping back over continuation bytes.
std::size_t lastCharacterStart(std::string_view text, std::size_t end) {
  std::size_t start = end - 1;
  while (start > 0 && end - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
  return start;
}

}  // namespace

std::string trimmed(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t length = 0;
    auto codePoint = decodeAt(text, begin, length);
    if (!codePoint || !isWhiteSpace(*codePoint)) break;
    begin += length;
  }
  std::size_t end = text.size();
  while (end > begin) {
    std::size_t start = lastCharacterStart(text, end);
    if (start < begin) break;
    std::size_t length = 0;
    auto codePoint = decodeAt(text, start, length);
    if (!codePoint || start + length != end || !isWhiteSpace(*codePoint)) break;
    end = start;
  }
  return std::string(text.substr(begin, end - begin));
}

bool isValidUTF8(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t length = 0;
    if (!decodeAt(text, at, length)) return false;
    at += length;
  }
  return true;
}

std::string decodedUTF8(const Bytes& data) {
  std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
  return isValidUTF8(text) ? std::string(text) : std::string();
}

}  // namespace orvid::CloudBatchText
