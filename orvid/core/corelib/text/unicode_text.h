#pragma once

#include <string>
#include <string_view>

// Small Unicode helpers shared by the text libraries (backed by ICU).
namespace orvid::unicode_text {

// Decodes UTF-8 into code points; malformed sequences become U+FFFD.
std::u32string toUTF32(std::string_view text);
// Encodes code points as UTF-8.
std::string toUTF8(std::u32string_view text);

// A Han ideograph, Hiragana, Katakana or Bopomofo character: scripts written
// without spaces between words.
bool isCJK(char32_t c);
// A letter of the Latin script in the Latin, Latin-1 or Latin Extended blocks
// (full-width letters excluded).
bool isLatinLetter(char32_t c);
// An ASCII digit 0-9.
bool isASCIIDigit(char32_t c);
// Horizontal white space (space, tab, ideographic space and other Zs characters).
bool isBlank(char32_t c);
bool isUpperCase(char32_t c);
bool isLowerCase(char32_t c);
char32_t toUpperCase(char32_t c);

}  // namespace orvid::unicode_text
