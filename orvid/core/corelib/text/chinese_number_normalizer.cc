#include "orvid/core/corelib/text/inverse_text_normalizer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "orvid/core/corelib/text/unicode_text.h"

// InverseTextNormalizer::normalizeChinese: Chinese numerals written as digits
// (cardinals, years, dates, decimals, times and percentages; the rules are listed
// in inverse_text_normalizer.h).
namespace orvid {
namespace {

int chineseDigit(char32_t c) {
  switch (c) {
    case U'零': case U'〇': case U'○': return 0;
    case U'一': return 1;
    case U'二': case U'两': case U'兩': return 2;
    case U'三': return 3;
    case U'四': return 4;
    case U'五': return 5;
    case U'六': return 6;
    case U'七': return 7;
    case U'八': return 8;
    case U'九': return 9;
    default: return -1;
  }
}

int64_t chineseUnit(char32_t c) {
  switch (c) {
    case U'十': return 10;
    case U'百': return 100;
    case U'千': return 1000;
    default: return 0;
  }
}

int64_t chineseScale(char32_t c) {
  switch (c) {
    case U'万': case U'萬': return 10'000;
    case U'亿': case U'億': return 100'000'000;
    default: return 0;
  }
}

bool isChineseNumeral(char32_t c) { return chineseDigit(c) >= 0 || chineseUnit(c) > 0 || chineseScale(c) > 0; }
bool isChinesePoint(char32_t c) { return c == U'点' || c == U'點'; }
// A digit as read out one by one: not 两, which only counts.
bool isBareDigit(char32_t c) { return chineseDigit(c) >= 0 && c != U'两' && c != U'兩'; }

struct ChineseNumber {
  int64_t value = 0;
  int64_t largestScale = 0;
  char32_t scaleCharacter = 0;
  bool hasUnit = false;
};

// Parses a counted number ("一千零五十", "三百五", "一亿两千万"). Absent when the
// characters are not one well-formed number.
std::optional<ChineseNumber> parseChineseCardinal(std::u32string_view text) {
  if (text.empty()) return std::nullopt;
  ChineseNumber result;
  int64_t total = 0;
  int64_t section = 0;
  int pending = -1;
  int64_t lastUnit = std::numeric_limits<int64_t>::max();
  int64_t lastScale = std::numeric_limits<int64_t>::max();
  int64_t previousUnit = 0;  // unit or scale right before the pending digit
  bool zero = false;
  auto settlePending = [&]() {
    if (pending < 0) return;
    if (!zero && previousUnit >= 100) {
      section += pending * (previousUnit / 10);  // "三百五" is 350
    } else {
      section += pending;
    }
    pending = -1;
  };
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (int digit = chineseDigit(c); digit >= 0) {
      if (pending >= 0) return std::nullopt;
      if (digit == 0) {
        if ((total == 0 && section == 0) || zero) return std::nullopt;
        zero = true;
        previousUnit = 0;
        continue;
      }
      pending = digit;
    } else if (int64_t unit = chineseUnit(c); unit > 0) {
      int64_t multiplier = pending;
      if (pending < 0) {
        if (unit != 10 || i != 0) return std::nullopt;
        multiplier = 1;
      }
      if (unit >= lastUnit) return std::nullopt;
      section += multiplier * unit;
      lastUnit = unit;
      pending = -1;
      zero = false;
      previousUnit = unit;
      result.hasUnit = true;
    } else if (int64_t scale = chineseScale(c); scale > 0) {
      if (pending >= 0 && previousUnit >= 100 && !zero) {
        section += pending * (previousUnit / 10);
        pending = -1;
      } else if (pending >= 0) {
        section += pending;
        pending = -1;
      }
      if (section == 0 || scale >= lastScale) return std::nullopt;
      total += section * scale;
      section = 0;
      lastUnit = std::numeric_limits<int64_t>::max();
      lastScale = scale;
      zero = false;
      previousUnit = scale;
      result.hasUnit = true;
      if (result.largestScale == 0) {
        result.largestScale = scale;
        result.scaleCharacter = c;
      }
    } else {
      return std::nullopt;
    }
  }
  if (zero && pending < 0) return std::nullopt;  // a trailing 零
  settlePending();
  result.value = total + section;
  return result;
}

std::string bareDigits(std::u32string_view text) {
  std::string digits;
  for (char32_t c : text) digits += static_cast<char>('0' + chineseDigit(c));
  return digits;
}

std::string formatChineseCardinal(const ChineseNumber& number) {
  if (number.largestScale > 0 && number.value % number.largestScale == 0) {
    return std::to_string(number.value / number.largestScale) + unicode_text::toUTF8(std::u32string(1, number.scaleCharacter));
  }
  return std::to_string(number.value);
}

// Integer part of a decimal or an hour: a single digit (零 included) or a cardinal.
std::optional<int64_t> parseChineseInteger(std::u32string_view text) {
  if (text.size() == 1 && chineseDigit(text[0]) >= 0) return chineseDigit(text[0]);
  auto number = parseChineseCardinal(text);
  if (!number || !number->hasUnit || number->largestScale > 0) return std::nullopt;
  return number->value;
}

constexpr std::array<std::u32string_view, 22> kChineseIdioms{
    U"十万火急", U"十萬火急", U"一五一十",     U"三十而立",     U"四十不惑",     U"五十步笑百步",
    U"千千万万", U"千千萬萬", U"成千上万",     U"成千上萬",     U"九九归一",     U"九九歸一",
    U"十之八九", U"三三两两", U"三三兩兩",     U"一点一点",     U"一點一點",     U"三十六计",
    U"三十六計", U"七十二变", U"七十二變",     U"十八般武艺"};

class ChineseNormalizer {
 public:
  explicit ChineseNormalizer(std::string_view text) : text_(unicode_text::toUTF32(text)) {
    for (std::u32string_view idiom : kChineseIdioms) {
      for (size_t at = text_.find(idiom); at != std::u32string::npos; at = text_.find(idiom, at + 1)) {
        protected_.push_back({at, at + idiom.size()});
      }
    }
  }

