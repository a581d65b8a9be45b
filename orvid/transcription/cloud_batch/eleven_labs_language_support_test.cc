#include "orvid/transcription/cloud_batch/eleven_labs_language_support.h"

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"

namespace orvid {
namespace {

TEST(ElevenLabsLanguageSupportTest, NormalisesRouteCodesToTheServicesThreeLetterCodes) {
  const std::vector<std::pair<std::optional<std::string>, std::optional<std::string>>> cases = {
      {"EN-us", "eng"}, {"ZH-TW", "zho"}, {"zh", "zho"},     {"pt-BR", "por"},         {"eng", "eng"},
      {"yue", "yue"},   {"jw", "jav"},    {"tl", "fil"},     {" de \n", "deu"},        {"auto", std::nullopt},
      {"  ", std::nullopt}, {std::nullopt, std::nullopt}, {"xyz", std::nullopt}, {"en_US", std::nullopt},
      {"-", std::nullopt}, {"--fr", "fra"},
  };
  for (const auto& [code, expected] : cases) {
    EXPECT_EQ(ElevenLabsLanguageSupport::normalized(code), expected) << code.value_or("(absent)");
  }
}

TEST(CloudTranscriptionResponseParserDeepgramTest, WalksToTheFirstAlternativeAndNeverQuotesABrokenBody) {
  struct Case {
    const char* body;
    std::string text;
    std::optional<std::string> language;
  };
  const std::vector<Case> cases = {
      {R"({"results":{"channels":[{"alternatives":[{"transcript":" hi ","confidence":0.5,"detected_language":"de"}]}]}})",
       " hi ", "de"},
      {R"({"results":{"detected_language":"fr","channels":[{"detected_language":"en","alternatives":[{}]}]}})", "",
       "en"},
      {R"({"results":{"detected_language":"fr","channels":"none"}})", "", "fr"},
      {R"([{"results":{}}])", "", std::nullopt},
  };
  CloudTranscriptionResponseParser parser;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    const std::string body = c.body;
    auto result = parser.parseDeepgram(Bytes(body.begin(), body.end()));
    EXPECT_EQ(result.text, c.text);
    EXPECT_EQ(result.language, c.language);
  }
  const std::string broken = R"({"results": "sk-secret)";
  auto error = testing::thrown<OrvidProviderError>([&] { parser.parseDeepgram(Bytes(broken.begin(), broken.end())); });
  ASSERT_TRUE(error);
  EXPECT_EQ(std::string(error->what()), "Invalid provider response.");
}

}  // namespace
}  // namespace orvid
