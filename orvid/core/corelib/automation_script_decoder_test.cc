#include "orvid/core/corelib/automation_script_decoder.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(AutomationScriptDecoderTest, FindsTheProposalObjectWhereverTheModelPutIt) {
  const AutomationScriptProposal expected{"Show disk usage", "df -h", std::nullopt};
  const char* answers[] = {
      R"({"title":"Show disk usage","command":"df -h","script":""})",
      "  \n{\"title\": \"Show disk usage\", \"command\": \" df -h \", \"script\": \"  \"}\n",
      "Here you go:\n```\n{\"title\":\"Show disk usage\",\"command\":\"df -h\",\"script\":\"\"}\n```\nEnjoy!",
      "Sure! {\"title\":\"Show disk usage\",\"command\":\"df -h\",\"script\":\"\"} Let me know {if} needed.",
  };
  for (const char* answer : answers) {
    EXPECT_EQ(AutomationScriptDecoder::structuredProposal(answer), expected) << answer;
  }
}

TEST(AutomationScriptDecoderTest, BracesInsideStringsDoNotEndTheObject) {
  const auto proposal = AutomationScriptDecoder::structuredProposal(
      "Plan: {\"title\":\"Braces\",\"command\":\"echo '}{' \\\"x\\\"\",\"script\":\"\"} trailing }");
  ASSERT_TRUE(proposal);
  EXPECT_EQ(proposal->command, "echo '}{' \"x\"");
}

TEST(AutomationScriptDecoderTest, TitleOnlyAnswersAreProposalsThatCannotRun) {
  const auto proposal =
      AutomationScriptDecoder::structuredProposal(R"({"title":"Open Safari","command":"","script":""})");
  ASSERT_TRUE(proposal);
  EXPECT_FALSE(proposal->isRunnable());
  EXPECT_EQ(AutomationScriptDecoder::canonicalOutput(*proposal), "");
  EXPECT_FALSE(AutomationScriptDecoder::runnableProposal(R"({"title":"Open Safari"})", true));

  for (const char* text : {"", "plain prose", "[1,2]", "{\"other\":1}", "{not json"}) {
    EXPECT_FALSE(AutomationScriptDecoder::structuredProposal(text)) << text;
  }
}

TEST(AutomationScriptDecoderTest, CanonicalTextReadsBackAsTheSameRunnableProposal) {
  const AutomationScriptProposal proposals[] = {
      {"List files", "ls -la", std::nullopt},
      {"Quote \"test\" – ünïcode", "printf '%s\\n' \"a b\"", std::nullopt},
  };
  for (const auto& proposal : proposals) {
    const auto canonical = AutomationScriptDecoder::canonicalOutput(proposal);
    ASSERT_FALSE(canonical.empty());
    EXPECT_EQ(AutomationScriptDecoder::runnableProposal(canonical, false), proposal) << canonical;
    EXPECT_EQ(AutomationScriptDecoder::structuredProposal(canonical), proposal) << canonical;
  }
  EXPECT_EQ(AutomationScriptDecoder::canonicalOutput({"T", "ls", std::nullopt}), R"({"command":"ls","title":"T"})");
  // Only a script: written with the command and title it reads back with.
  const auto canonical = AutomationScriptDecoder::canonicalOutput({"", "", "#!/bin/sh\necho hi"});
  const auto read = AutomationScriptDecoder::runnableProposal(canonical, false);
  ASSERT_TRUE(read);
  EXPECT_EQ(AutomationScriptDecoder::canonicalOutput(*read), canonical);
}

TEST(AutomationScriptDecoderTest, AScriptWithoutCommandGetsOneForItsInterpreter) {
  struct Case { const char* script; const char* command; };
  const Case cases[] = {
      {"#!/usr/bin/env ruby\nputs 1", "/usr/bin/env ruby \"$SCRIPT\""},
      {"import json\nprint(json.dumps({}))", "python3 \"$SCRIPT\""},
      {"tell application \"Finder\" to activate", "osascript \"$SCRIPT\""},
      {"puts 'hi'", "ruby \"$SCRIPT\""},
      {"for f in *; do echo \"$f\"; done", "bash \"$SCRIPT\""},
  };
  for (const auto& testCase : cases) {
    const auto runnable = AutomationScriptDecoder::runnableProposal(
        AutomationScriptDecoder::canonicalOutput({"T", "", testCase.script}), false);
    ASSERT_TRUE(runnable) << testCase.script;
    EXPECT_EQ(runnable->command, testCase.command);
    EXPECT_EQ(runnable->script, testCase.script);
  }
}

TEST(AutomationScriptDecoderTest, RawCommandsRunOnlyWhenAllowed) {
  EXPECT_FALSE(AutomationScriptDecoder::runnableProposal("open -a Safari", false));
  const auto raw = AutomationScriptDecoder::runnableProposal("  open -a Safari\n", true);
  ASSERT_TRUE(raw);
  EXPECT_EQ(raw->command, "open -a Safari");
  EXPECT_EQ(raw->title, "open -a Safari");
  EXPECT_FALSE(raw->script);

  const auto fenced = AutomationScriptDecoder::runnableProposal("```bash\necho one\necho two\n```", true);
  ASSERT_TRUE(fenced);
  EXPECT_EQ(fenced->command, "echo one\necho two");

  for (const char* text : {"", "   \n", "[\"ls\"]", "{\"a\":1}", "```\n```"}) {
    EXPECT_FALSE(AutomationScriptDecoder::runnableProposal(text, true)) << text;
  }
}

TEST(AutomationTitleExtractorTest, MakesShortOneLineTitles) {
  struct Case { const char* text; std::optional<std::string> title; };
  const Case cases[] = {
      {"Open Safari and go to example.com.", "Open Safari and go to example.com"},
      {"\n\n# Rename the screenshots:\nthen more", "Rename the screenshots"},
      {"- \"Archive old logs\"", "Archive old logs"},
      {R"({"summary":"Click the OK button","calls":[{"tool":"click"}]})", "Click the OK button"},
      {R"({"calls":[]})", std::nullopt},
      {"```\n```", std::nullopt},
      {"\u2006\n\u3000", std::nullopt},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(AutomationTitleExtractor::title(testCase.text), testCase.title) << testCase.text;
  }
}

TEST(AutomationTitleExtractorTest, CutsLongTitlesAtAWordBoundary) {
  const std::string longText =
      "Find every invoice from last month in the Downloads folder and move them into the Accounting folder";
  const auto title = AutomationTitleExtractor::title(longText);
  ASSERT_TRUE(title);
  EXPECT_EQ(*title, "Find every invoice from last month in the Downloads folder…");

  // Cut by characters, not bytes: a title of multi-byte letters keeps whole letters.
  std::string chinese;
  for (int i = 0; i < 70; ++i) chinese += "字";
  const auto cut = AutomationTitleExtractor::title(chinese);
  ASSERT_TRUE(cut);
  EXPECT_EQ(*cut, chinese.substr(0, 59 * 3) + "…");
}

}  // namespace
}  // namespace orvid