  std::u32string run() {
    size_t i = 0;
    while (i < text_.size()) {
      if (std::u32string_view(text_).substr(i, 3) == U"百分之") {
        size_t end = runEnd(i + 3);
        if (end > i + 3 && !isProtected(i, end)) {
          if (auto percent = formatPercent(std::u32string_view(text_).substr(i + 3, end - i - 3))) {
            out_ += unicode_text::toUTF32(*percent);
            i = end;
            continue;
          }
        }
      }
      if (!isChineseNumeral(text_[i])) {
        out_.push_back(text_[i++]);
        continue;
      }
      i = normalizeRun(i, runEnd(i));
    }
    return out_;
  }

 private:
  // The end of the run of numerals starting at `start`; 点 joins numerals on both sides.
  size_t runEnd(size_t start) const {
    size_t end = start;
    while (end < text_.size()) {
      if (isChineseNumeral(text_[end])) {
        ++end;
      } else if (isChinesePoint(text_[end]) && end > start && end + 1 < text_.size() &&
                 isChineseNumeral(text_[end + 1])) {
        ++end;
      } else {
        break;
      }
    }
    return end;
  }

  bool isProtected(size_t begin, size_t end) const {
    return std::any_of(protected_.begin(), protected_.end(),
                       [&](const auto& range) { return range.first < end && begin < range.second; });
  }

  char32_t at(size_t index) const { return index < text_.size() ? text_[index] : U'\0'; }

  static std::optional<std::string> formatDecimal(std::u32string_view run) {
    size_t point = run.find_first_of(U"点點");
    if (point == std::u32string_view::npos) return std::nullopt;
    auto integer = parseChineseInteger(run.substr(0, point));
    if (!integer) return std::nullopt;
    std::u32string_view rest = run.substr(point + 1);
    size_t digits = 0;
    while (digits < rest.size() && isBareDigit(rest[digits])) ++digits;
    if (digits == 0) return std::nullopt;
    std::string text = std::to_string(*integer) + "." + bareDigits(rest.substr(0, digits));
    std::u32string_view tail = rest.substr(digits);
    if (tail.empty()) return text;
    if (tail.size() == 1 && chineseScale(tail[0]) > 0) return text + unicode_text::toUTF8(tail);
    return std::nullopt;
  }

  static std::optional<std::string> formatPercent(std::u32string_view run) {
    if (run == U"百") return "100%";
    if (auto decimal = formatDecimal(run)) return *decimal + "%";
    if (run.find_first_of(U"点點") != std::u32string_view::npos) return std::nullopt;
    if (auto integer = parseChineseInteger(run)) return std::to_string(*integer) + "%";
    return std::nullopt;
  }

