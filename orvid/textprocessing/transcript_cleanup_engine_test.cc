#include "orvid/textprocessing/transcript_cleanup_engine.h"

#include <gtest/gtest.h>

#include <random>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"

namespace orvid {
namespace {

// An engine over a settings file of its own, every host switch off unless set.
class CleanupFixture : public ::testing::Test {
 protected:
  CleanupFixture() : defaults_(folder_ / "settings.json"), engine_(defaults_) {}

  void saveSettings(const OrvidSettings& settings) { OrvidSettingsPersistence::save(settings, defaults_); }

  static TranscriptCleanupConfiguration configuration(std::vector<std::string> terms = {}, bool fillers = false,
                                                      bool stutters = false, double threshold = 0.85) {
    return {std::move(terms), std::nullopt, threshold, fillers, stutters};
  }

  TemporaryDirectory folder_;
  UserDefaults defaults_;
  TranscriptCleanupEngine engine_;
};

TEST_F(CleanupFixture, WithEverythingOffOnlyRemovesInvisibleCharactersAndTidiesWhiteSpace) {
  EXPECT_EQ(engine_.clean(" \u200BHello\u200D   wor\uFEFFld \n\t again\u200C ", configuration()), "Hello world again");
  EXPECT_EQ(engine_.clean("um I I like it", configuration()), "um I I like it");
}

TEST_F(CleanupFixture, CollapsesStuttersIgnoringCaseAcrossScripts) {
  struct Case {
    std::string input;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"I I I want to to go", "I want to go"},
      {"The the cat", "The cat"},
      {"to-to go", "to go"},
      {"ok okay", "ok okay"},
      {"this is is\nis fine", "this is fine"},
      {"hello hello 世界 世界 的代码", "hello 世界 的代码"},
      {"我 我 我想去", "我 我想去"},
      {"1 1 2", "1 2"},
      {"Über über alles", "Über alles"},
  };
  for (const Case& c : cases) EXPECT_EQ(engine_.clean(c.input, configuration({}, false, true)), c.expected) << c.input;
  EXPECT_EQ(engine_.clean("I I want", configuration({}, false, false)), "I I want");
}

TEST_F(CleanupFixture, RemovesFillersButKeepsPunctuationAndWordsContainingThem) {
  struct Case {
    std::string input;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"Um, so, like, yes", "so, yes"},
      {"I have an umbrella", "I have an umbrella"},
      {"wait — um — okay", "wait — — okay"},
      {"UH... well", "well"},
      {"(erm) right", "right"},
      {"好的 um。 然后", "好的 然后"},
      {"嗯，um，好", "嗯，um，好"},
      {"likely unlike", "likely unlike"},
  };
  for (const Case& c : cases) EXPECT_EQ(engine_.clean(c.input, configuration({}, true)), c.expected) << c.input;
}

TEST_F(CleanupFixture, StuttersCollapseAgainAfterFillersAreGone) {
  EXPECT_EQ(engine_.clean("we um we should go", configuration({}, true, true)), "we should go");
}

TEST_F(CleanupFixture, RemoveFillersUsesTheEnginesFillerSet) {
  TranscriptCleanupEngine engine(defaults_);
  engine.fillerWords = {"so"};
  EXPECT_EQ(engine.removeFillers("so um  yes"), "um  yes");
}

TEST_F(CleanupFixture, AppliesLongerTermsFirstWithPlainSubstringReplacement) {
  // "GitHub" is tried before "git": its spoken form "Git Hub" claims "git hub";
  // "git" then replaces the "Git" inside "GitHub", as any substring.
  EXPECT_EQ(engine_.clean("push to git hub now", configuration({"git", "GitHub"})), "push to gitHub now");
  // Equal lengths keep their given order; the later term gets the last word.
  EXPECT_EQ(engine_.clean("dana", configuration({"Dana", "Dina"}, false, false, 0.7)), "Dina");
  EXPECT_EQ(engine_.clean("dana", configuration({"Dina", "Dana"}, false, false, 0.7)), "Dana");
  EXPECT_EQ(engine_.clean("the a w s console", configuration({"AWS"})), "the AWS console");
  EXPECT_EQ(engine_.clean("ship GPT4 with g p t", configuration({"GPT-4"})), "ship GPT-4 with GPT-4");
}

TEST_F(CleanupFixture, SpokenFormsReplaceEveryOccurrenceIgnoringCaseInAnyScript) {
  // Threshold above 1 (clamped to 1): besides the spoken forms, the fuzzy pass only
  // takes exact words, and it replaces each whole word, its punctuation included.
  EXPECT_EQ(engine_.clean("GITHUB, github and gitHub", configuration({"GitHub"}, false, false, 2.0)),
            "GitHub GitHub and GitHub");
  EXPECT_EQ(engine_.clean("zürich, ZÜRICH or Zurich", configuration({"Zürich"}, false, false, 2.0)),
            "Zürich Zürich or Zurich");
  // Inside other words too: plain substring replacement.
  EXPECT_EQ(engine_.clean("awsome a w sdk", configuration({"AWS"}, false, false, 2.0)), "AWSome AWSdk");
  EXPECT_EQ(engine_.clean("北京大学和北京", configuration({"北京"}, false, false, 2.0)), "北京大学和北京");
}

