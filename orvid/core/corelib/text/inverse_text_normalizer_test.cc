#include "orvid/core/corelib/text/inverse_text_normalizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvid {
namespace {

struct Phrase {
  std::string spoken;
  std::string written;
};

void expectPhrases(const std::string& language, const std::vector<Phrase>& phrases) {
  for (const Phrase& phrase : phrases) {
    EXPECT_EQ(InverseTextNormalizer::normalize(phrase.spoken, language), phrase.written)
        << language << ": " << phrase.spoken;
  }
}

TEST(InverseTextNormalizerTest, WritesEnglishCardinalsAndOrdinals) {
  expectPhrases("en", {
                          {"I have twenty three apples", "I have 23 apples"},
                          {"one hundred and five people", "105 people"},
                          {"twenty-three", "23"},
                          {"two thousand twenty four", "2024"},
                          {"twelve thousand five hundred", "12,500"},
                          {"one million two hundred thousand", "1,200,000"},
                          {"five million people", "5 million people"},
                          {"Ten ducks", "10 ducks"},
                          {"the twenty first century", "the 21st century"},
                          {"the one hundredth time", "the 100th time"},
                          {"my eleventh try", "my 11th try"},
                          {"the twenty second", "the 22nd"},
                          {"on May twenty second we met", "on May 22nd we met"},
                          {"a thirty second break", "a 30 second break"},
                          {"between twenty and thirty", "between 20 and 30"},
                      });
}

TEST(InverseTextNormalizerTest, KeepsEnglishWordsThatAreNotClearlyNumbers) {
  expectPhrases("en", {
                          {"one of them", "one of them"},
                          {"two cats and three dogs", "two cats and three dogs"},
                          {"the first time", "the first time"},
                          {"no one knows", "no one knows"},
                          {"wait one second", "wait one second"},
                          {"five six seven", "five six seven"},
                          {"we met at seven thirty", "we met at seven thirty"},
                          {"hundreds of people", "hundreds of people"},
                          {"a million thanks", "a million thanks"},
                          {"it was a one-time thing", "it was a one-time thing"},
                          {"zero", "zero"},
                          {"the point is", "the point is"},
                          {"someone", "someone"},
                      });
}

TEST(InverseTextNormalizerTest, WritesEnglishDecimalsPercentagesAndCurrency) {
  expectPhrases("en", {
                          {"twenty three point five percent", "23.5%"},
                          {"zero point five", "0.5"},
                          {"three point one four", "3.14"},
                          {"two point five million", "2.5 million"},
                          {"five percent", "5%"},
                          {"ten per cent of it", "10% of it"},
                          {"one dollar", "$1"},
                          {"twenty dollars and fifty cents", "$20.50"},
                          {"twenty dollars and five cents", "$20.05"},
                          {"five million dollars", "$5 million"},
                          {"thirty euros", "€30"},
                          {"five pounds of flour", "five pounds of flour"},
                      });
}

TEST(InverseTextNormalizerTest, WritesEnglishTimesAndYears) {
  expectPhrases("en", {
                          {"see you at seven thirty pm", "see you at 7:30 PM"},
                          {"seven am", "7 AM"},
                          {"ten oh five AM", "10:05 AM"},
                          {"seven o'clock", "7:00"},
                          {"seven thirty p.m. sharp", "7:30 p.m. sharp"},
                          {"in nineteen ninety nine", "in 1999"},
                          {"twenty twenty-four", "2024"},
                          {"nineteen oh five", "1905"},
                          {"nineteen hundred", "1900"},
                          {"Since twenty ten, things changed.", "Since 2010, things changed."},
                      });
}

TEST(InverseTextNormalizerTest, WritesChineseNumbers) {
  expectPhrases("zh", {
                          {"二零二四年", "2024年"},
                          {"一九九八年出生", "1998年出生"},
                          {"九八年", "98年"},
                          {"一百二十三", "123"},
                          {"一千零五十个", "1050个"},
                          {"三百五", "350"},
                          {"十五个人", "15个人"},
                          {"第二十三名", "第23名"},
                          {"五万人", "5万人"},
                          {"三千万", "3000万"},
                          {"一亿两千万", "120000000"},
                          {"两亿", "2亿"},
                          {"三点五", "3.5"},
                          {"零点五", "0.5"},
                          {"三点五亿", "3.5亿"},
                          {"三点十五分开会", "3:15开会"},
                          {"十点零五分", "10:05"},
                          {"百分之二十三点五", "23.5%"},
                          {"百分之五", "5%"},
                          {"百分之百", "100%"},
                          {"三百元", "300元"},
                          {"一萬五千", "15000"},
                          {"十二点", "12点"},
                      });
}

TEST(InverseTextNormalizerTest, WritesChineseDates) {
  expectPhrases("zh", {
                          {"二零二四年三月五日", "2024年3月5日"},
                          {"一九四九年十月一日成立", "1949年10月1日成立"},
                          {"三月五日", "3月5日"},
                          {"十月一号", "10月1号"},
                          {"十二月二十五日圣诞节", "12月25日圣诞节"},
                          {"二零二四年三月", "2024年3月"},
                          {"2024年六月", "2024年6月"},
                          // A month alone, or after a year in words, stays.
                          {"我们三月见", "我们三月见"},
                          {"三年三月", "三年三月"},
                          // Not a month, not a day.
                          {"十三月五日", "13月五日"},
                          {"三月三十二日", "三月32日"},
                          {"一月一日一五一十", "1月1日一五一十"},
                      });
}

TEST(InverseTextNormalizerTest, KeepsChineseWordsThatAreNotNumbers) {
  expectPhrases("zh", {
                          {"三个人", "三个人"},
                          {"十分好", "十分好"},
                          {"一下", "一下"},
                          {"一一", "一一"},
                          {"千万不要", "千万不要"},
                          {"万一下雨", "万一下雨"},
                          {"三四年", "三四年"},
                          {"十万火急", "十万火急"},
                          {"一五一十", "一五一十"},
                          {"一点一点地", "一点一点地"},
                          {"下午三点", "下午三点"},
                          {"二十二十", "二十二十"},
                          {"一百零", "一百零"},
                      });
}

TEST(InverseTextNormalizerTest, ChoosesRulesByLanguage) {
  const std::string mixed = "twenty three 和 二十三";
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "en-US"), "23 和 二十三");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "zh-Hans"), "twenty three 和 23");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "yue"), "twenty three 和 23");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "auto"), "23 和 23");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, ""), "23 和 23");
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "fr"), mixed);
  EXPECT_EQ(InverseTextNormalizer::normalize(mixed, "ja"), mixed);
}

TEST(InverseTextNormalizerTest, KeepsTextWithoutNumbersByteForByte) {
  const std::string text = "Hello,\n  world \xff — 你好。";
  EXPECT_EQ(InverseTextNormalizer::normalize(text, "auto"), text);
}

}  // namespace
}  // namespace orvid
