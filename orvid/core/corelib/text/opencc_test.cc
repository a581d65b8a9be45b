#include "orvid/core/corelib/text/opencc.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

struct KnownPair { OpenCCMode mode; std::string from; std::string to; };

TEST(OpenCCTest, ConvertsKnownPairsInEveryMode) {
  const std::vector<KnownPair> pairs = {
      {OpenCCMode::none, "汉字 漢字", "汉字 漢字"},
      {OpenCCMode::s2t, "汉字里面", "漢字裏面"},
      {OpenCCMode::t2s, "漢字裏面", "汉字里面"},
      {OpenCCMode::s2tw, "里面为什么", "裡面為什麼"},
      {OpenCCMode::tw2s, "軟體裡面", "软体里面"},
      {OpenCCMode::s2hk, "为什么", "為什麼"},
      {OpenCCMode::hk2s, "為什麼", "为什么"},
      {OpenCCMode::s2twp, "鼠标软件", "滑鼠軟體"},
      {OpenCCMode::tw2sp, "滑鼠軟體", "鼠标软件"},
      {OpenCCMode::t2tw, "裏面", "裡面"},
      {OpenCCMode::tw2t, "裡面", "裏面"},
      {OpenCCMode::t2hk, "僞", "偽"},
      {OpenCCMode::hk2t, "偽", "僞"},
      {OpenCCMode::t2jp, "藝術國家", "芸術国家"},
      {OpenCCMode::jp2t, "沖縄", "沖繩"},
      {OpenCCMode::s2hkFinance, "汉字保证金", "漢字按金"},
  };
  ASSERT_EQ(pairs.size(), allOpenCCModes().size());
  EXPECT_EQ(openCCMode("S2T"), std::nullopt);
  for (const KnownPair& pair : pairs) {
    EXPECT_EQ(OpenCC::shared().convert(pair.from, pair.mode), pair.to) << rawValue(pair.mode);
  }
}

TEST(OpenCCTest, FinanceModeUsesHongKongFinancialTermsForSimplifiedAndTraditionalInput) {
  EXPECT_EQ(OpenCC::shared().convert("保證金", OpenCCMode::s2hkFinance), "按金");
  EXPECT_EQ(OpenCC::shared().convert("他们在做空股票", OpenCCMode::s2hkFinance), "他們在沽空股票");
  EXPECT_EQ(OpenCC::shared().convert("保证金", OpenCCMode::s2hk), "保證金");
}

TEST(OpenCCTest, MissingDictionariesThrowAnErrorNamingTheMode) {
  TemporaryDirectory empty;
  OpenCC converter(empty.path());
  EXPECT_EQ(converter.convert("汉字", OpenCCMode::none), "汉字");
  for (OpenCCMode mode : {OpenCCMode::s2t, OpenCCMode::s2hkFinance}) {
    auto error = testing::thrown<OpenCCError>([&] { converter.convert("汉字", mode); });
    ASSERT_TRUE(error) << rawValue(mode);
    EXPECT_EQ(error->errorCase(), OpenCCError::Case::configurationUnavailable);
    EXPECT_EQ(error->mode(), mode);
    EXPECT_NE(std::string(error->what()).find("\"" + rawValue(mode) + "\""), std::string::npos) << error->what();
  }
  // The failure is remembered: the dictionaries appearing later are not read.
  for (const auto& entry : std::filesystem::directory_iterator(OpenCC::defaultDataDirectory())) {
    std::filesystem::copy(entry.path(), empty.path() / entry.path().filename());
  }
  EXPECT_EQ(OpenCC(empty.path()).convert("汉字", OpenCCMode::s2t), "漢字");
  EXPECT_THROW(converter.convert("汉字", OpenCCMode::s2t), OpenCCError);
}

TEST(OpenCCTest, MalformedUTF8ThrowsInsteadOfCrossingTheLibraryBoundary) {
  auto error = testing::thrown<OpenCCError>([] { OpenCC::shared().convert("汉\xff字", OpenCCMode::s2t); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->errorCase(), OpenCCError::Case::invalidText);
  EXPECT_EQ(error->mode(), OpenCCMode::s2t);
  EXPECT_TRUE(std::string(error->what()).starts_with("Chinese conversion \"s2t\" failed: ")) << error->what();
  EXPECT_EQ(OpenCC::shared().convert("\xff", OpenCCMode::none), "\xff");
}

TEST(OpenCCTest, ConvertsConcurrentlyWithOneCachedConverterPerMode) {
  OpenCC converter;
  std::vector<std::string> results(8);
  {
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < results.size(); ++i) {
      threads.emplace_back([&, i] {
        OpenCCMode mode = i % 2 == 0 ? OpenCCMode::s2t : OpenCCMode::t2s;
        std::string text = i % 2 == 0 ? "汉字" : "漢字";
        for (int round = 0; round < 20; ++round) results[i] = converter.convert(text, mode);
      });
    }
  }
  for (size_t i = 0; i < results.size(); ++i) EXPECT_EQ(results[i], i % 2 == 0 ? "漢字" : "汉字");
}

}  // namespace
}  // namespace orvid
