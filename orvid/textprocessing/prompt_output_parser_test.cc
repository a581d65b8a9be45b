#include "orvid/textprocessing/prompt_output_parser.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

using Strings = std::vector<std::string>;

TEST(PromptOutputParserTest, StripsOnlyTheFourInvisibleCharacters) {
  EXPECT_EQ(PromptOutputParser::stripInvisibleCharacters("He\u200Bl\u200Cl\u200Do\uFEFF!"), "Hello!");
  // Neighbouring characters with similar encodings stay.
  EXPECT_EQ(PromptOutputParser::stripInvisibleCharacters("a\u200Eb\u2060c\u00A0d"), "a\u200Eb\u2060c\u00A0d");
  EXPECT_EQ(PromptOutputParser::stripInvisibleCharacters("\xE2\x80"), "\xE2\x80");
}

TEST(PromptOutputParserTest, ExtractsTheFirstOutputElementOrTheWholeAnswer) {
  struct Case {
    std::string answer;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"<output>Hi</output> thanks", "Hi"},
      {"Sure! <output>\n  Dear team,\n</output>\n<output>second</output>", "Dear team,"},
      {"<output>no closing tag  ", "<output>no closing tag"},
      {"</output>closing first<output>open", "</output>closing first<output>open"},
      {"</output> <output>Hi</output>", "Hi"},
      {"<OUTPUT>Hi</OUTPUT>", "<OUTPUT>Hi</OUTPUT>"},
      {"  plain answer \n", "plain answer"},
      {"<out\u200Bput>Hi</output>", "Hi"},
      {"zero\u200Bwidth", "zerowidth"},
      {"<output></output>rest", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(PromptOutputParser::extractOutput(c.answer), c.expected) << c.answer;
}

TEST(PromptOutputParserTest, CleansMessyModelAnswers) {
  struct Case {
    std::string answer;
    std::string expected;
  };
  const std::vector<Case> cases = {
      // Chatter around the tagged answer.
      {"Sure! Here is the corrected text:\n\n<output>\nLet's meet at 3 PM.\n</output>\n\nLet me know if you need more.",
       "Let's meet at 3 PM."},
      // A byte order mark and zero-width joiners that models copy from their input.
      {"\uFEFF<output>\u200BHello\u200D world\u200C</output>", "Hello world"},
      // Tags inside the answer text itself: only the first pair counts.
      {"<output>Use <b>bold</b> here</output> and <output>ignored</output>", "Use <b>bold</b> here"},
      // A nested opening tag is part of the content.
      {"<output>a <output>b</output> c</output>", "a <output>b"},
      // Line breaks of every kind around the answer.
      {"\r\n\t  Plain answer.\u2028\r\n", "Plain answer."},
      // No tags: the whole answer, inner line breaks kept.
      {"Line one\n\nLine two", "Line one\n\nLine two"},
  };
  for (const Case& c : cases) EXPECT_EQ(PromptOutputParser::extractOutput(c.answer), c.expected) << c.answer;
}

TEST(PromptOutputParserTest, ReadsChoicesFromMessyArrays) {
  struct Case {
    std::string answer;
    std::optional<Strings> expected;
  };
  const std::vector<Case> cases = {
      {"```JSON\r\n[\"One\", \"Two\"]\r\n```", Strings{"One", "Two"}},
      {"  ```json\n[\"A \\\"quoted\\\" word\", \"caf\\u00e9\"]\n```  \n", Strings{"A \"quoted\" word", "café"}},
      {"[\n  \"  spaced  \",\n  \"\\n\\tline\\n\"\n]", Strings{"spaced", "line"}},
      // Commentary after the fence, or before the array, is not an array.
      {"```json\n[\"a\", \"b\"]\n```\nHope this helps!", std::nullopt},
      {"Options:\n[\"a\", \"b\"]", std::nullopt},
      // Nested arrays, objects and nulls are not strings.
      {"[[\"a\"], [\"b\"]]", std::nullopt},
      {"[\"a\", null]", std::nullopt},
      // Trailing commas and single quotes are not JSON.
      {"[\"a\", \"b\",]", std::nullopt},
      {"['a', 'b']", std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(PromptOutputParser::parseMultipleChoices(c.answer), c.expected) << c.answer;
}

TEST(PromptOutputParserTest, ReadsStructuredChoicesFromMessyObjects) {
  const std::string input = "hello world";
  // Extra keys are ignored; offsets are clamped; empty texts dropped.
  auto choices = PromptOutputParser::parseMultipleChoicesStructured(
      "```json\n[{\"text\": \"Hi world\", \"start\": 0, \"end\": 5, \"reason\": \"shorter\"},\n"
      " {\"end\": 11, \"text\": \" Hey world \", \"start\": 0},\n {\"text\": \"\", \"start\": 0, \"end\": 5}]\n```",
      input);
  ASSERT_TRUE(choices);
  EXPECT_EQ(*choices, (std::vector<RewriteChoice>{{"Hi world", 0, 5}, {"Hey world", 0, 11}}));
  // Objects with a missing offset fall back to nothing: they are not strings either.
  EXPECT_EQ(PromptOutputParser::parseMultipleChoicesStructured(R"([{"text": "Hi"}, "Hey"])", input), std::nullopt);
  // Every text empty: the string reading is tried and fails too.
  EXPECT_EQ(PromptOutputParser::parseMultipleChoicesStructured(R"([{"text": " ", "start": 0, "end": 1}])", input),
            std::nullopt);
}

TEST(PromptOutputParserTest, ParsesChoicesFromFencedAndBareArrays) {
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices("```json\n[\"One\", \" Two \", \"Three\"]\n```"),
            (Strings{"One", "Two", "Three"}));
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices("  [\"a\", \"\", \"  \", \"b\"]  "), (Strings{"a", "b"}));
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices("```\n[\"a\",\"b\"]```"), (Strings{"a", "b"}));
}

