#pragma once

#include <string>
#include <string_view>

// Unicode helpers shared by the cleanup engine and the prompt parsers (ICU inside).
namespace orvid::text_support {

// `text` without Unicode white space at either end, as a string: the same as
// internal::trimUnicodeWhitespace (orvid/platform/internal/text.h), which new
// code calls directly.
std::string trimWhitespaceAndNewlines(std::string_view text);
// Full Unicode lower-casing (root locale).
std::string lowercased(std::string_view text);
// The number of user-perceived characters (extended grapheme clusters).
size_t characterCount(std::string_view text);

}  // namespace orvid::text_support
