#include "orvid/core/corelib/text/autocorrect_rules.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "orvid/core/corelib/text/unicode_text.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

using unicode_text::isASCIIDigit;
using unicode_text::isBlank;
using unicode_text::isCJK;
using unicode_text::isLatinLetter;

constexpr std::array<std::pair<AutocorrectRule, const char*>, 6> kRuleNames{{
    {AutocorrectRule::noSpaceBetweenCJK, "noSpaceBetweenCJK"},
    {AutocorrectRule::fullWidthPunctuation, "fullWidthPunctuation"},
    {AutocorrectRule::spacingAroundPunctuation, "spacingAroundPunctuation"},
    {AutocorrectRule::spaceBetweenCJKAndLatin, "spaceBetweenCJKAndLatin"},
    {AutocorrectRule::spaceBetweenCJKAndDigits, "spaceBetweenCJKAndDigits"},
    {AutocorrectRule::sentenceCapitalization, "sentenceCapitalization"},
}};

bool isOneOf(char32_t c, std::u32string_view set) { return set.find(c) != std::u32string_view::npos; }

bool isLetterOrDigit(char32_t c) { return isLatinLetter(c) || isASCIIDigit(c); }

size_t skipBlanks(const std::u32string& text, size_t index) {
  while (index < text.size() && isBlank(text[index])) ++index;
  return index;
}

void dropTrailingBlanks(std::u32string& text) {
  while (!text.empty() && isBlank(text.back())) text.pop_back();
}

constexpr std::u32string_view kFullWidthMarks = U"，。；：！？、";

bool startsWithIgnoringASCIICase(std::u32string_view text, std::u32string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (internal::lowercaseASCII(text[i]) != prefix[i]) return false;
  }
  return true;
}

// A web address or an e-mail address: "https://example.com/a,b", "www.example.com",
// "name@example.com".
bool isAddress(std::u32string_view token) {
  if (token.find(U"://") != std::u32string_view::npos) return true;
  if (startsWithIgnoringASCIICase(token, U"www.")) return true;
  size_t at = token.find(U'@');
  return at != std::u32string_view::npos && at > 0 && isLetterOrDigit(token[at - 1]) && at + 1 < token.size() &&
         isLetterOrDigit(token[at + 1]) && token.find(U'.', at) != std::u32string_view::npos;
}

// Which characters of `text` belong to an address that the punctuation and
// capitalisation rules must leave alone. Addresses end at white space, CJK text
// and full-width punctuation; punctuation at their end ("visit example.com.")
// is not part of them.
std::vector<bool> addressMask(const std::u32string& text) {
  std::vector<bool> mask(text.size(), false);
  auto endsToken = [](char32_t c) {
    return internal::isUnicodeWhitespace(c) || isCJK(c) || isOneOf(c, kFullWidthMarks) ||
           isOneOf(c, U"「」『』（）《》“”‘’");
  };
  for (size_t start = 0; start < text.size();) {
    if (endsToken(text[start])) {
      ++start;
      continue;
    }
    size_t end = start;
    while (end < text.size() && !endsToken(text[end])) ++end;
    size_t last = end;
    while (last > start && isOneOf(text[last - 1], U".,;:!?)]}\"'")) --last;
    if (isAddress(std::u32string_view(text).substr(start, last - start))) {
      std::fill(mask.begin() + static_cast<std::ptrdiff_t>(start), mask.begin() + static_cast<std::ptrdiff_t>(last),
                true);
    }
    start = end;
  }
  return mask;
}

// "你 好" -> "你好".
std::u32string removeSpaceBetweenCJK(const std::u32string& text) {
  std::u32string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    if (!isBlank(text[i])) {
      out.push_back(text[i++]);
      continue;
    }
    size_t end = skipBlanks(text, i);
    bool between = !out.empty() && isCJK(out.back()) && end < text.size() && isCJK(text[end]);
    if (!between) out.append(text, i, end - i);
    i = end;
  }
  return out;
}

char32_t fullWidthFor(char32_t c) {
  switch (c) {
    case U',': return U'，';
    case U'.': return U'。';
    case U';': return U'；';
    case U':': return U'：';
    case U'!': return U'！';
    case U'?': return U'？';
    default: return 0;
  }
}