TEST_F(CleanupFixture, FuzzyMatchesRespectTheThresholdAndTheLengthFilter) {
  struct Case {
    std::string text;
    std::string term;
    double threshold;
    std::string expected;
  };
  const std::vector<Case> cases = {
      // "antropic" against "anthropic": 1 edit in 9, similarity 0.889.
      {"ask an tropic now", "Anthropic", 0.85, "ask Anthropic now"},
      {"ask an tropic now", "Anthropic", 0.9, "ask an tropic now"},
      // The longest span that is similar enough wins at each word.
      {"new yolk city is big", "New York City", 0.85, "New York City is big"},
      // A short term never takes a span more than 3 characters longer or shorter...
      {"jyraaaaa", "Jira", 0.0, "jyraaaaa"},
      // ...but with a threshold of 0 every span within that distance is taken.
      {"x", "Jira", 0.0, "Jira"},
      // Thresholds are clamped to [0, 1]: above 1 only exact spans match.
      {"Jyra", "Jira", 7.0, "Jyra"},
      {"JIRA", "Jira", 7.0, "Jira"},
      {"q", "Jira", -4.0, "Jira"},
      // Case and punctuation do not count.
      {"Post-gres rocks", "Postgres", 1.0, "Postgres rocks"},
      // "postgrey" is 7 of 8 alike (0.875): accepted at exactly that threshold.
      {"post grey rocks", "Postgres", 0.875, "Postgres rocks"},
      {"post grey rocks", "Postgres", 0.876, "post grey rocks"},
      // A term of 16 characters allows a length difference of 8 and no more.
      {"kubernet", "Kubernetes Engine", 0.0, "Kubernetes Engine"},
      {"kuberne", "Kubernetes Engine", 0.0, "kuberne"},
      // Spans never take more than six words.
      {"a b c d e f", "abcdef", 1.0, "abcdef"},
      {"a b c d e f g", "abcdefg", 1.0, "a b c d e f g"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(engine_.clean(c.text, configuration({c.term}, false, false, c.threshold)), c.expected)
        << c.text << " / " << c.term << " @ " << c.threshold;
  }
}

TEST(TranscriptCleanupEngineTest, SimilarityIsOneMinusEditDistanceOverTheLongerLength) {
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("", ""), 1.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("abc", ""), 0.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("kitten", "sitting"), 1.0 - 3.0 / 7.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("北京", "北京市"), 1.0 - 1.0 / 3.0);
  // Composed and decomposed "é" are one character either way.
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("caf\u00E9", "cafe\u0301"), 1.0);
  // A consonant with its vowel sign is one character: "कि ता ब" against "क ता ब".
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("किताब", "कताब"), 1.0 - 1.0 / 3.0);
  // "q" with a dot above has no composed form: still one character.
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("q\u0307a", "qa"), 0.5);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("a\r\nb", "a\nb"), 2.0 / 3.0);
}

TEST_F(CleanupFixture, FuzzyMatchingComparesWholeCharactersNotCodePoints) {
  // Dropping the vowel sign changes a character: 2 of 3 alike, below 0.85.
  EXPECT_EQ(engine_.clean("यह कताब है", configuration({"किताब"})), "यह कताब है");
  EXPECT_EQ(engine_.clean("यह किताब है", configuration({"किताब"})), "यह किताब है");
  EXPECT_EQ(engine_.clean("यह कताब है", configuration({"किताब"}, false, false, 0.6)), "यह किताब है");
  // The two spellings are different terms, not duplicates.
  EXPECT_EQ(TranscriptCleanupEngine::normalizedDictionaryTerms({"किताब", "कताब"}, std::nullopt),
            (std::vector<std::string>{"किताब", "कताब"}));
  // Case, accents spelt either way and punctuation still do not count.
  EXPECT_EQ(engine_.clean("the CAFE\u0301 opens", configuration({"Caf\u00E9"}, false, false, 1.0)), "the Café opens");
}

