#include "orvid/platform/uuid.h"

#include <regex>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(UUIDTest, RandomIsVersionFourWithTheStandardVariantInUpperCaseText) {
  const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  for (int i = 0; i < 200; ++i) {
    UUID uuid = UUID::random();
    EXPECT_TRUE(std::regex_match(uuid.uuidString(), canonical)) << uuid.uuidString();
    EXPECT_EQ(UUID::parse(uuid.uuidString()), uuid);
  }
  UUID counting;
  for (std::size_t i = 0; i < counting.bytes.size(); ++i)
    counting.bytes[i] = static_cast<std::uint8_t>(0x0F + i * 0x11);
  EXPECT_EQ(counting.uuidString(), "0F203142-5364-7586-97A8-B9CADBECFD0E");
}

TEST(UUIDTest, ParseAcceptsEitherCaseAndRejectsMalformedText) {
  auto parsed = UUID::parse("e621E1f8-c36C-495a-93Fc-0c247A3e6E5f");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(parsed->bytes[0], 0xE6);
  EXPECT_EQ(parsed->bytes[15], 0x5F);
  const std::vector<std::string> malformed = {
      "",
      "E621E1F8C36C495A93FC0C247A3E6E5F",       // no hyphens
      "E621E1F8-C36C-495A-93FC-0C247A3E6E5",    // one digit short
      "E621E1F-8C36C-495A-93FC-0C247A3E6E5F",   // hyphen in the wrong place
      "G621E1F8-C36C-495A-93FC-0C247A3E6E5F",   // not hex
      " E621E1F8-C36C-495A-93FC-0C247A3E6E5F",  // leading space
      "E621E1F8-C36C-495A-93FC--C247A3E6E5F",   // hyphen in place of a digit
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
  std::unordered_set<UUID> distinct;
  for (const auto& list : made) distinct.insert(list.begin(), list.end());
  EXPECT_EQ(distinct.size(), static_cast<std::size_t>(kThreads * kPerThread));
}

}  // namespace
}  // namespace orvid
