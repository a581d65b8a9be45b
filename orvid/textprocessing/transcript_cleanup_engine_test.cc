#include "orvid/textprocessing/transcript_cleanup_engine.h"

#include <gtest/gtest.h>

#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"

namespace orvid {
namespace {

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

TEST_F(CleanupFixture, CleansWithTheConfiguredFillersStuttersAndTerms) {
  struct Case {
    std::string input;
    std::vector<std::string> terms;
    bool fillers;
    bool stutters;
    double threshold;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {" \u200BHello\u200D   wor\uFEFFld \n\t again\u200C ", {}, false, false, 0.85, "Hello world again"},
      {"I I I want to to go", {}, false, true, 0.85, "I want to go"},
      {"to-to go", {}, false, true, 0.85, "to go"},
      {"this is is\nis fine", {}, false, true, 0.85, "this is fine"},
      {"我 我 我想去", {}, false, true, 0.85, "我 我想去"},
      {"Über über alles", {}, false, true, 0.85, "Über alles"},
      {"Um, so, like, yes", {}, true, false, 0.85, "so, yes"},
      {"wait — um — okay", {}, true, false, 0.85, "wait — — okay"},
      {"好的 um。 然后", {}, true, false, 0.85, "好的 然后"},
      {"嗯，um，好", {}, true, false, 0.85, "嗯，um，好"},
      {"likely unlike", {}, true, false, 0.85, "likely unlike"},
      {"we um we should go", {}, true, true, 0.85, "we should go"},
      {"push to git hub now", {"git", "GitHub"}, false, false, 0.85, "push to gitHub now"},
      {"dana", {"Dana", "Dina"}, false, false, 0.7, "Dina"},
      {"dana", {"Dina", "Dana"}, false, false, 0.7, "Dana"},
      {"ship GPT4 with g p t", {"GPT-4"}, false, false, 0.85, "ship GPT-4 with GPT-4"},
      {"GITHUB, github and gitHub", {"GitHub"}, false, false, 2.0, "GitHub GitHub and GitHub"},
      {"awsome a w sdk", {"AWS"}, false, false, 2.0, "AWSome AWSdk"},
      {"北京大学和北京", {"北京"}, false, false, 2.0, "北京大学和北京"},
      {"ask an tropic now", {"Anthropic"}, false, false, 0.85, "ask Anthropic now"},
      {"new yolk city is big", {"New York City"}, false, false, 0.85, "New York City is big"},
      {"jyraaaaa", {"Jira"}, false, false, 0.0, "jyraaaaa"},
      {"x", {"Jira"}, false, false, 0.0, "Jira"},
      {"Jyra", {"Jira"}, false, false, 7.0, "Jyra"},
      {"q", {"Jira"}, false, false, -4.0, "Jira"},
      {"Post-gres rocks", {"Postgres"}, false, false, 1.0, "Postgres rocks"},
      {"post grey rocks", {"Postgres"}, false, false, 0.875, "Postgres rocks"},
      {"post grey rocks", {"Postgres"}, false, false, 0.876, "post grey rocks"},
      {"kubernet", {"Kubernetes Engine"}, false, false, 0.0, "Kubernetes Engine"},
      {"kuberne", {"Kubernetes Engine"}, false, false, 0.0, "kuberne"},
      {"a b c d e f", {"abcdef"}, false, false, 1.0, "abcdef"},
      {"a b c d e f g", {"abcdefg"}, false, false, 1.0, "a b c d e f g"},
      {"यह कताब है", {"किताब"}, false, false, 0.85, "यह कताब है"},
      {"यह कताब है", {"किताब"}, false, false, 0.6, "यह किताब है"},
      {"the CAFE\u0301 opens", {"Caf\u00E9"}, false, false, 1.0, "the Café opens"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input + " / " + (c.terms.empty() ? "" : c.terms.front()) + " @ " + std::to_string(c.threshold));
    EXPECT_EQ(engine_.clean(c.input, configuration(c.terms, c.fillers, c.stutters, c.threshold)), c.expected);
  }
  TranscriptCleanupEngine engine(defaults_);
  engine.fillerWords = {"so"};
  EXPECT_EQ(engine.removeFillers("so um  yes"), "um  yes");
}

TEST_F(CleanupFixture, TermsApplyOneAfterAnotherEachToTheTextTheEarlierOnesLeft) {
  struct Case { std::string input; std::vector<std::string> terms; double threshold; std::string expected; };
  const std::vector<Case> cases = {
      {"zento flux and zento", {"Zento", "ZentoFlux"}, 0.85, "ZentoFlux and Zento"},
      {"zentoflux, zento-flux and zento flux", {"ZentoFlux", "Zento", "Flux"}, 0.85,
       "ZentoFlux ZentoFlux and ZentoFlux"},
      {"kubernetis runs kube and kubectl", {"Kube", "Kubernetes", "kubectl"}, 0.85,
       "Kubernetes runs Kube and Kubectl"},
      {"q r v, Q.R.V. and qrv", {"QRV"}, 0.85, "QRV QRV and QRV"},
      {"zenteflux at the start", {"ZentoFlux"}, 0.85, "ZentoFlux at the start"},
      {"ends with zenteflux", {"ZentoFlux"}, 0.85, "ends with ZentoFlux"},
      {"new york city york", {"New York City", "York"}, 0.85, "New York City York"},
      {"marlo we and marlowe", {"Marlowe", "Marlo"}, 0.85, "Marlowe and Marlowe"},
      {"dora dina dana", {"Dana", "Dina", "Dora"}, 0.7, "Dora Dina Dina"},
      {"  a  w  s \t console\n", {"AWS"}, 0.85, "AWS console"},
      {"c ++ and ++ and c++", {"++", "C++"}, 0.85, "C++ and ++ and C++"},
      {"café on gitHUB and git hub", {"GitHub"}, 0.85, "café on GitHub and GitHub"},
      {"STRASSE und straße und Strasse", {"Straße"}, 0.85, "Straße und Straße und Straße"},
      {"\u212Aelvin and KELVIN", {"kelvin"}, 0.85, "kelvin and kelvin"},
      {"我们在北京大学和北京", {"北京", "北京大学"}, 0.85, "我们在北京大学和北京"},
      {"我们 在 北京大雪 见", {"北京大学"}, 0.7, "我们 在 北京大学 见"},
      {"北京 大学 很 好", {"北京大学"}, 0.85, "北京大学 很 好"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(engine_.clean(c.input, configuration(c.terms, false, false, c.threshold)), c.expected) << c.input;
  }
}

TEST(TranscriptCleanupEngineTest, SimilarityIsOneMinusEditDistanceOverTheLongerLength) {
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("", ""), 1.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("abc", ""), 0.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("kitten", "sitting"), 1.0 - 3.0 / 7.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("北京", "北京市"), 1.0 - 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("caf\u00E9", "cafe\u0301"), 1.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("किताब", "कताब"), 1.0 - 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("q\u0307a", "qa"), 0.5);
  EXPECT_DOUBLE_EQ(TranscriptCleanupEngine::similarity("a\r\nb", "a\nb"), 2.0 / 3.0);
}

TEST(TranscriptCleanupEngineTest, DictionaryTermsAreDeduplicatedByLettersAndDigitsAndTakenFromTheContext) {
  EXPECT_EQ(TranscriptCleanupEngine::normalizedDictionaryTerms(
                {"Open AI", "openai", "  spaced \n term ", " ", "OPEN-AI"}, std::nullopt),
            (std::vector<std::string>{"Open AI", "spaced term"}));
  EXPECT_EQ(TranscriptCleanupEngine::normalizedDictionaryTerms({"++", "--", "C++", "किताब", "कताब"}, std::nullopt),
            (std::vector<std::string>{"++", "C++", "किताब", "कताब"}));
  EXPECT_EQ(TranscriptCleanupEngine::contextDictionaryTerms("Run `kubectl` on AWS and GitHub"),
            (std::vector<std::string>{"kubectl", "AWS", "GitHub"}));
  EXPECT_EQ(TranscriptCleanupEngine::contextDictionaryTerms("say \"hello\" and 'World' to NASA's iPhone"),
            (std::vector<std::string>{"hello", "World", "NASA"}));
  EXPECT_TRUE(TranscriptCleanupEngine::contextDictionaryTerms("   \n ").empty());
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

TEST_F(CleanupFixture, HostSettingsRunAutocorrectThenNormalisationThenConversion) {
  OrvidSettings settings;
  settings.autocorrectEnabled = true;
  settings.autocorrectRules = {{"sentenceCapitalization", false}};
  settings.inverseTextNormalizationEnabled = true;
  settings.chineseConversionMode = "s2t";
  saveSettings(settings);
  std::vector<long long> durations;
  auto report = [&](long long milliseconds) { durations.push_back(milliseconds); };
  const std::string text = "hello 我有二十三个苹果,共twenty three个";
  EXPECT_EQ(engine_.clean(text, configuration(), std::nullopt, report), "hello 我有23個蘋果，共 23 個");
  EXPECT_EQ(durations.size(), 1u);
  EXPECT_EQ(engine_.clean("二十三 and twenty three", configuration(), "en"), "二十三 and 23");

  saveSettings(OrvidSettings());
  EXPECT_EQ(engine_.clean(text, configuration(), std::nullopt, report), text);
  EXPECT_EQ(durations.size(), 1u);
}

TEST(TranscriptCleanupEngineTest, ConvertChineseIgnoresNoneAndUnknownModes) {
  for (const auto& [mode, expected] : std::vector<std::pair<std::string, std::string>>{
           {"s2t", "漢字"}, {"s2hk-finance", "漢字"}, {"none", "汉字"}, {"S2T", "汉字"}, {"", "汉字"}}) {
    EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉字", mode), expected) << mode;
  }
  EXPECT_EQ(TranscriptCleanupEngine::convertChinese("汉\xff字", "s2t"), "汉\xff字");
}

TEST(TranscriptCleanupEngineTest, LocalEnginesGetChineseWithoutItsScript) {
  EXPECT_EQ(TranscriptCleanupEngine::normalizeLanguageCode("zh-Hans", true), "zh");
  EXPECT_EQ(TranscriptCleanupEngine::normalizeLanguageCode("zh-Hant", false), "zh-Hant");
  EXPECT_EQ(TranscriptCleanupEngine::normalizeLanguageCode("zh-HK", true), "zh-HK");
  EXPECT_EQ(TranscriptCleanupEngine::normalizeLanguageCode("", false), "auto");
}

}  // namespace
}  // namespace orvid