  // Writes the run [begin, end) as digits where a rule applies, else as it is;
  // returns where to continue.
  size_t normalizeRun(size_t begin, size_t end) {
    std::u32string_view run = std::u32string_view(text_).substr(begin, end - begin);
    auto keep = [&] {
      out_.append(run);
      return end;
    };
    auto write = [&](const std::string& digits) {
      out_ += unicode_text::toUTF32(digits);
      return end;
    };
    if (isProtected(begin, end)) return keep();

    if (at(end) == U'月') {
      if (auto next = normalizeDate(run, end)) return *next;
    }

    bool allBare = std::all_of(run.begin(), run.end(), isBareDigit);
    if (allBare && at(end) == U'年') {
      bool countingUp = run.size() == 2 && chineseDigit(run[1]) == chineseDigit(run[0]) + 1;
      if (run.size() == 4 || (run.size() == 2 && !countingUp)) return write(bareDigits(run));
      return keep();
    }

    size_t point = run.find_first_of(U"点點");
    if (point != std::u32string_view::npos) {
      if (at(end) == U'分') {
        auto hour = parseChineseInteger(run.substr(0, point));
        std::u32string_view minuteText = run.substr(point + 1);
        std::optional<int64_t> minutes;
        if (minuteText.size() == 2 && chineseDigit(minuteText[0]) == 0 && chineseDigit(minuteText[1]) > 0) {
          minutes = chineseDigit(minuteText[1]);
        } else {
          minutes = parseChineseInteger(minuteText);
        }
        if (hour && minutes && *hour <= 24 && *minutes <= 59) {
          std::string time = std::to_string(*hour) + (*minutes < 10 ? ":0" : ":") + std::to_string(*minutes);
          write(time);
          return end + 1;  // the 分 belongs to the time
        }
      }
      if (auto decimal = formatDecimal(run)) return write(*decimal);
      return keep();
    }

    if (run.size() < 2 || chineseDigit(run[0]) == 0) return keep();
    if (chineseDigit(run[0]) < 0 && run[0] != U'十') return keep();
    auto number = parseChineseCardinal(run);
    if (!number || !number->hasUnit) return keep();
    return write(formatChineseCardinal(*number));
  }

  // A month (一 to 十二) or a day of the month (一 to 三十一).
  static std::optional<int64_t> datePart(std::u32string_view run, int64_t largest) {
    if (run.empty() || chineseDigit(run[0]) == 0) return std::nullopt;
    if (run.find_first_of(U"点點") != std::u32string_view::npos) return std::nullopt;
    auto value = parseChineseInteger(run);
    if (!value || *value < 1 || *value > largest) return std::nullopt;
    return value;
  }

  // The month `run` before the 月 at `monthMark`: with a day ("三月五日",
  // "十月一号") both become digits; alone only right after a year already written
  // in digits ("2024年三月"). Returns where to continue, or absent to leave the run
  // to the other rules.
  std::optional<size_t> normalizeDate(std::u32string_view run, size_t monthMark) {
    auto month = datePart(run, 12);
    if (!month) return std::nullopt;
    size_t dayStart = monthMark + 1;
    if (dayStart < text_.size() && isChineseNumeral(text_[dayStart])) {
      size_t dayEnd = runEnd(dayStart);
      char32_t dayMark = at(dayEnd);
      auto day = datePart(std::u32string_view(text_).substr(dayStart, dayEnd - dayStart), 31);
      if (day && (dayMark == U'日' || dayMark == U'号' || dayMark == U'號') && !isProtected(dayStart, dayEnd)) {
        out_ += unicode_text::toUTF32(std::to_string(*month)) + U'月' + unicode_text::toUTF32(std::to_string(*day)) +
                dayMark;
        return dayEnd + 1;
      }
    }
    bool afterWrittenYear = out_.size() >= 2 && out_.back() == U'年' && unicode_text::isASCIIDigit(out_[out_.size() - 2]);
    if (!afterWrittenYear) return std::nullopt;
    out_ += unicode_text::toUTF32(std::to_string(*month));
    return monthMark;
  }

  std::u32string text_;
  std::u32string out_;
  std::vector<std::pair<size_t, size_t>> protected_;
};

}  // namespace

std::string InverseTextNormalizer::normalizeChinese(std::string_view text) {
  bool hasNumeral = false;
  for (char32_t c : unicode_text::toUTF32(text)) {
    if (isChineseNumeral(c)) {
      hasNumeral = true;
      break;
    }
  }
  if (!hasNumeral) return std::string(text);
  return unicode_text::toUTF8(ChineseNormalizer(text).run());
}

}  // namespace orvid
