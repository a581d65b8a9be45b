#include "orvid/platform/base64.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(Base64Test, EncodesTheRFC4648Vectors) {
  const std::vector<std::pair<std::string, std::string>> vectors = {
      {"", ""},          {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(Base64::encode(plain), encoded) << plain;
    EXPECT_EQ(Base64::encode(std::span<const std::uint8_t>(bytesFromString(plain))), encoded) << plain;
    EXPECT_EQ(Base64::decode(encoded), bytesFromString(plain)) << encoded;
  }
}

TEST(Base64Test, UsesTheStandardAlphabetForHighBytes) {
  const Bytes bytes = {0xFB, 0xFF, 0xBF, 0x00, 0x3E};
  EXPECT_EQ(Base64::encode(bytes), "+/+/AD4=");
  EXPECT_EQ(Base64::decode("+/+/AD4="), bytes);
}

TEST(Base64Test, DecodesWithoutPaddingAndSkipsWhiteSpace) {
  EXPECT_EQ(Base64::decode("Zg"), bytesFromString("f"));
  EXPECT_EQ(Base64::decode("Zm8"), bytesFromString("fo"));
  EXPECT_EQ(Base64::decode("Zm9v\r\nYmFy"), bytesFromString("foobar"));
  EXPECT_EQ(Base64::decode(" Zm9v\tYg== \n"), bytesFromString("foob"));
}

TEST(Base64Test, RejectsMalformedInput) {
  const std::vector<std::string> malformed = {
      "Z",          // a lone symbol carries no whole byte
      "Zm9vY",      // five symbols
      "Zg=",        // padding short of a whole quantum
      "Zg===",      // too much padding
      "====",       // padding only
      "=",          //
      "Zg==Zg==",   // data after padding
      "Zm9v!",      // outside the alphabet
      "Zm9v-_",     // the URL-safe alphabet is not standard base64
      "Zm9vYmFy=",  // padding after a whole quantum
      std::string("Zm\0v", 4),
  };
  for (const auto& text : malformed) EXPECT_EQ(Base64::decode(text), std::nullopt) << '"' << text << '"';
}

TEST(Base64Test, RandomBytesRoundTrip) {
  std::mt19937 random(7);
  for (std::size_t length = 0; length < 300; ++length) {
    Bytes bytes(length);
    for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
    std::string encoded = Base64::encode(bytes);
    EXPECT_EQ(encoded.size(), (length + 2) / 3 * 4);
    EXPECT_EQ(encoded.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="),
              std::string::npos);
    EXPECT_EQ(Base64::decode(encoded), bytes) << "length " << length;
  }
}

}  // namespace
}  // namespace orvid
