#include "orvid/platform/uuid.h"

#include <random>

#include <nlohmann/json.hpp>

namespace orvid {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isHyphenPosition(std::size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

}  // namespace

UUID UUID::random() {
  thread_local std::mt19937_64 generator = [] {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device(), device(), device(), device(), device()};
    return std::mt19937_64(seed);
  }();
  UUID uuid;
  for (std::size_t i = 0; i < uuid.bytes.size(); i += 8) {
    std::uint64_t word = generator();
    for (std::size_t j = 0; j < 8; ++j) uuid.bytes[i + j] = static_cast<std::uint8_t>(word >> (8 * j));
  }
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x40);
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);
  return uuid;
}

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  UUID uuid;
  std::size_t byte = 0;
  for (std::size_t i = 0; i < text.size();) {
    if (isHyphenPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    int high = hexValue(text[i]);
    int low = hexValue(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    uuid.bytes[byte++] = static_cast<std::uint8_t>(high << 4 | low);
    i += 2;
  }
  return uuid;
}

std::string UUID::uuidString() const {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(digits[bytes[i] >> 4]);
    text.push_back(digits[bytes[i] & 0x0F]);
  }
  return text;
}

void to_json(nlohmann::json& json, const UUID& uuid) { json = uuid.uuidString(); }

void from_json(const nlohmann::json& json, UUID& uuid) {
  auto parsed = UUID::parse(json.get<std::string>());
  if (!parsed) throw nlohmann::json::other_error::create(501, "not a UUID: " + json.get<std::string>(), &json);
  uuid = *parsed;
}

}  // namespace orvid

std::size_t std::hash<orvid::UUID>::operator()(const orvid::UUID& uuid) const noexcept {
  std::size_t hash = 1469598103934665603ull;
  for (auto b : uuid.bytes) hash = (hash ^ b) * 1099511628211ull;
  return hash;
}
