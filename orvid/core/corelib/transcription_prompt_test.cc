#include "orvid/core/corelib/transcription_prompt.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TEST(TranscriptionPromptTest, PromptRoundTripsAndOmitsAnAbsentModel) {
  TranscriptionPrompt prompt{"p1", "Polite e-mail", 4, "Turn this into a polite e-mail.", std::nullopt, true, false};
  const nlohmann::json json = prompt;
  EXPECT_FALSE(json.contains("modelID"));
  EXPECT_EQ(json.get<TranscriptionPrompt>(), prompt);

  prompt.modelID = "gpt-x";
  EXPECT_EQ(nlohmann::json(prompt).get<TranscriptionPrompt>(), prompt);
}

TEST(TranscriptionPromptTest, ResultRoundTripsWithAndWithoutStatistics) {
  PromptPostProcessResult bare{"Hello.", "cfg", "m", "default_correct", 812, {}, {}, {}, {}, {}};
  EXPECT_EQ(nlohmann::json(bare).get<PromptPostProcessResult>(), bare);
  EXPECT_FALSE(nlohmann::json(bare).contains("tokensPerSecond"));

  PromptPostProcessResult full{"Hello.", "cfg", "m", "p", 1000, 12, 30, 30.0, "{\"model\":\"m\"}", "{}"};
  EXPECT_EQ(nlohmann::json(full).get<PromptPostProcessResult>(), full);
}

TEST(TranscriptionPromptTest, RewriteChoiceNeedsTextAndIntegerOffsets) {
  struct Case {
    const char* document;
    bool decodes;
  };
  const Case cases[] = {
      {R"({"text":"a","start":0,"end":3})", true},
      {R"({"text":"a","start":-3,"end":50})", true},
      {R"({"text":"a","start":0})", false},
      {R"({"text":"a","start":"0","end":3})", false},
      {R"({"text":"a","start":0.5,"end":3})", false},
      {R"({"text":7,"start":0,"end":3})", false},
      {R"({"start":0,"end":3})", false},
  };
  for (const auto& testCase : cases) {
    const auto json = nlohmann::json::parse(testCase.document);
    if (testCase.decodes) {
      EXPECT_NO_THROW(json.get<RewriteChoice>()) << testCase.document;
    } else {
      EXPECT_THROW(json.get<RewriteChoice>(), nlohmann::json::exception) << testCase.document;
    }
  }
  EXPECT_EQ(nlohmann::json::parse(cases[1].document).get<RewriteChoice>(), (RewriteChoice{"a", -3, 50}));
}

}  // namespace
}  // namespace orvid