// "你好 , 世界." -> "你好，世界。".
std::u32string useFullWidthPunctuation(const std::u32string& text) {
  const std::vector<bool> inAddress = addressMask(text);
  std::u32string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    char32_t c = text[i];
    if (inAddress[i]) {
      out.push_back(c);
      ++i;
      continue;
    }
    if (isOneOf(c, kFullWidthMarks)) {
      dropTrailingBlanks(out);
      out.push_back(c);
      i = skipBlanks(text, i + 1);
      continue;
    }
    char32_t wide = fullWidthFor(c);
    size_t previous = out.size();
    while (previous > 0 && isBlank(out[previous - 1])) --previous;
    size_t next = skipBlanks(text, i + 1);
    bool afterCJK = previous > 0 && isCJK(out[previous - 1]);
    bool betweenWordAndCJK = previous > 0 && isLetterOrDigit(out[previous - 1]) && next < text.size() &&
                             isCJK(text[next]);
    if (wide == 0 || !(afterCJK || betweenWordAndCJK)) {
      out.push_back(c);
      ++i;
      continue;
    }
    size_t consumed = 1;
    std::u32string replacement(1, wide);
    if (c == U'.') {
      size_t run = 0;
      while (i + run < text.size() && text[i + run] == U'.') ++run;
      if (run >= 3) {
        replacement = U"……";
        consumed = run;
      } else if (run == 2) {
        out.append(U"..");
        i += 2;
        continue;
      }
    }
    out.resize(previous);
    out.append(replacement);
    i = skipBlanks(text, i + consumed);
  }
  return out;
}

// "Hello , world" -> "Hello, world"; "end.Next" -> "end. Next".
std::u32string spaceAroundPunctuation(const std::u32string& text) {
  const std::vector<bool> inAddress = addressMask(text);
  std::u32string out;
  out.reserve(text.size() + 8);
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (inAddress[i] || !isOneOf(c, U",.;:!?")) {
      out.push_back(c);
      continue;
    }
    size_t previous = out.size();
    while (previous > 0 && isBlank(out[previous - 1])) --previous;
    if (previous == 0 || !isLetterOrDigit(out[previous - 1])) {
      out.push_back(c);
      continue;
    }
    char32_t before = out[previous - 1];
    // A dot or colon right before a word may start it (".NET", ":param"): keep the space then.
    bool startsFollowingWord = (c == U'.' || c == U':') && i + 1 < text.size() && isLetterOrDigit(text[i + 1]);
    if (previous < out.size() && startsFollowingWord) {
      out.push_back(c);
      continue;
    }
    out.resize(previous);
    out.push_back(c);

    size_t next = skipBlanks(text, i + 1);
    if (next >= text.size() || !isLetterOrDigit(text[next])) continue;
    char32_t following = text[next];
    bool hadBlanks = next > i + 1;
    bool insertSpace = false;
    if (hadBlanks) {
      insertSpace = true;
    } else if (c == U',') {
      insertSpace = isLatinLetter(following) || !isASCIIDigit(before);
    } else if (c == U';' || c == U'!' || c == U'?') {
      insertSpace = true;
    } else {
      bool startsWord = next + 1 >= text.size() || !isLatinLetter(text[next + 1]) ||
                        unicode_text::isLowerCase(text[next + 1]);
      insertSpace = (unicode_text::isLowerCase(before) || isASCIIDigit(before)) && isLatinLetter(following) &&
                    unicode_text::isUpperCase(following) && startsWord;
    }
    if (insertSpace) {
      out.push_back(U' ');
      i = next - 1;
    }
  }
  return out;
}

bool endsLatinWord(const std::u32string& text, size_t index) {
  while (index > 0 && isOneOf(text[index], U"+#")) --index;
  return isLatinLetter(text[index]);
}

// "用C++写" -> "用 C++ 写".
std::u32string spaceBetweenCJKAndLatin(const std::u32string& text) {
  std::u32string out;
  out.reserve(text.size() + 8);
  for (size_t i = 0; i < text.size(); ++i) {
    out.push_back(text[i]);
    if (i + 1 >= text.size()) break;
    char32_t next = text[i + 1];
    if ((isCJK(text[i]) && isLatinLetter(next)) || (isCJK(next) && endsLatinWord(text, i))) out.push_back(U' ');
  }
  return out;
}

constexpr std::u32string_view kCurrencySigns = U"$€£¥";

bool startsNumber(const std::u32string& text, size_t index) {
  if (isASCIIDigit(text[index])) return true;
  return isOneOf(text[index], kCurrencySigns) && index + 1 < text.size() && isASCIIDigit(text[index + 1]);
}

bool endsNumber(const std::u32string& text, size_t index) {
  if (isASCIIDigit(text[index])) return true;
  return isOneOf(text[index], U"%‰°") && index > 0 && isASCIIDigit(text[index - 1]);
}

// "共3个" -> "共 3 个".
std::u32string spaceBetweenCJKAndDigits(const std::u32string& text) {
  std::u32string out;
  out.reserve(text.size() + 8);
  for (size_t i = 0; i < text.size(); ++i) {
    out.push_back(text[i]);
    if (i + 1 >= text.size()) break;
    if ((isCJK(text[i]) && startsNumber(text, i + 1)) || (endsNumber(text, i) && isCJK(text[i + 1]))) {
      out.push_back(U' ');
    }
  }
  return out;
}

