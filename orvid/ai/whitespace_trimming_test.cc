#include "orvid/ai/whitespace_trimming.h"

#include <string>

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(WhitespaceTrimmingTest, TrimsUnicodeWhiteSpaceAtBothEndsOnly) {
  struct Case {
    std::string input;
    std::string expected;
  };
  const Case cases[] = {
      {"", ""},
      {" \t\r\n\v\f", ""},
      {"  a b  ", "a b"},
      {"\u00a0\u2007\u3000x\u2028\u2029\u0085", "x"},
      {"\u200bx\u200b", "\u200bx\u200b"},  // zero-width space is not white space
      {"ünï \u00a0 text", "ünï \u00a0 text"},
      // Malformed bytes are never trimmed, and nothing past them either.
      {"\xff x \xc3", "\xff x \xc3"},
      {" \x80 ", "\x80"},
      {"\xe2\x80", "\xe2\x80"},  // a cut-off three-byte sequence
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(trimmingWhitespaceAndNewlines(testCase.input), testCase.expected) << testCase.input;
  }
}

}  // namespace
}  // namespace orvid
