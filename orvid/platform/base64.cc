#include "orvid/platform/base64.h"

#include <array>

#include "orvid/platform/internal/text.h"

namespace orvid::Base64 {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeDecodeTable() {
  std::array<std::int8_t, 256> table{};
  for (auto& v : table) v = -1;
  for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
  return table;
}
constexpr auto kDecode = makeDecodeTable();

}  // namespace

std::string encode(std::span<const std::uint8_t> data) {
  std::string out;
  out.reserve((data.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= data.size(); i += 3) {
    std::uint32_t v = std::uint32_t(data[i]) << 16 | std::uint32_t(data[i + 1]) << 8 | data[i + 2];
    out.push_back(kAlphabet[v >> 18]);
    out.push_back(kAlphabet[(v >> 12) & 63]);
    out.push_back(kAlphabet[(v >> 6) & 63]);
    out.push_back(kAlphabet[v & 63]);
  }
  std::size_t rest = data.size() - i;
  if (rest > 0) {
    std::uint32_t v = std::uint32_t(data[i]) << 16 | (rest == 2 ? std::uint32_t(data[i + 1]) << 8 : 0);
    out.push_back(kAlphabet[v >> 18]);
    out.push_back(kAlphabet[(v >> 12) & 63]);
    out.push_back(rest == 2 ? kAlphabet[(v >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::string encode(std::string_view data) {
  return encode(std::span(reinterpret_cast<const std::uint8_t*>(data.data()), data.size()));
}

std::optional<Bytes> decode(std::string_view text) {
  Bytes out;
  out.reserve(text.size() / 4 * 3);
  std::uint32_t buffer = 0;
  int bits = 0;
  std::size_t symbols = 0;
  std::size_t padding = 0;
  for (char c : text) {
    if (internal::isASCIIWhitespace(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    if (padding > 0) return std::nullopt;  // data after padding
    std::int8_t value = kDecode[static_cast<unsigned char>(c)];
    if (value < 0) return std::nullopt;
    ++symbols;
    buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<std::uint8_t>((buffer >> bits) & 0xFF));
    }
  }
  if (symbols % 4 == 1 || padding > 2) return std::nullopt;
  if (padding > 0 && (symbols + padding) % 4 != 0) return std::nullopt;
  return out;
}

}  // namespace orvid::Base64
