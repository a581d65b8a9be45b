#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TranscriptionResult parseText(const std::string& body) {
  return CloudTranscriptionResponseParser().parse(bytesFromString(body));
}

TEST(CloudTranscriptionResponseParserTest, FindsTheFirstUsableTextInLooselyShapedAnswers) {
  struct Case { std::string body; std::string text; };
  const Case cases[] = {
      {R"({"text":"  word  "})", "word"},
      {R"({"text":"   ","results":[{"transcript":"from results"}]})", "from results"},
      {R"({"choices":[{"message":{"role":"assistant","content":"chat style"}}]})", "chat style"},
      // A member of another type is skipped in the first round, not an error.
      {R"({"text":5,"transcript":null,"transcription":"third"})", "third"},
      // Nested members are tried in their fixed order, whatever the order in the body.
      {R"({"segments":[{"text":"segment"}],"results":[{"text":"result"}]})", "result"},
      {R"({"alternatives":[{"transcript":"  "},{"transcript":"second alternative"}]})", "second alternative"},
      {R"([{"id":1},{"utterance":"from an array"}])", "from an array"},
      {R"({"utterances":[{"text":"\u00a0\u3000你好\u2028"}]})", "你好"},
  };
  for (const Case& c : cases) {
    TranscriptionResult result = parseText(c.body);
    EXPECT_EQ(result.text, c.text) << c.body;
    EXPECT_EQ(result.language, std::nullopt) << c.body;
    EXPECT_EQ(result.confidence, std::nullopt) << c.body;
  }
}

TEST(CloudTranscriptionResponseParserTest, AnswersWithoutKnownTextBecomeTheirOwnTrimmedText) {
  struct Case { std::string body; std::string text; };
  const Case cases[] = {
      {"  Hello from plain text \n", "Hello from plain text"},
      {R"( {"id":"x","text":""} )", R"({"id":"x","text":""})"},
      {R"({"message":{"role":"assistant"}})", R"({"message":{"role":"assistant"}})"},
      // A bare scalar is not a JSON document: its text is kept as sent, quotes included.
      {R"("quoted")", R"("quoted")"},
      {"\xFF\xFE not text", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(parseText(c.body).text, c.text) << c.body;
}

TEST(CloudTranscriptionResponseParserTest, TakesLanguageAndConfidenceOnlyFromATopLevelObjectOfTheRightTypes) {
  TranscriptionResult full = parseText(R"({"text":"hi","language":"en","confidence":0.93})");
  EXPECT_EQ(full, (TranscriptionResult{"hi", 0.93, "en", std::nullopt, std::nullopt}));

  TranscriptionResult wrongTypes = parseText(R"({"text":"hi","language":7,"confidence":"high"})");
  EXPECT_EQ(wrongTypes.language, std::nullopt);
  EXPECT_EQ(wrongTypes.confidence, std::nullopt);

  EXPECT_EQ(parseText(R"({"text":"hi","confidence":true})").confidence, std::nullopt);
  EXPECT_EQ(parseText(R"({"text":"hi","confidence":1})").confidence, 1.0);
  EXPECT_EQ(parseText(R"([{"text":"hi","language":"de"}])").language, std::nullopt);
  // Present even when the text comes from elsewhere or from the raw body.
  EXPECT_EQ(parseText(R"({"language":"fr"})").language, "fr");
}

TEST(CloudTranscriptionResponseParserTest, SurvivesAbsurdlyDeepNesting) {
  const std::size_t depth = 20'000;
  std::string body = std::string(depth, '[') + R"("buried")" + std::string(depth, ']');
  TranscriptionResult result = parseText(body);
  // Too deep to search, so the body itself is the text; what matters is no crash.
  EXPECT_EQ(result.text, body);

  std::string shallow = std::string(200, '[') + R"("found")" + std::string(200, ']');
  EXPECT_EQ(parseText(shallow).text, "found");
}

TEST(CloudTranscriptionResponseParserTest, ExtractTextIgnoresScalarsAndBlankStrings) {
  using nlohmann::json;
  EXPECT_EQ(CloudTranscriptionResponseParser::extractText(json("  x ")), "x");
  EXPECT_EQ(CloudTranscriptionResponseParser::extractText(json(" \n")), std::nullopt);
  EXPECT_EQ(CloudTranscriptionResponseParser::extractText(json(3.5)), std::nullopt);
  EXPECT_EQ(CloudTranscriptionResponseParser::extractText(json::parse(R"({"unknown":"x"})")), std::nullopt);
}

}  // namespace
}  // namespace orvid
