#include "orvid/textprocessing/text_support.h"

#include <memory>

#include <unicode/brkiter.h>
#include <unicode/unistr.h>

#include "orvid/platform/internal/text.h"

namespace orvid::text_support {

std::string trimWhitespaceAndNewlines(std::string_view text) {
  return std::string(internal::trimUnicodeWhitespace(text));
}

std::string lowercased(std::string_view text) {
  bool ascii = true;
  for (char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) {
      ascii = false;
      break;
    }
  }
  if (ascii) return internal::lowercaseASCII(text);
  icu::UnicodeString unicode =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  unicode.toLower(icu::Locale::getRoot());
  std::string result;
  unicode.toUTF8String(result);
  return result;
}

size_t characterCount(std::string_view text) {
  icu::UnicodeString unicode =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status)) return static_cast<size_t>(unicode.countChar32());
  characters->setText(unicode);
  size_t count = 0;
  for (int32_t boundary = characters->next(); boundary != icu::BreakIterator::DONE; boundary = characters->next()) {
    ++count;
  }
  return count;
}

}  // namespace orvid::text_support
