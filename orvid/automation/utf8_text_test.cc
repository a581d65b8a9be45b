#include "orvid/automation/utf8_text.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(UTF8TextTest, AcceptsWellFormedTextOnly) {
  struct Case {
    std::string bytes;
    bool valid;
  };
  const std::vector<Case> cases = {
      {"", true},
      {"plain ascii", true},
      {"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80", true},
      {"\xc3", false},                // cut off
      {"\xc0\xaf", false},            // overlong
      {"\xed\xa0\x80", false},        // surrogate
      {"\xf4\x90\x80\x80", false},    // above U+10FFFF
      {"\xff", false},
      {"a\x80", false},               // stray continuation byte
  };
  for (const auto& c : cases) {
    EXPECT_EQ(isValidUTF8(c.bytes), c.valid) << testing::PrintToString(c.bytes);
    EXPECT_EQ(decodeUTF8(c.bytes).has_value(), c.valid);
    EXPECT_EQ(decodeUTF8OrEmpty(c.bytes), c.valid ? c.bytes : "");
  }
  EXPECT_EQ(decodeUTF8(Bytes{0x68, 0x69}), "hi");
}

TEST(UTF8ChunkDecoderTest, CompletesCharactersCutByChunkBoundariesAndDropsMalformedChunks) {
  UTF8ChunkDecoder decoder;
  const std::string text = "\xf0\x9f\x98\x80 ok \xe2\x82\xac";
  std::string joined;
  for (char byte : text) joined += decoder.decode(std::string(1, byte));
  EXPECT_EQ(joined, text);

  EXPECT_EQ(decoder.decode("ab\xe2\x82"), "ab");
  EXPECT_EQ(decoder.decode("\xff tail"), "");  // the held-back bytes go with the malformed chunk
  EXPECT_EQ(decoder.decode("next"), "next");
}

}  // namespace
}  // namespace orvid
