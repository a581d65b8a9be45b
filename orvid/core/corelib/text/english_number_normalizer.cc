#include "orvid/core/corelib/text/inverse_text_normalizer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "orvid/platform/internal/text.h"

// InverseTextNormalizer::normalizeEnglish: English number words written as
// digits (cardinals, ordinals, decimals, percentages, currency, times and years;
// the rules are listed in inverse_text_normalizer.h).
namespace orvid {
namespace {

std::string groupedDigits(int64_t value) {
  std::string digits = std::to_string(value);
  if (value < 10000) return digits;
  std::string grouped;
  int count = 0;
  for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
    if (count > 0 && count % 3 == 0) grouped.insert(grouped.begin(), ',');
    grouped.insert(grouped.begin(), *it);
    ++count;
  }
  return grouped;
}

std::string ordinalSuffix(int64_t value) {
  int64_t lastTwo = value % 100;
  if (lastTwo >= 11 && lastTwo <= 13) return "th";
  switch (value % 10) {
    case 1: return "st";
    case 2: return "nd";
    case 3: return "rd";
    default: return "th";
  }
}

enum class WordKind { unit, teen, tens, hundred, scale };

struct NumberWord {
  WordKind kind;
  int64_t value;
  bool ordinal;
};

std::optional<NumberWord> englishNumberWord(std::string_view word) {
  static const std::map<std::string_view, NumberWord, std::less<>> kWords = {
      {"zero", {WordKind::unit, 0, false}},        {"one", {WordKind::unit, 1, false}},
      {"two", {WordKind::unit, 2, false}},         {"three", {WordKind::unit, 3, false}},
      {"four", {WordKind::unit, 4, false}},        {"five", {WordKind::unit, 5, false}},
      {"six", {WordKind::unit, 6, false}},         {"seven", {WordKind::unit, 7, false}},
      {"eight", {WordKind::unit, 8, false}},       {"nine", {WordKind::unit, 9, false}},
      {"first", {WordKind::unit, 1, true}},        {"second", {WordKind::unit, 2, true}},
      {"third", {WordKind::unit, 3, true}},        {"fourth", {WordKind::unit, 4, true}},
      {"fifth", {WordKind::unit, 5, true}},        {"sixth", {WordKind::unit, 6, true}},
      {"seventh", {WordKind::unit, 7, true}},      {"eighth", {WordKind::unit, 8, true}},
      {"ninth", {WordKind::unit, 9, true}},        {"ten", {WordKind::teen, 10, false}},
      {"eleven", {WordKind::teen, 11, false}},     {"twelve", {WordKind::teen, 12, false}},
      {"thirteen", {WordKind::teen, 13, false}},   {"fourteen", {WordKind::teen, 14, false}},
      {"fifteen", {WordKind::teen, 15, false}},    {"sixteen", {WordKind::teen, 16, false}},
      {"seventeen", {WordKind::teen, 17, false}},  {"eighteen", {WordKind::teen, 18, false}},
      {"nineteen", {WordKind::teen, 19, false}},   {"tenth", {WordKind::teen, 10, true}},
      {"eleventh", {WordKind::teen, 11, true}},    {"twelfth", {WordKind::teen, 12, true}},
      {"thirteenth", {WordKind::teen, 13, true}},  {"fourteenth", {WordKind::teen, 14, true}},
      {"fifteenth", {WordKind::teen, 15, true}},   {"sixteenth", {WordKind::teen, 16, true}},
      {"seventeenth", {WordKind::teen, 17, true}}, {"eighteenth", {WordKind::teen, 18, true}},
      {"nineteenth", {WordKind::teen, 19, true}},  {"twenty", {WordKind::tens, 20, false}},
      {"thirty", {WordKind::tens, 30, false}},     {"forty", {WordKind::tens, 40, false}},
      {"fifty", {WordKind::tens, 50, false}},      {"sixty", {WordKind::tens, 60, false}},
      {"seventy", {WordKind::tens, 70, false}},    {"eighty", {WordKind::tens, 80, false}},
      {"ninety", {WordKind::tens, 90, false}},     {"twentieth", {WordKind::tens, 20, true}},
      {"thirtieth", {WordKind::tens, 30, true}},   {"fortieth", {WordKind::tens, 40, true}},
      {"fiftieth", {WordKind::tens, 50, true}},    {"sixtieth", {WordKind::tens, 60, true}},
      {"seventieth", {WordKind::tens, 70, true}},  {"eightieth", {WordKind::tens, 80, true}},
      {"ninetieth", {WordKind::tens, 90, true}},   {"hundred", {WordKind::hundred, 100, false}},
      {"hundredth", {WordKind::hundred, 100, true}},
      {"thousand", {WordKind::scale, 1'000, false}},
      {"thousandth", {WordKind::scale, 1'000, true}},
      {"million", {WordKind::scale, 1'000'000, false}},
      {"millionth", {WordKind::scale, 1'000'000, true}},
      {"billion", {WordKind::scale, 1'000'000'000, false}},
      {"billionth", {WordKind::scale, 1'000'000'000, true}},
      {"trillion", {WordKind::scale, 1'000'000'000'000, false}},
      {"trillionth", {WordKind::scale, 1'000'000'000'000, true}},
  };
  auto it = kWords.find(word);
  if (it == kWords.end()) return std::nullopt;
  return it->second;
}

bool isMonthName(std::string_view word) {
  static constexpr std::array<std::string_view, 12> kMonths{"january", "february", "march",     "april",
                                                           "may",     "june",     "july",      "august",
                                                           "september", "october", "november", "december"};
  return std::find(kMonths.begin(), kMonths.end(), word) != kMonths.end();
}

struct Token {
  enum class Kind { word, space, other };
  Kind kind;
  std::string text;
  std::string lower;  // words only
};

bool isASCIILetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::vector<Token> tokenizeEnglish(std::string_view text) {
  std::vector<Token> tokens;
  size_t i = 0;
  while (i < text.size()) {
    size_t start = i;
    if (isASCIILetter(text[i])) {
      while (i < text.size()) {
        if (isASCIILetter(text[i])) {
          ++i;
        } else if ((text[i] == '\'' || text[i] == '-') && i + 1 < text.size() && isASCIILetter(text[i + 1])) {
          i += 2;
        } else {
          break;
        }
      }
      std::string word(text.substr(start, i - start));
      std::string lower = internal::lowercaseASCII(word);
      tokens.push_back({Token::Kind::word, std::move(word), std::move(lower)});
    } else if (internal::isASCIIWhitespace(text[i])) {
      while (i < text.size() && internal::isASCIIWhitespace(text[i])) ++i;
      tokens.push_back({Token::Kind::space, std::string(text.substr(start, i - start)), {}});
    } else {
      ++i;
      tokens.push_back({Token::Kind::other, std::string(text.substr(start, 1)), {}});
    }
  }
  return tokens;
}

bool isInlineSpace(const Token& token) {
  return token.kind == Token::Kind::space && token.text.find_first_of("\n\r") == std::string::npos;
}

std::vector<std::string_view> hyphenParts(std::string_view word) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  while (true) {
    size_t dash = word.find('-', start);
    parts.push_back(word.substr(start, dash == std::string_view::npos ? std::string_view::npos : dash - start));
    if (dash == std::string_view::npos) break;
    start = dash + 1;
  }
  return parts;
}

// A word made only of number words, possibly joined by hyphens ("twenty-three").
bool isNumberCompound(std::string_view word) {
  for (std::string_view part : hyphenParts(word)) {
    if (!englishNumberWord(part)) return false;
  }
  return true;
}

bool isDigitWord(std::string_view word) {
  if (word == "oh") return true;
  auto number = englishNumberWord(word);
  return number && number->kind == WordKind::unit && !number->ordinal;
}

bool isNonZeroUnitWord(std::string_view word) {
  auto number = englishNumberWord(word);
  return number && number->kind == WordKind::unit && !number->ordinal && number->value > 0;
}

struct Sub {
  std::string word;
  std::optional<NumberWord> number;
  size_t runWord;  // index into the run's words
  bool endsWord;
};

struct NumberParse {
  size_t end = 0;
  int64_t value = 0;
  bool ordinal = false;
  bool year = false;
  std::optional<std::string> fraction;
  int64_t keptScale = 0;
};

bool is(const Sub& sub, WordKind kind, bool ordinal = false) {
  return sub.number && sub.number->kind == kind && sub.number->ordinal == ordinal;
}

std::optional<NumberParse> parseCardinal(const std::vector<Sub>& subs, size_t pos) {
  enum class Last { none, zero, unit, teen, tens, hundred, scale, conjunction };
  int64_t total = 0;
  int64_t group = 0;
  int64_t lastScale = std::numeric_limits<int64_t>::max();
  int scaleCount = 0;
  Last last = Last::none;
  std::optional<NumberParse> best;
  for (size_t k = pos; k < subs.size(); ++k) {
    const Sub& sub = subs[k];
    if (sub.word == "and") {
      bool afterGroup = last == Last::hundred || last == Last::scale;
      bool beforeSmall = k + 1 < subs.size() && subs[k + 1].number &&
                         (subs[k + 1].number->kind == WordKind::teen || subs[k + 1].number->kind == WordKind::tens ||
                          (subs[k + 1].number->kind == WordKind::unit && subs[k + 1].number->value > 0));
      if (!afterGroup || !beforeSmall) break;
      last = Last::conjunction;
      continue;
    }
    if (!sub.number) break;
    const NumberWord& word = *sub.number;
    bool open = last == Last::none || last == Last::hundred || last == Last::scale || last == Last::conjunction;
    bool accepted = false;
    switch (word.kind) {
      case WordKind::unit:
        if (word.value == 0) {
          accepted = last == Last::none;
          last = Last::zero;
        } else {
          accepted = open || last == Last::tens;
          group += word.value;
          last = Last::unit;
        }
        break;
      case WordKind::teen:
      case WordKind::tens:
        accepted = open;
        group += word.value;
        last = word.kind == WordKind::teen ? Last::teen : Last::tens;
        break;
      case WordKind::hundred:
        accepted = group > 0 && group < 100 && (last == Last::unit || last == Last::teen || last == Last::tens);
        group *= 100;
        last = Last::hundred;
        break;
      case WordKind::scale:
        accepted = group > 0 && word.value < lastScale &&
                   (last == Last::unit || last == Last::teen || last == Last::tens || last == Last::hundred);
        total += group * word.value;
        group = 0;
        lastScale = word.value;
        ++scaleCount;
        last = Last::scale;
        break;
    }
    if (!accepted) break;
    if (!sub.endsWord && !word.ordinal) continue;
    if (!sub.endsWord) break;  // an ordinal inside a hyphenated word ("first-rate")
    NumberParse parse;
    parse.end = k + 1;
    parse.value = total + group;
    parse.ordinal = word.ordinal;
    if (last == Last::scale && scaleCount == 1 && lastScale >= 1'000'000 && !word.ordinal) {
      parse.keptScale = lastScale;
    }
    best = parse;
    if (word.ordinal || last == Last::zero) break;
  }
  if (!best || best->ordinal) return best;

  // "<number> point <digits> [scale]"
  size_t k = best->end;
  if (k + 1 < subs.size() && subs[k].word == "point" && isDigitWord(subs[k + 1].word)) {
    std::string fraction;
    ++k;
    while (k < subs.size() && isDigitWord(subs[k].word)) {
      fraction += subs[k].word == "oh" ? '0' : static_cast<char>('0' + subs[k].number->value);
      ++k;
    }
    best->end = k;
    best->fraction = fraction;
    best->keptScale = 0;
    if (k < subs.size() && is(subs[k], WordKind::scale) && scaleCount == 0 && best->value < 1000) {
      best->keptScale = subs[k].number->value;
      best->end = k + 1;
    }
  }
  return best;
}

std::optional<NumberParse> parseYear(const std::vector<Sub>& subs, size_t pos) {
  if (pos + 1 >= subs.size() || !subs[pos].endsWord) return std::nullopt;
  const Sub& first = subs[pos];
  bool century = (is(first, WordKind::teen) && first.number->value >= 15) ||
                 (is(first, WordKind::tens) && first.number->value == 20);
  if (!century) return std::nullopt;
  size_t k = pos + 1;
  int64_t lastTwo = 0;
  const Sub& second = subs[k];
  if (second.word == "oh") {
    if (k + 1 >= subs.size() || !isNonZeroUnitWord(subs[k + 1].word)) return std::nullopt;
    lastTwo = subs[k + 1].number->value;
    k += 2;
  } else if (is(second, WordKind::teen)) {
    lastTwo = second.number->value;
    k += 1;
  } else if (is(second, WordKind::tens)) {
    lastTwo = second.number->value;
    k += 1;
    if (k < subs.size() && isNonZeroUnitWord(subs[k].word)) {
      lastTwo += subs[k].number->value;
      k += 1;
    }
  } else if (is(second, WordKind::hundred) && is(first, WordKind::teen)) {
    k += 1;
  } else {
    return std::nullopt;
  }
  if (!subs[k - 1].endsWord) return std::nullopt;
  NumberParse parse;
  parse.end = k;
  parse.value = first.number->value * 100 + lastTwo;
  parse.year = true;
  return parse;
}

struct Suffix {
  size_t tokens = 0;  // tokens consumed after the run
  std::string text;
};

const Token* tokenAt(const std::vector<Token>& tokens, size_t index) {
  return index < tokens.size() ? &tokens[index] : nullptr;
}

bool isWord(const Token* token, std::string_view lower) {
  return token && token->kind == Token::Kind::word && token->lower == lower;
}

bool isOther(const Token* token, std::string_view text) {
  return token && token->kind == Token::Kind::other && token->text == text;
}

// The am/pm marker or "o'clock" that follows a spoken time at `index`.
std::optional<Suffix> timeSuffix(const std::vector<Token>& tokens, size_t index) {
  const Token* space = tokenAt(tokens, index);
  if (!space || !isInlineSpace(*space)) return std::nullopt;
  const Token* word = tokenAt(tokens, index + 1);
  if (isWord(word, "am")) return Suffix{2, " AM"};
  if (isWord(word, "pm")) return Suffix{2, " PM"};
  if (isWord(word, "o'clock")) return Suffix{2, ""};
  if (isWord(word, "a") || isWord(word, "p")) {
    std::string marker = word->lower == "a" ? " AM" : " PM";
    // "a.m." keeps its written form; only the number is rewritten.
    if (isOther(tokenAt(tokens, index + 2), ".") && isWord(tokenAt(tokens, index + 3), "m")) return Suffix{0, ""};
    const Token* gap = tokenAt(tokens, index + 2);
    if (gap && isInlineSpace(*gap) && isWord(tokenAt(tokens, index + 3), "m")) return Suffix{4, marker};
  }
  return std::nullopt;
}

std::optional<std::string> formatTime(const std::vector<Sub>& subs, const std::vector<Token>& tokens,
                                      size_t afterRun, size_t& consumedTokens) {
  if (subs.empty() || !subs[0].endsWord) return std::nullopt;
  const Sub& hourWord = subs[0];
  bool hour = (is(hourWord, WordKind::unit) && hourWord.number->value > 0) ||
              (is(hourWord, WordKind::teen) && hourWord.number->value <= 12);
  if (!hour) return std::nullopt;
  size_t k = 1;
  std::optional<int64_t> minutes;
  if (k < subs.size()) {
    if (subs[k].word == "oh" && k + 1 < subs.size() && isNonZeroUnitWord(subs[k + 1].word)) {
      minutes = subs[k + 1].number->value;
      k += 2;
    } else if (is(subs[k], WordKind::teen)) {
      minutes = subs[k].number->value;
      k += 1;
    } else if (is(subs[k], WordKind::tens) && subs[k].number->value <= 50) {
      minutes = subs[k].number->value;
      k += 1;
      if (k < subs.size() && isNonZeroUnitWord(subs[k].word)) {
        *minutes += subs[k].number->value;
        k += 1;
      }
    } else {
      return std::nullopt;
    }
  }
  if (k != subs.size()) return std::nullopt;
  auto suffix = timeSuffix(tokens, afterRun);
  if (!suffix) return std::nullopt;
  bool oclock = isWord(tokenAt(tokens, afterRun + 1), "o'clock");
  if (oclock && minutes) return std::nullopt;
  consumedTokens = suffix->tokens;
  std::string text = std::to_string(hourWord.number->value);
  if (minutes) {
    text += (*minutes < 10 ? ":0" : ":") + std::to_string(*minutes);
  } else if (oclock) {
    text += ":00";
  }
  return text + suffix->text;
}

std::string formatNumber(const NumberParse& parse) {
  if (parse.year) return std::to_string(parse.value);
  std::string text;
  if (parse.fraction) {
    text = std::to_string(parse.value) + "." + *parse.fraction;
  } else if (parse.keptScale > 0) {
    text = groupedDigits(parse.value / parse.keptScale);
  } else {
    text = groupedDigits(parse.value);
  }
  if (parse.keptScale > 0) {
    switch (parse.keptScale) {
      case 1'000: text += " thousand"; break;
      case 1'000'000: text += " million"; break;
      case 1'000'000'000: text += " billion"; break;
      default: text += " trillion"; break;
    }
  }
  if (parse.ordinal) text += ordinalSuffix(parse.value);
  return text;
}

// Cents after "<number> dollars": " and fifty cents". Returns the value and the tokens used.
std::optional<std::pair<int64_t, size_t>> centsSuffix(const std::vector<Token>& tokens, size_t index) {
  const Token* space = tokenAt(tokens, index);
  if (!space || !isInlineSpace(*space) || !isWord(tokenAt(tokens, index + 1), "and")) return std::nullopt;
  std::vector<Sub> subs;
  size_t k = index + 2;
  for (size_t words = 0; words < 2; ++words) {
    const Token* gap = tokenAt(tokens, k);
    const Token* word = tokenAt(tokens, k + 1);
    if (!gap || !isInlineSpace(*gap) || !word || word->kind != Token::Kind::word || !isNumberCompound(word->lower)) {
      break;
    }
    auto parts = hyphenParts(word->lower);
    for (size_t p = 0; p < parts.size(); ++p) {
      subs.push_back({std::string(parts[p]), englishNumberWord(parts[p]), words, p + 1 == parts.size()});
    }
    k += 2;
  }
  if (subs.empty()) return std::nullopt;
  auto parse = parseCardinal(subs, 0);
  if (!parse || parse->end != subs.size() || parse->ordinal || parse->fraction || parse->value < 1 ||
      parse->value > 99) {
    return std::nullopt;
  }
  const Token* gap = tokenAt(tokens, k);
  const Token* unit = tokenAt(tokens, k + 1);
  if (!gap || !isInlineSpace(*gap) || !(isWord(unit, "cents") || isWord(unit, "cent"))) return std::nullopt;
  return std::make_pair(parse->value, k + 2 - index);
}

// Percent or currency words after a number at `index`.
std::optional<std::string> formatWithUnit(const NumberParse& parse, const std::vector<Token>& tokens, size_t index,
                                          size_t& consumedTokens) {
  if (parse.ordinal || parse.year) return std::nullopt;
  const Token* space = tokenAt(tokens, index);
  if (!space || !isInlineSpace(*space)) return std::nullopt;
  const Token* word = tokenAt(tokens, index + 1);
  if (!word || word->kind != Token::Kind::word) return std::nullopt;
  std::string number = formatNumber(parse);
  if (word->lower == "percent") {
    consumedTokens = 2;
    return number + "%";
  }
  if (word->lower == "per") {
    const Token* gap = tokenAt(tokens, index + 2);
    if (gap && isInlineSpace(*gap) && isWord(tokenAt(tokens, index + 3), "cent")) {
      consumedTokens = 4;
      return number + "%";
    }
    return std::nullopt;
  }
  std::string symbol;
  if (word->lower == "dollar" || word->lower == "dollars") {
    symbol = "$";
  } else if (word->lower == "euro" || word->lower == "euros") {
    symbol = "€";
  } else if (word->lower == "yen") {
    symbol = "¥";
  } else {
    return std::nullopt;
  }
  consumedTokens = 2;
  if (!parse.fraction && parse.keptScale == 0) {
    if (auto cents = centsSuffix(tokens, index + 2)) {
      consumedTokens += cents->second;
      std::string centText = (cents->first < 10 ? ".0" : ".") + std::to_string(cents->first);
      return symbol + number + centText;
    }
  }
  return symbol + number;
}

class EnglishNormalizer {
 public:
  explicit EnglishNormalizer(std::string_view text) : tokens_(tokenizeEnglish(text)) {}

  std::string run() {
    size_t i = 0;
    while (i < tokens_.size()) {
      const Token& token = tokens_[i];
      if (token.kind == Token::Kind::word && startsRun(i)) {
        i = normalizeRun(i);
      } else {
        out_ += token.text;
        ++i;
      }
    }
    return out_;
  }

 private:
  bool startsRun(size_t index) const {
    const std::string& word = tokens_[index].lower;
    if (word == "and" || word == "oh" || word == "point" || !isNumberCompound(word)) return false;
    if (index > 0 && tokens_[index - 1].kind == Token::Kind::other &&
        (tokens_[index - 1].text == "-" || tokens_[index - 1].text == "'")) {
      return false;
    }
    return true;
  }

  const Token* wordAfter(size_t index) const {
    if (index + 2 < tokens_.size() && isInlineSpace(tokens_[index + 1]) &&
        tokens_[index + 2].kind == Token::Kind::word) {
      return &tokens_[index + 2];
    }
    return nullptr;
  }

  const Token* wordBefore(size_t index) const {
    if (index >= 2 && isInlineSpace(tokens_[index - 1]) && tokens_[index - 2].kind == Token::Kind::word) {
      return &tokens_[index - 2];
    }
    return nullptr;
  }

  // "second" after a tens word is an ordinal only at the end of a phrase or after
  // "the" or a month name; otherwise it is the unit of time.
  bool secondIsOrdinal(size_t runStart, size_t index) const {
    if (!wordAfter(index)) return true;
    const Token* before = wordBefore(runStart);
    return before && (before->lower == "the" || isMonthName(before->lower));
  }

  static bool endsInSecond(std::string_view word) {
    return word == "second" || (word.size() > 7 && word.substr(word.size() - 7) == "-second");
  }

  std::vector<size_t> collectRun(size_t start) const {
    std::vector<size_t> words{start};
    size_t index = start;
    if (tokens_[start].lower.find('-') != std::string::npos && endsInSecond(tokens_[start].lower) &&
        !secondIsOrdinal(start, start)) {
      return {};
    }
    while (const Token* next = wordAfter(index)) {
      size_t nextIndex = index + 2;
      const std::string& word = next->lower;
      bool accept = false;
      if (word == "and" || word == "point" || word == "oh") {
        const Token* following = wordAfter(nextIndex);
        if (following) {
          if (word == "and") accept = isNumberCompound(following->lower);
          if (word == "point") accept = isDigitWord(following->lower);
          if (word == "oh") accept = isNonZeroUnitWord(following->lower);
        }
      } else if (isNumberCompound(word)) {
        accept = true;
        if (endsInSecond(word)) {
          std::string_view previous = tokens_[index].lower;
          auto number = englishNumberWord(hyphenParts(previous).back());
          bool afterTens = word == "second" && number && number->kind == WordKind::tens && !number->ordinal;
          if (word == "second" && !afterTens) accept = false;
          if (accept && !secondIsOrdinal(start, nextIndex)) accept = false;
        }
      }
      if (!accept) break;
      words.push_back(nextIndex);
      index = nextIndex;
    }
    // A run never ends in a joining word.
    while (!words.empty()) {
      const std::string& last = tokens_[words.back()].lower;
      if (last != "and" && last != "point" && last != "oh") break;
      words.pop_back();
    }
    return words;
  }

  void emitTokens(size_t first, size_t last) {
    for (size_t t = first; t <= last; ++t) out_ += tokens_[t].text;
  }

  // Normalises the run of number words starting at token `start`; returns the next token.
  size_t normalizeRun(size_t start) {
    std::vector<size_t> words = collectRun(start);
    if (words.empty()) {
      out_ += tokens_[start].text;
      return start + 1;
    }
    std::vector<Sub> subs;
    for (size_t w = 0; w < words.size(); ++w) {
      auto parts = hyphenParts(tokens_[words[w]].lower);
      for (size_t p = 0; p < parts.size(); ++p) {
        subs.push_back({std::string(parts[p]), englishNumberWord(parts[p]), w, p + 1 == parts.size()});
      }
    }
    size_t afterRun = words.back() + 1;

    size_t suffixTokens = 0;
    if (auto time = formatTime(subs, tokens_, afterRun, suffixTokens)) {
      out_ += *time;
      return afterRun + suffixTokens;
    }

    size_t pos = 0;
    while (pos < subs.size()) {
      size_t firstWord = subs[pos].runWord;
      auto cardinal = parseCardinal(subs, pos);
      auto year = parseYear(subs, pos);
      std::optional<NumberParse> chosen = cardinal;
      if (year && (!cardinal || year->end > cardinal->end)) chosen = year;
      bool atEnd = chosen && chosen->end == subs.size();
      bool beforeAnd = chosen && !atEnd && subs[chosen->end].word == "and";
      if (!atEnd && !beforeAnd) {
        emitTokens(words[firstWord], words.back());
        return afterRun;
      }
      size_t lastWord = subs[chosen->end - 1].runWord;
      std::optional<std::string> replacement;
      if (atEnd) replacement = formatWithUnit(*chosen, tokens_, afterRun, suffixTokens);
      if (!replacement) {
        suffixTokens = 0;
        bool singleSmallWord = firstWord == lastWord && chosen->value < 10 && !chosen->fraction;
        if (!singleSmallWord) replacement = formatNumber(*chosen);
      }
      if (replacement) {
        out_ += *replacement;
      } else {
        emitTokens(words[firstWord], words[lastWord]);
      }
      if (atEnd) return afterRun + suffixTokens;
      // Keep " and " and continue with the next number.
      size_t andWord = subs[chosen->end].runWord;
      emitTokens(words[lastWord] + 1, words[andWord + 1] - 1);
      pos = chosen->end + 1;
    }
    return afterRun;
  }

  std::vector<Token> tokens_;
  std::string out_;
};

}  // namespace

std::string InverseTextNormalizer::normalizeEnglish(std::string_view text) {
  return EnglishNormalizer(text).run();
}

}  // namespace orvid
