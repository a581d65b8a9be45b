#include "orvid/core/corelib/text/autocorrect_rules.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

struct RuleCase {
  std::string input;
  std::string expected;
};

// Formats with only `rule` switched on.
std::string formatWithOnly(AutocorrectRule rule, const std::string& text) {
  AutocorrectRules rules;
  for (AutocorrectRule other : AutocorrectRules::allRules()) rules.setEnabled(other, other == rule);
  return rules.format(text);
}

void expectRule(AutocorrectRule rule, const std::vector<RuleCase>& cases) {
  for (const RuleCase& c : cases) {
    EXPECT_EQ(formatWithOnly(rule, c.input), c.expected) << rawValue(rule) << " on: " << c.input;
    AutocorrectRules off;
    off.applyRules({{rawValue(rule), false}});
    for (AutocorrectRule other : AutocorrectRules::allRules()) {
      if (other != rule) off.setEnabled(other, false);
    }
    EXPECT_EQ(off.format(c.input), c.input) << rawValue(rule) << " off: " << c.input;
  }
}

TEST(AutocorrectRulesTest, RemovesSpaceBetweenCJKCharactersOnly) {
  expectRule(AutocorrectRule::noSpaceBetweenCJK, {
                                                     {"你 好 世界", "你好世界"},
                                                     {"日本 語 テキスト", "日本語テキスト"},
                                                     {"你好 world 世界", "你好 world 世界"},
                                                     {"hello world", "hello world"},
                                                 });
}

TEST(AutocorrectRulesTest, TurnsPunctuationAfterCJKFullWidth) {
  expectRule(AutocorrectRule::fullWidthPunctuation, {
                                                        {"你好 , 世界.", "你好，世界。"},
                                                        {"真的吗?好!", "真的吗？好！"},
                                                        {"他说:OK", "他说：OK"},
                                                        {"等等...", "等等……"},
                                                        {"我们用App,效果很好", "我们用App，效果很好"},
                                                        {"你好 ， 世界", "你好，世界"},
                                                        {"Hello, world.", "Hello, world."},
                                                        {"版本3.5", "版本3.5"},
                                                    });
}

TEST(AutocorrectRulesTest, TidiesSpacesAroundLatinPunctuation) {
  expectRule(AutocorrectRule::spacingAroundPunctuation, {
                                                            {"Hello , world !", "Hello, world!"},
                                                            {"one,two;three", "one, two; three"},
                                                            {"It ended.Next one", "It ended. Next one"},
                                                            {"Hello,   world", "Hello, world"},
                                                            {"It costs 1,000 dollars", "It costs 1,000 dollars"},
                                                            {"Visit example.com today", "Visit example.com today"},
                                                            {"Meet at 10:30", "Meet at 10:30"},
                                                            {"The U.S.A is big", "The U.S.A is big"},
                                                            {"Open file.TXT now", "Open file.TXT now"},
                                                            {"We use .NET here", "We use .NET here"},
                                                        });
}

TEST(AutocorrectRulesTest, SpacesCJKAndLatinWords) {
  expectRule(AutocorrectRule::spaceBetweenCJKAndLatin, {
                                                           {"使用GitHub管理代码", "使用 GitHub 管理代码"},
                                                           {"用C++写", "用 C++ 写"},
                                                           {"学习C#语言", "学习 C# 语言"},
                                                           {"使用 GitHub 管理", "使用 GitHub 管理"},
                                                           {"共3个", "共3个"},
                                                           {"日本語とEnglish", "日本語と English"},
                                                       });
}

TEST(AutocorrectRulesTest, SpacesCJKAndNumbers) {
  expectRule(AutocorrectRule::spaceBetweenCJKAndDigits, {
                                                            {"共3个", "共 3 个"},
                                                            {"涨了5%的", "涨了 5% 的"},
                                                            {"价格$20元", "价格 $20 元"},
                                                            {"温度30°以上", "温度 30° 以上"},
                                                            {"使用GitHub", "使用GitHub"},
                                                            {"共 3 个", "共 3 个"},
                                                        });
}

TEST(AutocorrectRulesTest, CapitalisesSentenceStarts) {
  expectRule(AutocorrectRule::sentenceCapitalization,
             {
                 {"hello. how are you? fine!", "Hello. How are you? Fine!"},
                 {"你好。hello", "你好。Hello"},
                 {"iPhone is here. eBay too", "iPhone is here. eBay too"},
                 {"see e.g. this one", "See e.g. this one"},
                 {"call Dr. smith now", "Call Dr. smith now"},
                 {"www.example.com is up", "www.example.com is up"},
                 {"3 apples. ok", "3 apples. Ok"},
                 {"\"quoted start\" here", "\"Quoted start\" here"},
             });
}

TEST(AutocorrectRulesTest, AppliesEveryRuleByDefaultInOrder) {
  AutocorrectRules rules;
  EXPECT_EQ(rules.format("我 用GitHub写了3个项目,很好."), "我用 GitHub 写了 3 个项目，很好。");
  EXPECT_EQ(rules.format("hello , world.this is fine"), "Hello, world.this is fine");
}

TEST(AutocorrectRulesTest, LeavesWebAndMailAddressesAlone) {
  const std::vector<RuleCase> cases = {
      {"url http://example.com/a,b is fine", "Url http://example.com/a,b is fine"},
      {"https://example.com is up. ok", "https://example.com is up. Ok"},
      {"write to john.doe@example.com.thanks", "Write to john.doe@example.com.thanks"},
      {"visit www.example.com. next one", "Visit www.example.com. Next one"},
      {"访问https://example.com/a,b。谢谢", "访问 https://example.com/a,b。谢谢"},
      {"网址www.example.com.好", "网址 www.example.com。好"},
      // Without an address the same punctuation is still tidied.
      {"url example/a,b is fine", "Url example/a, b is fine"},
  };
  AutocorrectRules rules;
  for (const RuleCase& c : cases) EXPECT_EQ(rules.format(c.input), c.expected) << c.input;
}

TEST(AutocorrectRulesTest, ApplyRulesSwitchesOnlyNamedRulesAndIgnoresUnknownNames) {
  AutocorrectRules rules;
  rules.applyRules({{"spaceBetweenCJKAndDigits", false}, {"noSuchRule", false}});
  EXPECT_FALSE(rules.isEnabled(AutocorrectRule::spaceBetweenCJKAndDigits));
  EXPECT_TRUE(rules.isEnabled(AutocorrectRule::spaceBetweenCJKAndLatin));
  EXPECT_EQ(rules.format("用GitHub写了3个"), "用 GitHub 写了3个");
  rules.applyRules({{"spaceBetweenCJKAndDigits", true}});
  EXPECT_EQ(rules.format("用GitHub写了3个"), "用 GitHub 写了 3 个");
}

TEST(AutocorrectRulesTest, RuleNamesRoundTrip) {
  for (AutocorrectRule rule : AutocorrectRules::allRules()) {
    EXPECT_EQ(autocorrectRule(rawValue(rule)), rule);
  }
  EXPECT_EQ(autocorrectRule("fullwidth"), std::nullopt);
}

TEST(AutocorrectRulesTest, LeavesMalformedUTF8UntouchedWhenNothingApplies) {
  AutocorrectRules rules;
  std::string malformed = "Abc \xff\xfe def";
  EXPECT_EQ(rules.format(malformed), malformed);
}

}  // namespace
}  // namespace orvid
