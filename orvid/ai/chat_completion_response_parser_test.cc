#include "orvid/ai/chat_completion_response_parser.h"

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

ChatCompletionResult parseText(const std::string& text) { return ChatCompletionResponseParser::parse(bytesFromString(text)); }

TEST(ChatCompletionResponseParserTest, ReadsTheContentOfEachShape) {
  struct Case { const char* body; const char* content; };
  const Case cases[] = {
      {R"({"choices":[{"index":0,"message":{"role":"assistant","content":" Hello \n"}}]})", " Hello \n"},
      {R"({"content":[{"type":"text","text":"a"},{"type":"tool_use","id":"t"},{"type":"text","text":"b"}]})", "ab"},
      {R"({"content":[{"type":"thinking"}]})", ""},
      {R"({"content":"plain"})", "plain"},
      // A first choice without a message object falls through to the top-level content.
      {R"({"choices":[{"text":"legacy"}],"content":"top"})", "top"},
      // "choices" that are not all objects are not the OpenAI shape.
      {R"({"choices":[{"message":{"content":"x"}},"junk"],"content":"fallback"})", "fallback"},
  };
  for (const Case& c : cases) EXPECT_EQ(parseText(c.body).content, c.content) << c.body;
}

TEST(ChatCompletionResponseParserTest, RejectsAnswersWithoutUsableContent) {
  // Broken JSON must not come back quoted in the error: nothing could redact a key it cut off.
  for (const char* body : {R"({"choices":[{"message":{"role":"assistant","content":null}}],"content":"ignored"})",
                           R"({"choices":[{"message":{"role":"assistant"}}]})", R"({"id":"x"})", R"({"content":3})",
                           R"([{"content":"in an array"}])", R"("text")", "not json", "",
                           R"({"choices":[], "api_key": "sk-live-SECRET123)", "1e400",
                           R"({"content":"ok","usage":{"prompt_tokens":1e400}})"}) {
    EXPECT_EQ(testing::thrown<OrvidProviderError>([&] { parseText(body); }), OrvidProviderError::invalidResponse())
        << body;
  }
}

TEST(ChatCompletionResponseParserTest, ReadsTokenCountsFromEitherNaming) {
  struct Case { const char* usage; std::optional<std::int64_t> input; std::optional<std::int64_t> output; };
  const Case cases[] = {
      {R"({"prompt_tokens":10,"completion_tokens":4,"total_tokens":14})", 10, 4},
      {R"({"input_tokens":3,"output_tokens":5})", 3, 5},
      {R"({"prompt_tokens":7,"input_tokens":3,"output_tokens":5})", 7, 5},
      {R"({"prompt_tokens":"7","input_tokens":2.0,"completion_tokens":1.5})", 2, std::nullopt},
      {R"("usage")", std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    auto result = parseText(std::string(R"({"content":"x","usage":)") + c.usage + "}");
    EXPECT_EQ(result.inputTokens, c.input) << c.usage;
    EXPECT_EQ(result.outputTokens, c.output) << c.usage;
    EXPECT_EQ(result.rawRequestDebug, std::nullopt);
    EXPECT_EQ(result.rawResponseDebug, std::nullopt);
  }
}

}  // namespace
}  // namespace orvid
