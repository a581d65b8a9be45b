#include "orvid/platform/internal/text.h"

#include <string>

#include <gtest/gtest.h>

namespace orvid::internal {
namespace {

TEST(InternalTextTest, ChecksTrimsAndLowercasesByTheTable) {
  struct Case {
    std::string text;
    bool valid;
    std::string asciiTrimmed;
    std::string unicodeTrimmed;
    std::string lowercased;
  };
  const Case cases[] = {
      {"", true, "", "", ""},
      {" \t\r\n\v\f", true, "", "", " \t\r\n\v\f"},
      {"  Hello World \t\r\n", true, "Hello World", "Hello World", "  hello world \t\r\n"},
      // No-break, figure and ideographic spaces, line and paragraph separators, NEL, hair space.
      {"\u00a0\u2007\u3000X\u2028\u2029\u0085", true, "\u00a0\u2007\u3000X\u2028\u2029\u0085", "X",
       "\u00a0\u2007\u3000x\u2028\u2029\u0085"},
      {"\u200bx\u200b", true, "\u200bx\u200b", "\u200bx\u200b", "\u200bx\u200b"},  // zero-width space is not white
      {"ÜNÏ \u00a0 TEXT", true, "ÜNÏ \u00a0 TEXT", "ÜNÏ \u00a0 TEXT", "ÜnÏ \u00a0 text"},
      // Malformed bytes are never trimmed, nor is anything past them.
      {" \xFF Broken \xC3", false, "\xFF Broken \xC3", "\xFF Broken \xC3", " \xFF broken \xC3"},
      {" \x80 ", false, "\x80", "\x80", " \x80 "},
      {"\xe2\x80", false, "\xe2\x80", "\xe2\x80", "\xe2\x80"},                       // cut off
      {"\xc0\xa0x\xc0\xa0", false, "\xc0\xa0x\xc0\xa0", "\xc0\xa0x\xc0\xa0", "\xc0\xa0x\xc0\xa0"},  // overlong spaces
      {"\xed\xa0\x80", false, "\xed\xa0\x80", "\xed\xa0\x80", "\xed\xa0\x80"},       // a surrogate
      {"\xf4\x90\x80\x80", false, "\xf4\x90\x80\x80", "\xf4\x90\x80\x80", "\xf4\x90\x80\x80"},  // past U+10FFFF
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    EXPECT_EQ(isValidUTF8(c.text), c.valid);
    EXPECT_EQ(decodeUTF8(c.text), c.valid ? std::optional(c.text) : std::nullopt);
    EXPECT_EQ(decodeUTF8OrEmpty(bytesFromString(c.text)), c.valid ? c.text : "");
    EXPECT_EQ(trimASCIIWhitespace(c.text), c.asciiTrimmed);
    EXPECT_EQ(trimUnicodeWhitespace(c.text), c.unicodeTrimmed);
    EXPECT_EQ(lowercaseASCII(c.text), c.lowercased);
  }
  EXPECT_EQ(lowercaseASCII(U"ÀBC-z"), U"Àbc-z");
  // A character cut off at the end is held back; a malformed one fails the whole text.
  EXPECT_EQ(wholeUTF8CharactersLength("ab\xe2\x82"), 2u);
  EXPECT_EQ(wholeUTF8CharactersLength("ab\xe0\x80"), std::nullopt);
}

}  // namespace
}  // namespace orvid::internal
