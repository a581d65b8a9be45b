#include "orvid/transcription/cloud_batch/cloud_batch_text.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(CloudBatchTextTest, TrimsASCIIAndUnicodeWhiteSpaceButNothingElse) {
  struct Case {
    std::string input;
    std::string expected;
  };
  const Case cases[] = {
      {"  hello \t\r\n", "hello"},
      {"\xC2\xA0\xE3\x80\x80\xE4\xBD\xA0\xE5\xA5\xBD\xE2\x80\xA8", "\xE4\xBD\xA0\xE5\xA5\xBD"},  // NBSP, ideographic space, U+2028
      {"\xC2\x85inner  space\xE2\x80\x8A", "inner  space"},                                 // NEL and hair space
      {"\xE2\x80\x8Bzero-width\xE2\x80\x8B", "\xE2\x80\x8Bzero-width\xE2\x80\x8B"},         // U+200B is not white space
      {" \xFF broken \xC3", "\xFF broken \xC3"},  // malformed bytes are kept and stop the trimming
      {" \t ", ""},
      {"", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(CloudBatchText::trimmed(c.input), c.expected) << c.input;
}

TEST(CloudBatchTextTest, DecodesOnlyWellFormedUTF8) {
  struct Case {
    Bytes bytes;
    std::string expected;
  };
  const Case cases[] = {
      {bytesFromString("plain"), "plain"},
      {bytesFromString("\xF0\x9F\x8E\xA4 mic"), "\xF0\x9F\x8E\xA4 mic"},
      {Bytes{0xFF, 0x41}, ""},             // not a lead byte
      {Bytes{0xC0, 0x80}, ""},             // overlong NUL
      {Bytes{0xED, 0xA0, 0x80}, ""},       // a surrogate
      {Bytes{0xF4, 0x90, 0x80, 0x80}, ""},  // beyond U+10FFFF
      {Bytes{0x41, 0xE2, 0x82}, ""},       // cut short
      {Bytes{}, ""},
  };
  for (const Case& c : cases) EXPECT_EQ(CloudBatchText::decodedUTF8(c.bytes), c.expected);
}

}  // namespace
}  // namespace orvid
