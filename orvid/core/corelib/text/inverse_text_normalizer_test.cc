#include "orvid/core/corelib/text/inverse_text_normalizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvid {
namespace {

struct Phrase { std::string spoken; std::string written; };

void expectPhrases(const std::string& language, const std::vector<Phrase>& phrases) {
  for (const Phrase& phrase : phrases) {
    EXPECT_EQ(InverseTextNormalizer::normalize(phrase.spoken, language), phrase.written)
        << language << ": " << phrase.spoken;
  }
}

TEST(InverseTextNormalizerTest, WritesEnglishNumbersAndKeepsWordsThatAreNotClearlyNumbers) {
  expectPhrases("en", {
                          {"one hundred and five people", "105 people"},
                          {"twelve thousand five hundred", "12,500"},
                          {"the twenty first century", "the 21st century"},
                          {"a thirty second break", "a 30 second break"},
                          {"twenty three point five percent", "23.5%"},
                          {"twenty dollars and five cents", "$20.05"},
                          {"see you at seven thirty pm", "see you at 7:30 PM"},
                          {"Since twenty ten, things changed.", "Since 2010, things changed."},
                          {"one of them", "one of them"},
                          {"we met at seven thirty", "we met at seven thirty"},
                          {"a million thanks", "a million thanks"},
                      });
}

TEST(InverseTextNormalizerTest, WritesChineseNumbersAndDatesAndKeepsWordsThatAreNotNumbers) {
  expectPhrases("zh", {
                          {"一九九八年出生", "1998年出生"},
                          {"第二十三名", "第23名"},
                          {"一亿两千万", "120000000"},
                          {"三点十五分开会", "3:15开会"},
                          {"百分之二十三点五", "23.5%"},
                          {"二零二四年三月五日", "2024年3月5日"},
                          // A month alone stays; an impossible month or day is a number.
                          {"我们三月见", "我们三月见"},
                          {"十三月五日", "13月五日"},
                          {"三个人", "三个人"},
                          {"下午三点", "下午三点"},
                      });
}

TEST(InverseTextNormalizerTest, ChoosesRulesByLanguageAndKeepsTextWithoutNumbersByteForByte) {
  const std::string mixed = "twenty three 和 二十三";
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "en-US"), "23 和 二十三");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "zh-Hans"), "twenty three 和 23");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, ""), "23 和 23");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "fr"), mixed);
  const std::string text = "Hello,\n  world \xff — 你好。";
  EXPECT_EQ(InverseTextNormalizer::normalize(text, "auto"), text);
}

}  // namespace
}  // namespace orvid
