// Feeds arbitrary text to InverseTextNormalizer. The first byte picks the language;
// the rest is the text. Nothing may throw, and the result is deterministic. English
// rules touch only number words, so text without ASCII letters comes back as it
// is; Chinese rules touch only Chinese numerals, so text without them comes back
// as it is; a language with no rules returns the text unchanged; well-formed text
// stays well-formed.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "orvid/core/corelib/text/inverse_text_normalizer.h"
#include "orvid/platform/internal/text.h"

namespace {

using orvid::fuzz::require;

using orvid::InverseTextNormalizer;
namespace internal = orvid::internal;

constexpr std::array<const char*, 10> kLanguages = {"en", "en-GB", "zh", "zh-Hant-TW", "yue", "cmn-Hans",
                                                    "wuu", "auto", "", "fr"};

// The numerals and number words of the Chinese rules, as UTF-8.
constexpr std::array<std::string_view, 28> kChineseNumerals = {
    "零", "〇", "一", "二", "两", "兩", "三", "四", "五", "六", "七", "八", "九", "十",
    "百", "千", "万", "萬", "亿", "億", "点", "點", "年", "月", "日", "号", "分", "第",
};

bool hasASCIILetter(std::string_view text) {
  for (const char c : text) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) return true;
  }
  return false;
}

bool hasChineseNumeral(std::string_view text) {
  for (const std::string_view numeral : kChineseNumerals) {
    if (text.find(numeral) != std::string_view::npos) return true;
  }
  return false;
}

std::vector<std::uint8_t> input(std::uint8_t language, std::string_view text) {
  std::vector<std::uint8_t> bytes = {language};
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}

orvid::fuzz::Seeds seeds() {
  return {
      {"english", input(0, "twenty three point five percent of one hundred and five dollars and fifty cents")},
      {"times", input(1, "at seven thirty p.m. or nineteen oh five, the twenty second, two point five million")},
      {"chinese", input(2, "二零二四年三月五日下午三点十五分，百分之二十三点五，第二十三，三千万元")},
      {"idioms", input(4, "十万火急 一五一十 三四年 一点一点 万一")},
      {"mixed", input(7, "one hundred 一百二十三 twelve o'clock")},
      {"other", input(9, "vingt-trois twenty three")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view language = kLanguages[data[0] % kLanguages.size()];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  const std::string normalized = InverseTextNormalizer::normalize(text, language);
  require(InverseTextNormalizer::normalize(text, language) == normalized, "normalising is deterministic");
  if (language == "fr") require(normalized == text, "a language without rules is unchanged");

  const std::string english = InverseTextNormalizer::normalizeEnglish(text);
  const std::string chinese = InverseTextNormalizer::normalizeChinese(text);
  if (!hasASCIILetter(text)) require(english == text, "English rules leave text without number words alone");
  if (!hasChineseNumeral(text)) require(chinese == text, "Chinese rules leave text without numerals alone");
  if (internal::isValidUTF8(text)) {
    require(internal::isValidUTF8(normalized) && internal::isValidUTF8(english) && internal::isValidUTF8(chinese),
            "well-formed text stays well-formed");
  }
  return 0;
}
