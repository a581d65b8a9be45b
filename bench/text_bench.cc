// Dictation cleanup of a 1,000-word transcript with 100 dictionary terms (the median
// of five repetitions is the time per transcript) and inverse text normalisation
// throughput. Each sits beside a baseline for the same bytes: one
// UTF-8 -> UTF-16 -> UTF-8 round trip through ICU, the conversion every text step
// starts and ends with, and the "vs_memcpy" counter.

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unicode/unistr.h>

#include "bench/bench_support.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/core/corelib/text/inverse_text_normalizer.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/textprocessing/transcript_cleanup_engine.h"

namespace {

constexpr int kTranscriptWords = 1000;
constexpr int kDictionaryTerms = 100;

// 100 product-style terms: camel case ("ZentoFlux"), capitals ("QRV") and plain
// names ("Marlowe"), all distinct.
const std::vector<std::string>& dictionaryTerms() {
  static const std::vector<std::string> terms = [] {
    const std::vector<std::string> syllables = {"zen", "to", "flux", "mar", "lo", "we", "kube", "ra", "vix",
                                                "dor",  "ta", "quin", "sol", "ar", "nex", "pri", "mo", "del"};
    std::mt19937 random(2024);
    std::vector<std::string> result;
    auto syllable = [&] { return syllables[random() % syllables.size()]; };
    auto capitalised = [](std::string word) {
      word[0] = static_cast<char>(word[0] - 'a' + 'A');
      return word;
    };
    while (result.size() < kDictionaryTerms) {
      std::string term;
      switch (result.size() % 3) {
        case 0: term = capitalised(syllable() + syllable()) + capitalised(syllable()); break;
        case 1:
          for (int i = 0; i < 3; ++i) term.push_back(static_cast<char>('A' + random() % 26));
          break;
        default: term = capitalised(syllable() + syllable() + syllable()); break;
      }
      bool known = false;
      for (const std::string& existing : result) known = known || existing == term;
      if (!known) result.push_back(term);
    }
    return result;
  }();
  return terms;
}

// A spoken transcript of 1,000 words: everyday words with fillers, stutters and,
// every twentieth word or so, a dictionary term as speech recognition writes it
// (lower case, camel case split, capitals spelt out, one letter wrong).
const std::string& transcript() {
  static const std::string text = [] {
    const std::vector<std::string> words = {
        "so",   "we",    "should", "deploy", "the",   "new",  "build", "to",   "staging", "before", "lunch",
        "and",  "then",  "check",  "whether", "it",   "works", "with", "our",  "old",     "client", "because",
        "last", "time",  "it",     "did",    "not",   "quite", "do",   "what", "we",      "wanted", "um",
        "uh",   "like",  "I",      "think",  "maybe", "yes",   "okay", "right"};
    const auto& terms = dictionaryTerms();
    std::mt19937 random(7);
    std::string result;
    int count = 0;
    auto append = [&](const std::string& word) {
      if (!result.empty()) result.push_back(' ');
      result += word;
      ++count;
    };
    while (count < kTranscriptWords) {
      if (random() % 20 == 0) {
        std::string term = terms[random() % terms.size()];
        std::string spoken;
        for (char c : term) {
          if (c >= 'A' && c <= 'Z' && !spoken.empty()) spoken.push_back(' ');
          spoken.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c));
        }
        if (random() % 2 == 0 && spoken.size() > 4) spoken[spoken.size() / 2] = 'e';
        append(spoken);
      } else {
        const std::string& word = words[random() % words.size()];
        append(word);
        if (random() % 25 == 0) append(word);
      }
    }
    return result;
  }();
  return text;
}

// English and Chinese sentences with numbers, times, money and dates, repeated to
// about 64 KiB.
const std::string& numberText() {
  static const std::string text = [] {
    const std::string sentences =
        "I paid twenty three dollars and fifty cents for two thousand twenty four tickets. "
        "The rate went up twenty three point five percent in nineteen ninety nine. "
        "See you at seven thirty pm on May twenty second, the one hundredth time. "
        "我们在二零二四年三月五日卖出了一千二百三十四台，增长了百分之十二点五。"
        "会议三点十五分开始，预算是三点五亿元，第二十三名。"
        "Nothing here is a number, and one of them stays a word. ";
    std::string result;
    while (result.size() < 64 * 1024) result += sentences;
    return result;
  }();
  return text;
}

std::string icuRoundTrip(const std::string& text) {
  icu::UnicodeString unicode =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  std::string back;
  unicode.toUTF8String(back);
  return back;
}

// An engine whose settings file switches the host steps as asked.
struct CleanupSetup {
  explicit CleanupSetup(bool hostSteps) : defaults(folder.path() / "settings.json"), engine(defaults) {
    orvid::OrvidSettings settings;
    settings.autocorrectEnabled = hostSteps;
    settings.inverseTextNormalizationEnabled = hostSteps;
    orvid::OrvidSettingsPersistence::save(settings, defaults);
  }
  orvid::TemporaryDirectory folder;
  orvid::UserDefaults defaults;
  orvid::TranscriptCleanupEngine engine;
};

orvid::TranscriptCleanupConfiguration cleanupConfiguration() {
  return {dictionaryTerms(), std::nullopt, 0.85, true, true};
}

void setBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

void setWords(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kTranscriptWords);
}

// One transcript per iteration; items are words. arg 0: the cleanup steps only;
// arg 1: with autocorrect and inverse text normalisation switched on.
void BM_CleanTranscript(benchmark::State& state) {
  CleanupSetup setup(state.range(0) == 1);
  const auto configuration = cleanupConfiguration();
  const std::string& text = transcript();
  const orvid::bench::MemcpyComparison comparison(text.size());
  for (auto _ : state) {
    std::string cleaned = setup.engine.clean(text, configuration, "en");
    benchmark::DoNotOptimize(cleaned.data());
  }
  setBytes(state, text.size());
  setWords(state);
  comparison.report(state);
}

void BM_ICURoundTripTranscript(benchmark::State& state) {
  const std::string& text = transcript();
  for (auto _ : state) {
    std::string back = icuRoundTrip(text);
    benchmark::DoNotOptimize(back.data());
  }
  setBytes(state, text.size());
  setWords(state);
}

// Bytes of mixed English and Chinese text per second.
void BM_InverseTextNormalization(benchmark::State& state) {
  const std::string& text = numberText();
  const orvid::bench::MemcpyComparison comparison(text.size());
  for (auto _ : state) {
    std::string normalized = orvid::InverseTextNormalizer::normalize(text, "auto");
    benchmark::DoNotOptimize(normalized.data());
  }
  setBytes(state, text.size());
  comparison.report(state);
}

void BM_ICURoundTripNumberText(benchmark::State& state) {
  const std::string& text = numberText();
  for (auto _ : state) {
    std::string back = icuRoundTrip(text);
    benchmark::DoNotOptimize(back.data());
  }
  setBytes(state, text.size());
}

// Five repetitions: the median is the figure per transcript.
BENCHMARK(BM_CleanTranscript)->Arg(0)->Arg(1)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ICURoundTripTranscript)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_InverseTextNormalization)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ICURoundTripNumberText)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
