#include "orvid/core/corelib/text/autocorrect_rules.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

struct RuleCase { std::string input; std::string expected; };

TEST(AutocorrectRulesTest, EachRuleOnItsOwnChangesOnlyWhatItIsFor) {
  struct Case { AutocorrectRule rule; std::vector<RuleCase> cases; };
  const std::vector<Case> rules = {
      {AutocorrectRule::noSpaceBetweenCJK,
       {{"你 好 世界", "你好世界"}, {"日本 語 テキスト", "日本語テキスト"}, {"你好 world 世界", "你好 world 世界"}}},
      {AutocorrectRule::fullWidthPunctuation,
       {{"你好 , 世界.", "你好，世界。"}, {"真的吗?好!", "真的吗？好！"}, {"等等...", "等等……"}, {"版本3.5", "版本3.5"}}},
      {AutocorrectRule::spacingAroundPunctuation,
       {{"Hello , world !", "Hello, world!"},
        {"one,two;three.Next", "one, two; three. Next"},
        {"It costs 1,000 at 10:30", "It costs 1,000 at 10:30"},
        {"Visit example.com today", "Visit example.com today"}}},
      {AutocorrectRule::spaceBetweenCJKAndLatin,
       {{"使用GitHub管理代码", "使用 GitHub 管理代码"}, {"用C++写", "用 C++ 写"}, {"共3个", "共3个"}}},
      {AutocorrectRule::spaceBetweenCJKAndDigits,
       {{"共3个", "共 3 个"}, {"涨了5%的", "涨了 5% 的"}, {"温度30°以上", "温度 30° 以上"}, {"使用GitHub", "使用GitHub"}}},
      {AutocorrectRule::sentenceCapitalization,
       {{"hello. how are you? fine!", "Hello. How are you? Fine!"},
        {"iPhone is here. eBay too", "iPhone is here. eBay too"},
        {"see e.g. this one", "See e.g. this one"}}},
  };
  AutocorrectRules none;
  for (AutocorrectRule rule : AutocorrectRules::allRules()) none.setEnabled(rule, false);
  for (const auto& [rule, cases] : rules) {
    AutocorrectRules only = none;
    only.setEnabled(rule, true);
    for (const RuleCase& c : cases) {
      SCOPED_TRACE(rawValue(rule) + " on: " + c.input);
      EXPECT_EQ(only.format(c.input), c.expected);
      EXPECT_EQ(none.format(c.input), c.input);
    }
  }
}

TEST(AutocorrectRulesTest, AppliesEveryRuleByDefaultInOrderAndLeavesAddressesAlone) {
  const std::vector<RuleCase> cases = {
      {"我 用GitHub写了3个项目,很好.", "我用 GitHub 写了 3 个项目，很好。"},
      {"hello , world.this is fine", "Hello, world.this is fine"},
      {"https://example.com is up. ok", "https://example.com is up. Ok"},
      {"访问https://example.com/a,b。谢谢", "访问 https://example.com/a,b。谢谢"},
      // Without an address the same punctuation is still tidied.
      {"url example/a,b is fine", "Url example/a, b is fine"},
      {"Abc \xff\xfe def", "Abc \xff\xfe def"},
  };
  AutocorrectRules rules;
  for (const RuleCase& c : cases) EXPECT_EQ(rules.format(c.input), c.expected) << c.input;
}

TEST(AutocorrectRulesTest, ApplyRulesSwitchesOnlyNamedRulesAndIgnoresUnknownNames) {
  AutocorrectRules rules;
  rules.applyRules({{"spaceBetweenCJKAndDigits", false}, {"noSuchRule", false}});
  EXPECT_EQ(rules.format("用GitHub写了3个"), "用 GitHub 写了3个");
  rules.applyRules({{"spaceBetweenCJKAndDigits", true}});
  EXPECT_EQ(rules.format("用GitHub写了3个"), "用 GitHub 写了 3 个");
}

}  // namespace
}  // namespace orvid
