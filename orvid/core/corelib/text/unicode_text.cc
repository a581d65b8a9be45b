#include "orvid/core/corelib/text/unicode_text.h"

#include <unicode/uchar.h>
#include <unicode/uscript.h>
#include <unicode/unistr.h>

namespace orvid::unicode_text {

std::u32string toUTF32(std::string_view text) {
  icu::UnicodeString unicode =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  std::u32string result(static_cast<size_t>(unicode.countChar32()), U'\0');
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = unicode.toUTF32(reinterpret_cast<UChar32*>(result.data()),
                                   static_cast<int32_t>(result.size()), status);
  result.resize(U_SUCCESS(status) ? static_cast<size_t>(length) : 0);
  return result;
}

std::string toUTF8(std::u32string_view text) {
  icu::UnicodeString unicode = icu::UnicodeString::fromUTF32(reinterpret_cast<const UChar32*>(text.data()),
                                                             static_cast<int32_t>(text.size()));
  std::string result;
  unicode.toUTF8String(result);
  return result;
}

bool isCJK(char32_t c) {
  if (c == U'\u30FC') return true;  // the prolonged sound mark, shared by Hiragana and Katakana
  UErrorCode status = U_ZERO_ERROR;
  UScriptCode script = uscript_getScript(static_cast<UChar32>(c), &status);
  if (U_FAILURE(status)) return false;
  switch (script) {
    case USCRIPT_HAN:
    case USCRIPT_HIRAGANA:
    case USCRIPT_KATAKANA:
    case USCRIPT_BOPOMOFO:
      return true;
    default:
      return false;
  }
}

bool isLatinLetter(char32_t c) {
  if (c >= 0x2000) return false;
  UErrorCode status = U_ZERO_ERROR;
  return u_isalpha(static_cast<UChar32>(c)) && uscript_getScript(static_cast<UChar32>(c), &status) == USCRIPT_LATIN &&
         U_SUCCESS(status);
}

bool isASCIIDigit(char32_t c) { return c >= U'0' && c <= U'9'; }

bool isBlank(char32_t c) { return u_isblank(static_cast<UChar32>(c)); }

bool isUpperCase(char32_t c) { return u_isUUppercase(static_cast<UChar32>(c)); }

bool isLowerCase(char32_t c) { return u_isULowercase(static_cast<UChar32>(c)); }

char32_t toUpperCase(char32_t c) { return static_cast<char32_t>(u_toupper(static_cast<UChar32>(c))); }

}  // namespace orvid::unicode_text
