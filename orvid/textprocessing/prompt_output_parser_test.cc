#include "orvid/textprocessing/prompt_output_parser.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

using Strings = std::vector<std::string>;
using Choices = std::vector<RewriteChoice>;

TEST(PromptOutputParserTest, StripsOnlyTheFourInvisibleCharacters) {
  EXPECT_EQ(PromptOutputParser::stripInvisibleCharacters("He\u200Bl\u200Cl\u200Do\uFEFF!"), "Hello!");
  // Neighbouring characters with similar encodings stay, and so do cut-off sequences.
  EXPECT_EQ(PromptOutputParser::stripInvisibleCharacters("a\u200Eb\u2060c\u00A0d\xE2\x80"),
            "a\u200Eb\u2060c\u00A0d\xE2\x80");
}

TEST(PromptOutputParserTest, ExtractsTheFirstOutputElementOrTheWholeAnswer) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Sure! Here is the corrected text:\n\n<output>\nLet's meet at 3 PM.\n</output>\n\nLet me know.",
       "Let's meet at 3 PM."},
      {"<output>Hi</output>\n<output>second</output>", "Hi"},
      {"<output>no closing tag  ", "<output>no closing tag"},
      {"</output>closing first<output>open", "</output>closing first<output>open"},
      {"</output> <output>Hi</output>", "Hi"},
      {"<OUTPUT>Hi</OUTPUT>", "<OUTPUT>Hi</OUTPUT>"},
      {"\uFEFF<output>\u200BHello\u200D world\u200C</output>", "Hello world"},
      // A nested opening tag is part of the content.
      {"<output>a <output>b</output> c</output>", "a <output>b"},
      {"<output></output>rest", ""},
      // No tags: the whole answer, trimmed of line breaks of every kind, inner ones kept.
      {"\r\n\t  Line one\n\nLine two\u2028\r\n", "Line one\n\nLine two"},
  };
  for (const auto& [answer, expected] : cases) EXPECT_EQ(PromptOutputParser::extractOutput(answer), expected) << answer;
}

TEST(PromptOutputParserTest, ReadsChoicesOnlyFromArraysOfStrings) {
  const std::vector<std::pair<std::string, std::optional<Strings>>> cases = {
      {"```JSON\r\n[\"One\", \" Two \"]\r\n```", Strings{"One", "Two"}},
      {"  ```json\n[\"A \\\"quoted\\\" word\", \"caf\\u00e9\"]\n```  \n", Strings{"A \"quoted\" word", "café"}},
      {"[\n  \"  spaced  \", \"\", \"  \",\n  \"\\n\\tline\\n\"\n]", Strings{"spaced", "line"}},
      // Commentary after the fence, or before the array, is not an array.
      {"```json\n[\"a\", \"b\"]\n```\nHope this helps!", std::nullopt},
      {"Options:\n[\"a\", \"b\"]", std::nullopt},
      {"```[\"a\", \"b\"]```", std::nullopt},  // a fence without a line break keeps its backticks
      // Nested arrays, objects and nulls are not strings.
      {"[[\"a\"], [\"b\"]]", std::nullopt},
      {"[\"a\", null]", std::nullopt},
      {"{\"a\": \"b\"}", std::nullopt},
      // Trailing commas and cut-off arrays are not JSON.
      {"[\"a\", \"b\",]", std::nullopt},
      {"[\"a\", \"b\"", std::nullopt},
      {"[\"\", \"  \"]", std::nullopt},
      {"[]", std::nullopt},
  };
  for (const auto& [answer, expected] : cases) {
    EXPECT_EQ(PromptOutputParser::parseMultipleChoices(answer), expected) << answer;
  }
}

