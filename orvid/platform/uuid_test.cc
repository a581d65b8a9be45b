#include "orvid/platform/uuid.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

bool hasCanonicalUpperCaseShape(const std::string& text) {
  if (text.size() != 36) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return false;
    } else if (!(std::isdigit(static_cast<unsigned char>(c)) || (c >= 'A' && c <= 'F'))) {
      return false;
    }
  }
  return true;
}

TEST(UUIDTest, RandomIsVersionFourWithTheStandardVariant) {
  for (int i = 0; i < 200; ++i) {
    UUID uuid = UUID::random();
    EXPECT_EQ(uuid.bytes[6] >> 4, 4);
    EXPECT_EQ(uuid.bytes[8] >> 6, 2);
    std::string text = uuid.uuidString();
    EXPECT_TRUE(hasCanonicalUpperCaseShape(text)) << text;
    EXPECT_EQ(text[14], '4') << text;
    EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
  }
}

TEST(UUIDTest, TextFormIsUpperCaseHexInTheUsualGroups) {
  UUID uuid;
  for (std::size_t i = 0; i < uuid.bytes.size(); ++i) uuid.bytes[i] = static_cast<std::uint8_t>(0x0F + i * 0x11);
  EXPECT_EQ(uuid.uuidString(), "0F203142-5364-7586-97A8-B9CADBECFD0E");
  EXPECT_EQ(UUID{}.uuidString(), "00000000-0000-0000-0000-000000000000");
}

TEST(UUIDTest, ParseAcceptsEitherCaseAndRoundTrips) {
  const std::string upper = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
  std::string lower = upper;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  std::string mixed = "e621E1f8-c36C-495a-93Fc-0c247A3e6E5f";

  auto fromUpper = UUID::parse(upper);
  ASSERT_TRUE(fromUpper.has_value());
  EXPECT_EQ(fromUpper->uuidString(), upper);
  EXPECT_EQ(fromUpper->bytes[0], 0xE6);
  EXPECT_EQ(fromUpper->bytes[15], 0x5F);
  EXPECT_EQ(UUID::parse(lower), fromUpper);
  EXPECT_EQ(UUID::parse(mixed), fromUpper);

  for (int i = 0; i < 100; ++i) {
    UUID uuid = UUID::random();
    EXPECT_EQ(UUID::parse(uuid.uuidString()), uuid);
  }
}

TEST(UUIDTest, ParseRejectsMalformedText) {
  const std::vector<std::string> malformed = {
      "",
      "E621E1F8C36C495A93FC0C247A3E6E5F",       // no hyphens
      "E621E1F8-C36C-495A-93FC-0C247A3E6E5",    // one digit short
      "E621E1F8-C36C-495A-93FC-0C247A3E6E5F0",  // one digit long
      "E621E1F-8C36C-495A-93FC-0C247A3E6E5F",   // hyphen in the wrong place
      "E621E1F8-C36C-495A-93FC_0C247A3E6E5F",   // wrong separator
      "G621E1F8-C36C-495A-93FC-0C247A3E6E5F",   // not hex
      "E621E1F8-C36C-495A-93FC-0C247A3E6E5 ",   // trailing space in place of a digit
      " E621E1F8-C36C-495A-93FC-0C247A3E6E5F",  // leading space
      "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}",  // braces
      "E621E1F8-C36C-495A-93FC--C247A3E6E5F",   // hyphen in place of a digit
      "E621E1F8-C36C-495A-93FC-0C247A3E6E-F",
  };
  for (const auto& text : malformed) EXPECT_EQ(UUID::parse(text), std::nullopt) << '"' << text << '"';
}

TEST(UUIDTest, RandomIdentifiersAreUniqueAcrossThreads) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 5000;
  std::vector<std::vector<UUID>> made(kThreads);
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&made, t] {
        for (int i = 0; i < kPerThread; ++i) made[t].push_back(UUID::random());
      });
    }
  }
  std::set<UUID> ordered;
  std::unordered_set<UUID> hashed;
  for (const auto& list : made) {
    ordered.insert(list.begin(), list.end());
    hashed.insert(list.begin(), list.end());
  }
  EXPECT_EQ(ordered.size(), static_cast<std::size_t>(kThreads * kPerThread));
  EXPECT_EQ(hashed.size(), static_cast<std::size_t>(kThreads * kPerThread));
}

TEST(UUIDTest, JSONIsTheUpperCaseTextAndRejectsOtherText) {
  auto uuid = *UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  nlohmann::json encoded = uuid;
  EXPECT_EQ(encoded, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(encoded.get<UUID>(), uuid);
  EXPECT_THROW(nlohmann::json("not a uuid").get<UUID>(), nlohmann::json::exception);
  EXPECT_THROW(nlohmann::json(42).get<UUID>(), nlohmann::json::exception);
}

TEST(UUIDTest, OrderingFollowsTheBytes) {
  UUID low;
  UUID high;
  high.bytes[0] = 1;
  EXPECT_LT(low, high);
  EXPECT_NE(low, high);
  EXPECT_EQ(low, UUID{});
}

}  // namespace
}  // namespace orvid
