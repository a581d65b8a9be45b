#pragma once

#include <string_view>

namespace orvid {

// `text` without the white space and line ends at either end: every code point
// with the Unicode White_Space property (space, tab, CR, LF, no-break space, the
// typographic spaces, line and paragraph separators...). Bytes that are not valid
// UTF-8 are never trimmed. The result views `text`.
std::string_view trimmingWhitespaceAndNewlines(std::string_view text);

}  // namespace orvid