TEST(PromptOutputParserTest, RejectsAnswersThatAreNotArraysOfStrings) {
  const Strings answers = {
      "Here are some options: [\"a\", \"b\"]",
      "[\"a\", 2]",
      "{\"a\": \"b\"}",
      "[\"\", \"  \"]",
      "[]",
      "```[\"a\", \"b\"]```",  // a fence without a line break keeps its backticks
      "[\"a\", \"b\"",
      "",
  };
  for (const std::string& answer : answers) {
    EXPECT_EQ(PromptOutputParser::parseMultipleChoices(answer), std::nullopt) << answer;
  }
}

TEST(PromptOutputParserTest, RejectsChoicesThatAreTheInputCutIntoLines) {
  const std::string input = "First line here\nSecond line there\nThird line everywhere";
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices(
                "[\"first line HERE\", \"second   line there\", \"third line everywhere\"]", input),
            std::nullopt);
  // Three choices for a three-line input also read as a line split.
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices("[\"Alpha beta\", \"Gamma\", \"Delta\"]", input), std::nullopt);
  EXPECT_EQ(PromptOutputParser::parseMultipleChoices("[\"Alpha beta\", \"Gamma\", \"Delta\"]", "one line of text"),
            (Strings{"Alpha beta", "Gamma", "Delta"}));
}

TEST(PromptOutputParserTest, LineSplitDetection) {
  const std::string fiveLines = "one\ntwo\n\nthree\nfour\nfive";
  struct Case {
    Strings choices;
    std::optional<std::string> input;
    bool expected;
  };
  const std::vector<Case> cases = {
      {{"x"}, fiveLines, false},
      {{"a", "b", "c", "d"}, fiveLines, true},
      {{"a", "b"}, fiveLines, false},
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
      {{"a", "b"}, "   ", false},
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

TEST(PromptOutputParserTest, StructuredChoicesAreClampedToTheInput) {
  const std::string input = "0123456789";
  auto choices = PromptOutputParser::parseMultipleChoicesStructured(
      R"([{"text": " first ", "start": -3, "end": 50}, {"text": "", "start": 1, "end": 2},
          {"text": "second", "start": 7, "end": 4}, {"text": "third", "start": 12, "end": 15}])",
      input);
  ASSERT_TRUE(choices);
  EXPECT_EQ(*choices, (std::vector<RewriteChoice>{{"first", 0, 10}, {"second", 7, 7}, {"third", 12, 10}}));

  auto unknownInput = PromptOutputParser::parseMultipleChoicesStructured(
      "```json\n[{\"text\": \"a\", \"start\": 3, \"end\": 5}, {\"text\": \"b\", \"start\": 3, \"end\": 5}]\n```");
  ASSERT_TRUE(unknownInput);
  EXPECT_EQ(*unknownInput, (std::vector<RewriteChoice>{{"a", 0, 0}, {"b", 0, 0}}));
}

TEST(PromptOutputParserTest, StructuredChoicesCountCharactersNotBytes) {
  auto choices = PromptOutputParser::parseMultipleChoicesStructured(
      R"([{"text": "x", "start": 0, "end": 99}])", "你好👍🏽e\u0301");
  ASSERT_TRUE(choices);
  EXPECT_EQ(choices->at(0).end, 4);
}

TEST(PromptOutputParserTest, StructuredFallsBackToStringsCoveringTheWholeInput) {
  auto choices = PromptOutputParser::parseMultipleChoicesStructured(R"(["Hi there", "Hello there"])", "hey there");
  ASSERT_TRUE(choices);
  EXPECT_EQ(*choices, (std::vector<RewriteChoice>{{"Hi there", 0, 9}, {"Hello there", 0, 9}}));
  auto noInput = PromptOutputParser::parseMultipleChoicesStructured(R"(["Hi", "Hello"])");
  ASSERT_TRUE(noInput);
  EXPECT_EQ(*noInput, (std::vector<RewriteChoice>{{"Hi", 0, 0}, {"Hello", 0, 0}}));
}

TEST(PromptOutputParserTest, StructuredRejectsMalformedAndLineSplitAnswers) {
  const std::string input = "alpha one\nbeta two\ngamma three";
  const Strings answers = {
      R"([{"text": "a", "start": "0", "end": 1}])",
      R"([{"text": "a", "start": 0}])",
      R"([{"text": "  ", "start": 0, "end": 1}])",
      R"([{"text": "alpha one", "start": 0, "end": 9}, {"text": "beta two", "start": 10, "end": 18},
          {"text": "gamma three", "start": 19, "end": 30}])",
      R"(["alpha one", "beta two", "gamma three"])",
      "Sorry, I cannot do that.",
      R"([1, 2])",
  };
  for (const std::string& answer : answers) {
    EXPECT_EQ(PromptOutputParser::parseMultipleChoicesStructured(answer, input), std::nullopt) << answer;
  }
}

}  // namespace
}  // namespace orvid
