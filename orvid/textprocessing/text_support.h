#pragma once

#include <string>
#include <string_view>

// Unicode helpers shared by the cleanup engine and the prompt parsers (ICU inside).
namespace orvid::text_support {

// Whether `c` is white space or a line break (the Unicode White_Space property).
bool isWhitespaceOrNewline(char32_t c);
// `text` without white space and line breaks at either end.
std::string trimWhitespaceAndNewlines(std::string_view text);
// Full Unicode lower-casing (root locale).
std::string lowercased(std::string_view text);
// The number of user-perceived characters (extended grapheme clusters).
size_t characterCount(std::string_view text);

}  // namespace orvid::text_support