// True when the '.' at `index` ends an abbreviation or an initialism rather than a sentence.
bool dotEndsAbbreviation(const std::u32string& text, size_t index) {
  if (index > 0 && text[index - 1] == U'.') return true;  // an ellipsis
  size_t start = index;
  while (start > 0 && (isLatinLetter(text[start - 1]) || text[start - 1] == U'.')) --start;
  std::u32string token = internal::lowercaseASCII(std::u32string_view(text).substr(start, index - start));
  if (token.empty()) return false;
  if (token.find(U'.') != std::u32string::npos) return true;  // "e.g", "U.S"
  if (token.size() == 1) return true;                         // an initial: "J. Smith"
  static constexpr std::array<std::u32string_view, 14> kAbbreviations{
      U"etc", U"vs", U"mr", U"mrs", U"ms", U"dr", U"st", U"jr", U"sr", U"prof", U"approx", U"no", U"fig", U"inc"};
  return std::find(kAbbreviations.begin(), kAbbreviations.end(), token) != kAbbreviations.end();
}

// "hello. how are you" -> "Hello. How are you".
std::u32string capitalizeSentences(const std::u32string& text) {
  const std::vector<bool> inAddress = addressMask(text);
  std::u32string out = text;
  bool atSentenceStart = true;
  for (size_t i = 0; i < out.size(); ++i) {
    char32_t c = out[i];
    if (inAddress[i]) {
      atSentenceStart = false;
      continue;
    }
    if (atSentenceStart) {
      if (isLatinLetter(c)) {
        size_t end = i;
        bool allLower = true;
        while (end < out.size() && isLatinLetter(out[end])) {
          allLower = allLower && unicode_text::isLowerCase(out[end]);
          ++end;
        }
        bool dottedName = end + 1 < out.size() && out[end] == U'.' && isLatinLetter(out[end + 1]);
        bool identifier = end < out.size() && (isASCIIDigit(out[end]) || isOneOf(out[end], U"_@/"));
        if (allLower && !dottedName && !identifier) out[i] = unicode_text::toUpperCase(c);
        atSentenceStart = false;
      } else if (!internal::isUnicodeWhitespace(c) && !isOneOf(c, U"\"'“‘([「『")) {
        atSentenceStart = false;
      }
    }
    if (isOneOf(c, U"。！？")) {
      atSentenceStart = true;
    } else if (isOneOf(c, U".!?") && i + 1 < out.size() && internal::isUnicodeWhitespace(out[i + 1])) {
      // A dot right after an address ends a sentence, whatever the address looks like.
      if (c != U'.' || (i > 0 && inAddress[i - 1]) || !dotEndsAbbreviation(out, i)) atSentenceStart = true;
    }
  }
  return out;
}

}  // namespace

std::string rawValue(AutocorrectRule rule) {
  for (const auto& [value, name] : kRuleNames) {
    if (value == rule) return name;
  }
  return {};
}

std::optional<AutocorrectRule> autocorrectRule(std::string_view name) {
  for (const auto& [value, ruleName] : kRuleNames) {
    if (name == ruleName) return value;
  }
  return std::nullopt;
}

AutocorrectRules::AutocorrectRules() : enabled_(kRuleNames.size(), true) {}

const std::vector<AutocorrectRule>& AutocorrectRules::allRules() {
  static const std::vector<AutocorrectRule> rules = [] {
    std::vector<AutocorrectRule> all;
    for (const auto& entry : kRuleNames) all.push_back(entry.first);
    return all;
  }();
  return rules;
}

void AutocorrectRules::applyRules(const std::map<std::string, bool>& rules) {
  for (const auto& [name, enabled] : rules) {
    if (auto rule = autocorrectRule(name)) setEnabled(*rule, enabled);
  }
}

void AutocorrectRules::setEnabled(AutocorrectRule rule, bool enabled) {
  enabled_[static_cast<size_t>(rule)] = enabled;
}

bool AutocorrectRules::isEnabled(AutocorrectRule rule) const { return enabled_[static_cast<size_t>(rule)]; }

std::string AutocorrectRules::format(std::string_view text) const {
  const std::u32string original = unicode_text::toUTF32(text);
  std::u32string current = original;
  for (AutocorrectRule rule : allRules()) {
    if (!isEnabled(rule)) continue;
    switch (rule) {
      case AutocorrectRule::noSpaceBetweenCJK: current = removeSpaceBetweenCJK(current); break;
      case AutocorrectRule::fullWidthPunctuation: current = useFullWidthPunctuation(current); break;
      case AutocorrectRule::spacingAroundPunctuation: current = spaceAroundPunctuation(current); break;
      case AutocorrectRule::spaceBetweenCJKAndLatin: current = spaceBetweenCJKAndLatin(current); break;
      case AutocorrectRule::spaceBetweenCJKAndDigits: current = spaceBetweenCJKAndDigits(current); break;
      case AutocorrectRule::sentenceCapitalization: current = capitalizeSentences(current); break;
    }
  }
  if (current == original) return std::string(text);
  return unicode_text::toUTF8(current);
}

}  // namespace orvid
