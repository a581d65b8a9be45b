#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/platform/internal/text.h"
#include "orvid/transcription/live_transcription_text_accumulator.h"
#include "orvid/transcription/realtime_transcript_accumulator.h"

namespace orvid {
namespace {

namespace Accumulator = RealtimeTranscriptAccumulator;

struct MergeCase {
  std::string current;
  std::string incoming;
  std::string expected;
};

// `count` distinct three-letter words.
std::string words(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    if (!text.empty()) text += ' ';
    text += "w" + std::string(1, static_cast<char>('a' + i % 26)) + std::string(1, static_cast<char>('a' + i / 26));
  }
  return text;
}

TEST(RealtimeTranscriptAccumulatorTest, MergeExtendsOverlapsRestatesRevisesOrJoins) {
  const std::string older = "so " + words(38) + " then";
  const std::string newer = "and " + words(38) + " after all";
  const std::vector<MergeCase> cases = {
      {"hello world", "hello world how are you", "hello world how are you"},
      {"hello world how are you", "hello world", "hello world how are you"},
      {"Hello, world.", "hello world", "Hello, world."},
      {"hello world", "Hello, world!", "Hello, world!"},
      {"Café", "CAFE", "Café"},
      {"ＡＢＣ", "abc", "ＡＢＣ"},
      {"the quick brown", "brown fox", "the quick brown fox"},
      {"你好", "世界", "你好世界"},
      {"안녕", "하세요", "안녕하세요"},
      {"hello", "world", "hello world"},
      {"hello", ", world", "hello, world"},
      {"abcdefgh", "ghijkl", "abcdefgh ghijkl"},
      {"ab ab ab", "ab ab c", "ab ab ab c"},
      {"hello wor", "world peace", "hello wor world peace"},
      {older, newer, newer},
      {"hello", "  \n ", "hello"},
      {"", "  hi  ", "hi"},
  };
  for (const auto& [current, incoming, expected] : cases) {
    SCOPED_TRACE(current + " + " + incoming);
    EXPECT_EQ(Accumulator::merge(current, incoming), expected);
  }
}

TEST(RealtimeTranscriptAccumulatorTest, MergeKeepsATextAgainstItselfAndAgainstEveryPrefixOfIt) {
  std::string long3000;  // 50 sentences of 60 scalars
  for (int i = 0; i < 50; ++i) long3000 += "Ça va, 東京? Über größte Straße — naïve café; 12.5% 你好世界! Yes.";
  const std::vector<std::string> texts = {
      "hello world how are you", "Crème brûlée à la façon d’Émile", "東京は晴れです。今日もいい天気ですね。",
      "Wait... what?! (No — really.) \"Quoted\", 'single'; a-b/c", "안녕하세요 세계, 반갑습니다",
      "De\u0301ja\u0300 vu, cafe\u0301", long3000};
  for (const std::string& text : texts) {
    EXPECT_EQ(Accumulator::merge(text, text), text);
    // Each merge folds all of `text`: the long one is cut at every 31st byte only.
    for (std::size_t cut = 1; cut < text.size(); cut += (text.size() > 1000 ? 31 : 1)) {
      // Not inside a scalar; cuts between a letter and its combining accent are tried too.
      if ((static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) continue;
      const std::string_view prefix = internal::trimUnicodeWhitespace(std::string_view(text).substr(0, cut));
      if (!prefix.empty()) {
        EXPECT_EQ(Accumulator::merge(text, prefix), text) << prefix;
      }
    }
  }
}

TEST(RealtimeTranscriptAccumulatorTest, OverlappingWindowKeepsTheShownTextOnlyAgainstAShortUnrelatedWindow) {
  const std::string hundred(100, 'a');
  const std::vector<MergeCase> cases = {
      {hundred, std::string(30, 'b'), hundred},
      {hundred, std::string(50, 'b'), std::string(50, 'b')},
      {std::string(200, 'a'), std::string(85, 'b'), std::string(85, 'b')},
      {std::string(200, 'a'), std::string(79, 'b'), std::string(200, 'a')},
      {"the quick brown", "brown fox", "the quick brown fox"},
      {"shown", " ", "shown"},
  };
  for (const auto& [current, incoming, expected] : cases) {
    SCOPED_TRACE(current + " + " + incoming);
    EXPECT_EQ(Accumulator::mergeOverlappingWindow(current, incoming), expected);
  }
}

TEST(RealtimeTranscriptAccumulatorTest, InterimBecomesTheTentativeTextUnlessCommittedCoversIt) {
  struct Case {
    std::string committed;
    std::string tentative;
    std::string incoming;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"hello world", "", "world", ""},
      {"hello world", "", "how are", "how are"},
      {"", "", " hi ", "hi"},
      {"hello world", "how are", "how are you", "how are you"},
      {"hello world", "how", "hello world how are you", "hello world how are you"},
  };
  for (const auto& [committed, tentative, incoming, expected] : cases) {
    SCOPED_TRACE(committed + " | " + tentative + " | " + incoming);
    EXPECT_EQ(Accumulator::ingestInterim(committed, tentative, incoming), expected);
  }
}

TEST(LiveTranscriptionTextAccumulatorTest, IngestsInterimsFinalsAndReplacements) {
  struct Step {
    TranscriptionPartialResult partial;
    std::string display;
  };
  const std::vector<Step> steps = {
      {{"hello", false, std::nullopt}, "hello"},
      {{"hello wor", false, std::nullopt}, "hello wor"},
      {{"hello world", true, std::nullopt}, "hello world"},
      {{"how are", false, false}, "hello world how are"},
      {{" \n ", true, true}, "hello world how are"},
      {{"how are you.", true, false}, "hello world how are you."},
      {{"Goodbye.", true, true}, "Goodbye."},
      {{"window one", false, true}, "window one"},
      {{"one two", false, true}, "window one two"},
  };
  LiveTranscriptionTextAccumulator accumulator;
  for (const auto& [partial, display] : steps) {
    SCOPED_TRACE(partial.text);
    EXPECT_EQ(accumulator.ingest(partial), display);
    EXPECT_EQ(accumulator.displayText(), display);
  }
  EXPECT_EQ(accumulator.committedText(), "");
  accumulator.reset();
  EXPECT_EQ(accumulator, LiveTranscriptionTextAccumulator());
}

}  // namespace
}  // namespace orvid