TEST(TranscriptCleanupEngineTest, FuzzyReplacementAgreesWithSimilarityAtEveryThreshold) {
  // Random words over a small alphabet, so that many pairs are near each other;
  // a single word is replaced exactly when it passes the length filter and its
  // similarity reaches the threshold.
  std::mt19937 random(42);
  auto word = [&random](size_t length) {
    std::string text;
    for (size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + random() % 3));
    return text;
  };
  const std::vector<double> thresholds = {0.0, 0.3, 0.5, 0.6, 2.0 / 3.0, 0.75, 0.8, 0.85, 0.875, 0.9, 1.0};
  int replaced = 0;
  for (int round = 0; round < 3000; ++round) {
    const std::string term = word(1 + random() % 12);
    const std::string text = word(1 + random() % 12);
    const double threshold = thresholds[random() % thresholds.size()];
    const size_t difference = text.size() > term.size() ? text.size() - term.size() : term.size() - text.size();
    const bool passesLengthFilter = difference <= (term.size() < 6 ? 3 : term.size() / 2);
    const bool expected = passesLengthFilter && TranscriptCleanupEngine::similarity(text, term) >= threshold;
    const std::string result = TranscriptCleanupEngine::replaceNGramApproximations(text, term, threshold);
    EXPECT_EQ(result, expected ? term : text) << text << " / " << term << " @ " << threshold;
    replaced += expected ? 1 : 0;
  }
  // Both outcomes occur often enough for the comparison to mean something.
  EXPECT_GT(replaced, 300);
  EXPECT_LT(replaced, 2700);
}

TEST(TranscriptCleanupEngineTest, ReplaceNGramApproximationsJoinsWordsWithSingleSpaces) {
  EXPECT_EQ(TranscriptCleanupEngine::replaceNGramApproximations("  run   cube c t l  now", "kubectl", 0.7),
            "run kubectl now");
  EXPECT_EQ(TranscriptCleanupEngine::replaceNGramApproximations("nothing here", "kubectl", 0.7), "nothing here");
  // Called directly, thresholds are not clamped: above 1 nothing is close enough.
  EXPECT_EQ(TranscriptCleanupEngine::replaceNGramApproximations("kubectl now", "kubectl", 1.5), "kubectl now");
  EXPECT_EQ(TranscriptCleanupEngine::replaceNGramApproximations("Kubectl now", "kubectl", 1.0), "kubectl now");
}

TEST(TranscriptCleanupEngineTest, DictionaryTermsAreDeduplicatedByLettersAndDigits) {
  EXPECT_EQ(TranscriptCleanupEngine::normalizedDictionaryTerms({"Open AI", "openai", "  spaced \n term ", " ", "OPEN-AI"},
                                                                std::nullopt),
            (std::vector<std::string>{"Open AI", "spaced term"}));
  // Terms without letters or digits share the empty key.
  EXPECT_EQ(TranscriptCleanupEngine::normalizedDictionaryTerms({"++", "--", "C++"}, std::nullopt),
            (std::vector<std::string>{"++", "C++"}));
}

TEST(TranscriptCleanupEngineTest, ContextYieldsQuotedTermsThenIdentifiers) {
  EXPECT_EQ(TranscriptCleanupEngine::contextDictionaryTerms("Run `kubectl` on AWS and GitHub"),
            (std::vector<std::string>{"kubectl", "AWS", "GitHub"}));
  EXPECT_EQ(TranscriptCleanupEngine::contextDictionaryTerms("say \"hello\" and 'World' to NASA's iPhone"),
            (std::vector<std::string>{"hello", "World", "NASA"}));
  EXPECT_TRUE(TranscriptCleanupEngine::contextDictionaryTerms("   \n ").empty());
  EXPECT_TRUE(TranscriptCleanupEngine::contextDictionaryTerms(std::nullopt).empty());
  EXPECT_EQ(TranscriptCleanupEngine::normalizedDictionaryTerms({"aws"}, "Deploy to AWS with `Terraform`"),
            (std::vector<std::string>{"aws", "Terraform"}));
}

TEST_F(CleanupFixture, ContextTermsAreForcedIntoTheText) {
  TranscriptCleanupConfiguration config = configuration();
  config.dictionaryContext = "Use `kubectl` with GitHub";
  config.wordCorrectionThreshold = 0.9;
  EXPECT_EQ(engine_.clean("open git hub and run cube c t l", config), "open GitHub and run cube c t l");
  config.wordCorrectionThreshold = 0.8;
  EXPECT_EQ(engine_.clean("open git hub and run cube c t l", config), "open GitHub and run kubectl");
}