TEST(PromptOutputParserTest, ReadsStructuredChoicesClampedToTheInputsCharacters) {
  struct Case { std::string answer; std::optional<std::string> input; std::optional<Choices> expected; };
  const std::vector<Case> cases = {
      // Extra keys are ignored; empty texts dropped.
      {"```json\n[{\"text\": \"Hi world\", \"start\": 0, \"end\": 5, \"reason\": \"shorter\"},\n"
       " {\"end\": 11, \"text\": \" Hey world \", \"start\": 0},\n {\"text\": \"\", \"start\": 0, \"end\": 5}]\n```",
       "hello world", Choices{{"Hi world", 0, 5}, {"Hey world", 0, 11}}},
      // Offsets are clamped to the input, and start never passes end.
      {R"([{"text": " first ", "start": -3, "end": 50}, {"text": "second", "start": 7, "end": 4},
          {"text": "third", "start": 12, "end": 15}])",
       "0123456789", Choices{{"first", 0, 10}, {"second", 7, 7}, {"third", 12, 10}}},
      {R"([{"text": "a", "start": 3, "end": 5}])", std::nullopt, Choices{{"a", 0, 0}}},
      // Offsets count characters, not bytes.
      {R"([{"text": "x", "start": 0, "end": 99}])", "你好👍🏽e\u0301", Choices{{"x", 0, 4}}},
      // Plain strings cover the whole input.
      {R"(["Hi there", "Hello there"])", "hey there", Choices{{"Hi there", 0, 9}, {"Hello there", 0, 9}}},
      {R"([{"text": "Hi"}, "Hey"])", "hello", std::nullopt},
      {R"([{"text": "a", "start": "0", "end": 1}])", "hello", std::nullopt},
      {R"([{"text": "  ", "start": 0, "end": 1}])", "hello", std::nullopt},
      // The input cut into its lines is no set of alternatives.
      {R"(["alpha one", "beta two", "gamma three"])", "alpha one\nbeta two\ngamma three", std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PromptOutputParser::parseMultipleChoicesStructured(c.answer, c.input), c.expected) << c.answer;
  }
}

TEST(PromptOutputParserTest, RejectsChoicesThatAreTheInputCutIntoLines) {
  const std::string input = "First line here\nSecond line there\nThird line everywhere";
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices(
                "[\"first line HERE\", \"second   line there\", \"third line everywhere\"]", input),
            std::nullopt);
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices("[\"Alpha beta\", \"Gamma\", \"Delta\"]", "one line of text"),
            (Strings{"Alpha beta", "Gamma", "Delta"}));

  const std::string fiveLines = "one\ntwo\n\nthree\nfour\nfive";
  struct Case { Strings choices; std::optional<std::string> input; bool expected; };
  const std::vector<Case> cases = {
      {{"a", "b"}, fiveLines, false},
      {{"a", "b", "c", "d"}, fiveLines, true},
      {{"a", "b", "c", "d", "e", "f"}, fiveLines, true},
      {{"a", "b", "c", "d", "e", "f", "g"}, fiveLines, false},
      {{"a\nb", "c", "d", "e"}, fiveLines, false},
      {{"a", "b", "c", "d"}, std::nullopt, false},
      {{"a", "b", "c"}, "one\ntwo", false},
      // Joined, the choices are the input up to case and spacing.
      {{"Hello  World", "again"}, "hello world\nAGAIN", true},
      // Nine of ten distinct words shared: overlap 0.9.
      {{"w1 w2 w3 w4 w5", "w6 w7 w8 w9 extra"}, "w1 w2 w3 w4 w5 w6 w7 w8 w9", true},
      {{"w1 w2 w3 w4", "w6 w7 w8 other more"}, "w1 w2 w3 w4 w5 w6 w7 w8 w9", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PromptOutputParser::looksLikeLineSplitOfSingleAnswer(c.choices, c.input), c.expected)
        << c.choices.size() << " choices, input " << c.input.value_or("<none>");
  }
}

TEST(PromptOutputParserTest, TokenOverlapIsJaccardOfSpaceSeparatedWords) {
  EXPECT_DOUBLE_EQ(PromptOutputParser::tokenOverlapRatio("a b c", "b c d"), 0.5);
  EXPECT_DOUBLE_EQ(PromptOutputParser::tokenOverlapRatio("a  a b", "b a"), 1.0);
  EXPECT_DOUBLE_EQ(PromptOutputParser::tokenOverlapRatio("", "a"), 0.0);
  EXPECT_DOUBLE_EQ(PromptOutputParser::tokenOverlapRatio("a\nb", "a"), 0.0);
}

}  // namespace
}  // namespace orvid
