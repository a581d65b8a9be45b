#include "orvid/automation/utf8_chunk_decoder.h"

#include <string>

#include <gtest/gtest.h>

namespace orvid {
namespace {

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
