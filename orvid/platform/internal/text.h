#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "orvid/platform/bytes.h"

// Internal-only, not API: the small text helpers every area shares (UTF-8
// checks, trimming, lowercasing). Nothing here depends on the locale.
namespace orvid::internal {

// True when `text` is well-formed UTF-8 (no overlong forms, surrogates or code
// points above U+10FFFF).
bool isValidUTF8(std::string_view text);

// The length of the longest prefix of `text` that holds whole characters only,
// when `text` is well-formed UTF-8 but for a character cut off at its end;
// absent when it holds a malformed sequence.
std::optional<std::size_t> wholeUTF8CharactersLength(std::string_view text);

// `data` as text when it is well-formed UTF-8; absent otherwise.
std::optional<std::string> decodeUTF8(std::string_view data);
std::optional<std::string> decodeUTF8(const Bytes& data);
// `data` as text, or the empty text when it is not well-formed UTF-8.
std::string decodeUTF8OrEmpty(std::string_view data);
std::string decodeUTF8OrEmpty(const Bytes& data);

// Space, tab, line feed, vertical tab, form feed or carriage return.
constexpr bool isASCIIWhitespace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// `text` without the ASCII white space (see above) at either end. Views `text`.
std::string_view trimASCIIWhitespace(std::string_view text);

// A code point with the Unicode White_Space property: the ASCII white space,
// U+0085, U+00A0, U+1680, U+2000 to U+200A, U+2028, U+2029, U+202F, U+205F and
// U+3000 (not the zero-width space U+200B).
bool isUnicodeWhitespace(char32_t c);

// `text` without the Unicode white space (see above) at either end. A byte that
// is not part of well-formed UTF-8 is never trimmed, nor is anything past it.
// Views `text`.
std::string_view trimUnicodeWhitespace(std::string_view text);

// `c` with A to Z lowered to a to z; any other character unchanged.
constexpr char lowercaseASCII(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
constexpr char32_t lowercaseASCII(char32_t c) { return c >= U'A' && c <= U'Z' ? c - U'A' + U'a' : c; }

// `text` with A to Z lowered to a to z; every other byte or code point
// (UTF-8 included) unchanged.
std::string lowercaseASCII(std::string_view text);
std::u32string lowercaseASCII(std::u32string_view text);

}  // namespace orvid::internal
