#include "orvid/core/corelib/transcription_prompt.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TEST(TranscriptionPromptTest, RewriteChoiceNeedsTextAndIntegerOffsets) {
  EXPECT_EQ(nlohmann::json::parse(R"({"text":"a","start":-3,"end":50})").get<RewriteChoice>(),
            (RewriteChoice{"a", -3, 50}));
  // Offsets past 32 bits keep their value; past 64 bits they are refused, never wrapped.
  EXPECT_EQ(nlohmann::json::parse(R"({"text":"a","start":4294967296,"end":9223372036854775807})").get<RewriteChoice>(),
            (RewriteChoice{"a", 4294967296, INT64_MAX}));
  for (const char* document : {R"({"text":"a","start":0,"end":18446744073709551615})",
                               R"({"text":"a","start":0})", R"({"text":"a","start":"0","end":3})",
                               R"({"text":"a","start":0.5,"end":3})", R"({"text":7,"start":0,"end":3})",
                               R"({"start":0,"end":3})"}) {
    EXPECT_THROW(nlohmann::json::parse(document).get<RewriteChoice>(), nlohmann::json::exception) << document;
  }
}

}  // namespace
}  // namespace orvid
