// Feeds arbitrary bytes to Base64. The bytes themselves must come back from
// decode(encode(bytes)). Read as text, they decode as they would without their
// ASCII white space, and either fail to decode or decode to bytes whose encoding is
// the same text once white space is skipped and padding is made optional, up to
// the unused low bits of the last symbol.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "orvid/platform/base64.h"
#include "orvid/platform/internal/text.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

namespace Base64 = orvid::Base64;
using orvid::Bytes;

int symbolValue(char c) {
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  return static_cast<int>(kAlphabet.find(c));
}

orvid::fuzz::Seeds seeds() {
  return {
      {"padded", bytes("aGVsbG8gd29ybGQ=")},
      {"unpadded", bytes("aGVsbG8gd29ybA")},
      {"lines", bytes("aGVs\r\nbG8g\n d29y\tbGQh")},
      {"trailing-bits", bytes("QR==")},
      {"data-after-padding", bytes("QQ==QQ==")},
      {"binary", {0x00, 0xFF, 0x80, 0x3D, 0x0A, 0x2B, 0x2F}},
      {"empty", {}},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes input(data, data + size);
  const std::string_view text(reinterpret_cast<const char*>(data), size);

  const std::string encoded = Base64::encode(input);
  require(encoded.size() == (size + 2) / 3 * 4, "the encoding is padded to whole quads");
  require(Base64::encode(text) == encoded, "both encode overloads agree");
  require(Base64::decode(encoded) == input, "decode(encode(bytes)) == bytes");

  const std::optional<Bytes> decoded = Base64::decode(text);
  std::string withoutSpace;
  for (const char c : text) {
    if (!orvid::internal::isASCIIWhitespace(c)) withoutSpace.push_back(c);
  }
  require(Base64::decode(withoutSpace) == decoded, "ASCII white space is skipped");
  if (!decoded) return 0;
  std::string symbols;
  std::size_t padding = 0;
  for (const char c : text) {
    if (orvid::internal::isASCIIWhitespace(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    require(padding == 0, "nothing but white space follows the padding");
    require(symbolValue(c) >= 0, "only the alphabet decodes");
    symbols.push_back(c);
  }
  require(padding <= 2 && (padding == 0 || (symbols.size() + padding) % 4 == 0), "padding completes a quad");
  std::string canonical = Base64::encode(*decoded);
  while (!canonical.empty() && canonical.back() == '=') canonical.pop_back();
  require(canonical.size() == symbols.size(), "decoded bytes re-encode to as many symbols");
  if (symbols.empty()) return 0;
  require(canonical.substr(0, canonical.size() - 1) == symbols.substr(0, symbols.size() - 1),
          "decoded bytes re-encode to the same symbols");
  // The last symbol of a partial quad carries 2 or 4 bits that no byte uses.
  const int unusedBits = symbols.size() % 4 == 2 ? 4 : symbols.size() % 4 == 3 ? 2 : 0;
  require(symbolValue(canonical.back()) == (symbolValue(symbols.back()) >> unusedBits << unusedBits),
          "the last symbol differs at most in its unused bits");
  require(Base64::decode(canonical) == decoded, "the canonical form decodes alike");
  return 0;
}
