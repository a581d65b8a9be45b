#include "orvid/platform/base64.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(Base64Test, EncodesAndDecodesTheRFC4648VectorsAndHighBytes) {
  const std::vector<std::pair<std::string, std::string>> vectors = {
      {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
      {std::string("\xFB\xFF\xBF\0\x3E", 5), "+/+/AD4="},
  };
  for (const auto& [plain, encoded] : vectors) {
    SCOPED_TRACE(encoded);
    EXPECT_EQ(Base64::encode(plain), encoded);
    EXPECT_EQ(Base64::encode(std::span<const std::uint8_t>(bytesFromString(plain))), encoded);
    EXPECT_EQ(Base64::decode(encoded), bytesFromString(plain));
  }
}

TEST(Base64Test, DecodesWithoutPaddingAndSkipsWhiteSpaceButRejectsMalformedInput) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"Zg", "f"},
      {"Zm9v\r\nYmFy", "foobar"},
      {"Zm\t9v\vYm\fFy ", "foobar"},  // vertical tab and form feed are white space too
      {"Z", std::nullopt},          // a lone symbol carries no whole byte
      {"Zm9vY", std::nullopt},      // five symbols
      {"Zg=", std::nullopt},        // padding short of a whole quantum
      {"Zg===", std::nullopt},      // too much padding
      {"====", std::nullopt},       // padding only
      {"Zg==Zg==", std::nullopt},   // data after padding
      {"Zm9v-_", std::nullopt},     // the URL-safe alphabet is not standard base64
      {"Zm9vYmFy=", std::nullopt},  // padding after a whole quantum
      {std::string("Zm\0v", 4), std::nullopt},
  };
  for (const auto& [text, plain] : cases) {
    SCOPED_TRACE('"' + text + '"');
    EXPECT_EQ(Base64::decode(text), plain ? std::optional(bytesFromString(*plain)) : std::nullopt);
  }
}

}  // namespace
}  // namespace orvid