TEST(TranscriptCleanupEngineTest, SpokenFormsSplitCamelCaseAndSpellCapitals) {
  auto has = [](const std::vector<std::string>& forms, const std::string& form) {
    return std::find(forms.begin(), forms.end(), form) != forms.end();
  };
  auto github = TranscriptCleanupEngine::spokenForms("GitHub");
  EXPECT_TRUE(has(github, "GitHub") && has(github, "Git Hub")) << github.size();
  auto aws = TranscriptCleanupEngine::spokenForms("AWS");
  EXPECT_TRUE(has(aws, "AWS") && has(aws, "A W S"));
  EXPECT_TRUE(has(TranscriptCleanupEngine::spokenForms("GPT-4"), "G P T"));
  EXPECT_EQ(TranscriptCleanupEngine::spokenForms("kubectl"), std::vector<std::string>{"kubectl"});
  EXPECT_EQ(TranscriptCleanupEngine::spokenForms("42"), std::vector<std::string>{"42"});
  EXPECT_EQ(TranscriptCleanupEngine::spokenForms("北京"), std::vector<std::string>{"北京"});
}

TEST_F(CleanupFixture, HostSettingsRunAutocorrectThenNormalisationThenConversion) {
  OrvidSettings settings;
  settings.autocorrectEnabled = true;
  settings.autocorrectRules = {{"sentenceCapitalization", false}};
  settings.inverseTextNormalizationEnabled = true;
  settings.chineseConversionMode = "s2t";
  saveSettings(settings);

  std::vector<long long> durations;
  auto report = [&](long long milliseconds) { durations.push_back(milliseconds); };
  EXPECT_EQ(engine_.clean("我有二十三个苹果,共twenty three个", configuration(), std::nullopt, report),
            "我有23個蘋果，共 23 個");
  ASSERT_EQ(durations.size(), 1u);
  EXPECT_GE(durations[0], 0);
  // English only: the Chinese numerals stay.
  EXPECT_EQ(engine_.clean("二十三 and twenty three", configuration(), "en"), "二十三 and 23");

  settings.autocorrectEnabled = false;
  settings.inverseTextNormalizationEnabled = false;
  settings.chineseConversionMode = "x2y";
  saveSettings(settings);
  durations.clear();
  EXPECT_EQ(engine_.clean("我有二十三个苹果,共twenty three个", configuration(), std::nullopt, report),
            "我有二十三个苹果,共twenty three个");
  EXPECT_TRUE(durations.empty());
}

TEST_F(CleanupFixture, AutocorrectRuleMapComesFromTheSettings) {
  OrvidSettings settings;
  settings.autocorrectEnabled = true;
  saveSettings(settings);
  EXPECT_EQ(engine_.clean("hello 你好world", configuration()), "Hello 你好 world");
  settings.autocorrectRules = {{"sentenceCapitalization", false}, {"spaceBetweenCJKAndLatin", false}};
  saveSettings(settings);
  EXPECT_EQ(engine_.clean("hello 你好world", configuration()), "hello 你好world");
}

TEST(TranscriptCleanupEngineTest, ConvertChineseIgnoresNoneAndUnknownModes) {
  EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉字", "s2t"), "漢字");
  EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉字", "s2hk-finance"), "漢字");
  EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉字", "none"), "汉字");
  EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉字", "S2T"), "汉字");
  EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉字", ""), "汉字");
  EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉\xff字", "s2t"), "汉\xff字");
}

TEST(TranscriptCleanupEngineTest, NormalizeLanguageCodeForLocalAndCloudEngines) {
  struct Case {
    std::string code;
    bool local;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"zh-Hans", true, "zh"},  {"zh-Hant", true, "zh"},   {"zh-Hans", false, "zh-Hans"},
      {"zh-Hant", false, "zh-Hant"}, {"", true, "auto"}, {"", false, "auto"},
      {"en", true, "en"},       {"zh-HK", true, "zh-HK"}, {"zh", false, "zh"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TranscriptCleanupEngine::normalizeLanguageCode(c.code, c.local), c.expected) << c.code << c.local;
  }
}

TEST(TranscriptCleanupEngineTest, ConfigurationJSONUsesFieldNamesAndOmitsAbsentContext) {
  TranscriptCleanupConfiguration config{{"GitHub", "AWS"}, std::nullopt, 0.8, true, false};
  nlohmann::json json = config;
  EXPECT_EQ(json, nlohmann::json::parse(R"({"dictionaryTerms":["GitHub","AWS"],"wordCorrectionThreshold":0.8,
                                           "removesFillers":true,"collapsesStutters":false})"));
  EXPECT_EQ(json.get<TranscriptCleanupConfiguration>(), config);
  config.dictionaryContext = "ctx";
  json = config;
  EXPECT_EQ(json.at("dictionaryContext"), "ctx");
  EXPECT_EQ(json.get<TranscriptCleanupConfiguration>(), config);
  EXPECT_EQ(std::hash<TranscriptCleanupConfiguration>{}(config),
            std::hash<TranscriptCleanupConfiguration>{}(json.get<TranscriptCleanupConfiguration>()));
  json.erase("removesFillers");
  EXPECT_THROW(json.get<TranscriptCleanupConfiguration>(), nlohmann::json::exception);
}

}  // namespace
}  // namespace orvid
