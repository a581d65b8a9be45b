#include "orvid/ai/chat_completion_request.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TEST(AIReasoningEffortTest, EveryEffortRoundTripsThroughItsRawValueAndJSON) {
  const std::vector<std::string> expected = {"low", "medium", "high"};
  const auto& all = allAIReasoningEfforts();
  ASSERT_EQ(all.size(), expected.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(rawValue(all[i]), expected[i]);
    EXPECT_EQ(aiReasoningEffortFromRawValue(expected[i]), all[i]);
    nlohmann::json json = all[i];
    EXPECT_EQ(json, expected[i]);
    EXPECT_EQ(json.get<AIReasoningEffort>(), all[i]);
  }
  EXPECT_EQ(aiReasoningEffortFromRawValue("High"), std::nullopt);
  EXPECT_EQ(aiReasoningEffortFromRawValue("minimal"), std::nullopt);
  EXPECT_THROW(nlohmann::json("extreme").get<AIReasoningEffort>(), nlohmann::json::exception);
}

}  // namespace
}  // namespace orvid
