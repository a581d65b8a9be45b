#include "orvid/ai/whitespace_trimming.h"

#include <cstdint>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace orvid {
namespace {

bool isWhitespace(UChar32 codePoint) { return codePoint >= 0 && u_hasBinaryProperty(codePoint, UCHAR_WHITE_SPACE); }

}  // namespace

std::string_view trimmingWhitespaceAndNewlines(std::string_view text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());

  int32_t start = 0;
  while (start < length) {
    int32_t next = start;
    UChar32 codePoint = 0;
    U8_NEXT(bytes, next, length, codePoint);
    if (!isWhitespace(codePoint)) break;
    start = next;
  }
  int32_t end = length;
  while (end > start) {
    int32_t previous = end;
    UChar32 codePoint = 0;
    U8_PREV(bytes, start, previous, codePoint);
    if (!isWhitespace(codePoint)) break;
    end = previous;
  }
  return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

}  // namespace orvid
