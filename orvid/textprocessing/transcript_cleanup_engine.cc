#include "orvid/textprocessing/transcript_cleanup_engine.h"

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include <nlohmann/json.hpp>
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include "orvid/core/corelib/json_support.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/core/corelib/text/autocorrect_rules.h"
#include "orvid/core/corelib/text/inverse_text_normalizer.h"
#include "orvid/core/corelib/text/opencc.h"
#include "orvid/platform/internal/hash.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/textprocessing/prompt_output_parser.h"
#include "orvid/textprocessing/text_support.h"

namespace orvid {
namespace {

using text_support::trimWhitespaceAndNewlines;

icu::UnicodeString unicodeFrom(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string utf8From(const icu::UnicodeString& text) {
  std::string result;
  text.toUTF8String(result);
  return result;
}

// The fixed expressions, compiled once. A pattern that fails to compile is null,
// and the step that uses it leaves the text as it is.
struct Patterns {
  std::unique_ptr<icu::RegexPattern> stutter;
  std::unique_ptr<icu::RegexPattern> quotedTerm;
  std::unique_ptr<icu::RegexPattern> identifier;
  std::unique_ptr<icu::RegexPattern> camelCase;
  std::unique_ptr<icu::RegexPattern> whitespace;
};

std::unique_ptr<icu::RegexPattern> compile(const char* pattern, uint32_t flags) {
  UParseError parseError;
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexPattern> compiled(
      icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(pattern), flags, parseError, status));
  if (U_FAILURE(status)) return nullptr;
  return compiled;
}

const Patterns& patterns() {
  static const Patterns compiled{
      compile(R"(\b([\p{L}\p{N}]{1,24})(?:[\s-]+\1)+\b)", UREGEX_CASE_INSENSITIVE),
      compile(R"(["'`](.+?)["'`])", 0),
      compile(R"(\b(?:[A-Z]{2,}|[A-Z][A-Za-z0-9]*[A-Z][A-Za-z0-9]*)\b)", 0),
      compile(R"(([a-z0-9])([A-Z]))", 0),
      compile(R"(\s+)", 0),
  };
  return compiled;
}

std::string replaceAll(const icu::RegexPattern* pattern, std::string_view text, const char* replacement) {
  if (pattern == nullptr) return std::string(text);
  icu::UnicodeString input = unicodeFrom(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(input, status));
  if (U_FAILURE(status)) return std::string(text);
  icu::UnicodeString result = matcher->replaceAll(icu::UnicodeString::fromUTF8(replacement), status);
  if (U_FAILURE(status)) return std::string(text);
  return utf8From(result);
}

// The matches of `pattern` in `text`: capture group `group` (0 for the whole match).
std::vector<std::string> matches(const icu::RegexPattern* pattern, std::string_view text, int32_t group) {
  std::vector<std::string> found;
  if (pattern == nullptr) return found;
  icu::UnicodeString input = unicodeFrom(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(input, status));
  if (U_FAILURE(status)) return found;
  while (matcher->find(status) && U_SUCCESS(status)) {
    icu::UnicodeString match = matcher->group(group, status);
    if (U_FAILURE(status)) break;
    found.push_back(utf8From(match));
  }
  return found;
}

std::string collapseStutters(std::string_view text) { return replaceAll(patterns().stutter.get(), text, "$1"); }

// Runs of white space become one space; the ends are trimmed.
std::string normalizeWhitespace(std::string_view text) {
  return trimWhitespaceAndNewlines(replaceAll(patterns().whitespace.get(), text, " "));
}

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool isLetterOrNumber(UChar32 c) { return (U_GET_GC_MASK(c) & (U_GC_L_MASK | U_GC_N_MASK)) != 0; }

// Text as a sequence of characters in the user's sense (extended grapheme
// clusters), each one comparable unit: a character of one code point is that code
// point; a longer one ("e" with a combining mark that has no composed form, a
// Devanagari consonant with its vowel sign) gets an identifier above U+10FFFF,
// the same for equal characters read by the same instance. Text is canonically
// composed first, so composed and decomposed spellings are equal.
class CharacterUnits {
 public:
  // The units of `text`; with `matchingForm`, lower-cased and only the characters
  // whose first code point is a letter or a digit.
  std::u32string units(std::string_view text, bool matchingForm) {
    std::u32string result;
    append(text, matchingForm, result);
    return result;
  }

  // units(text, matchingForm) appended to `result`.
  void append(std::string_view text, bool matchingForm, std::u32string& result) {
    const bool ascii = isASCII(text);
    // Every ASCII character but CR LF is a character of its own; CR and LF are
    // neither letters nor digits.
    if (ascii && (matchingForm || text.find("\r\n") == std::string_view::npos)) {
      for (char c : text) {
        char lower = matchingForm ? internal::lowercaseASCII(c) : c;
        bool keep = !matchingForm || (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9');
        if (keep) result.push_back(static_cast<char32_t>(static_cast<unsigned char>(lower)));
      }
      return;
    }
    icu::UnicodeString unicode = unicodeFrom(text);
    if (matchingForm) unicode.toLower(icu::Locale::getRoot());
    UErrorCode status = U_ZERO_ERROR;
    if (const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status); U_SUCCESS(status)) {
      icu::UnicodeString composed = nfc->normalize(unicode, status);
      if (U_SUCCESS(status)) unicode = std::move(composed);
    }
    auto appendCharacter = [&](int32_t start, int32_t end) {
      UChar32 first = unicode.char32At(start);
      if (matchingForm && !isLetterOrNumber(first)) return;
      result.push_back(unitOf(unicode, start, end));
    };
    if (eachCodePointIsACharacter(unicode)) {
      for (int32_t i = 0; i < unicode.length();) {
        int32_t next = unicode.moveIndex32(i, 1);
        appendCharacter(i, next);
        i = next;
      }
      return;
    }
    icu::BreakIterator* characters = breakIterator();
    if (characters == nullptr) return;
    characters->setText(unicode);
    for (int32_t start = characters->first(), end = characters->next(); end != icu::BreakIterator::DONE;
         start = end, end = characters->next()) {
      appendCharacter(start, end);
    }
  }

 private:
  // True when no code point of `text` joins its neighbours into one character.
  static bool eachCodePointIsACharacter(const icu::UnicodeString& text) {
    for (int32_t i = 0; i < text.length();) {
      UChar32 c = text.char32At(i);
      if (u_getIntPropertyValue(c, UCHAR_GRAPHEME_CLUSTER_BREAK) != U_GCB_OTHER) return false;
      i += U16_LENGTH(c);
    }
    return true;
  }

  char32_t unitOf(const icu::UnicodeString& text, int32_t start, int32_t end) {
    UChar32 first = text.char32At(start);
    if (start + U16_LENGTH(first) >= end) return static_cast<char32_t>(first);
    std::u32string cluster;
    for (int32_t i = start; i < end;) {
      UChar32 c = text.char32At(i);
      cluster.push_back(static_cast<char32_t>(c));
      i += U16_LENGTH(c);
    }
    auto [entry, added] = clusterIDs_.try_emplace(std::move(cluster), nextClusterID_);
    if (added) ++nextClusterID_;
    return entry->second;
  }

  icu::BreakIterator* breakIterator() {
    if (!characters_) {
      UErrorCode status = U_ZERO_ERROR;
      characters_.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
      if (U_FAILURE(status)) characters_.reset();
    }
    return characters_.get();
  }

  std::unique_ptr<icu::BreakIterator> characters_;
  std::map<std::u32string, char32_t> clusterIDs_;
  char32_t nextClusterID_ = 0x110000;
};

// Levenshtein distance as a similarity, computed only as far as it can still reach
// `threshold`: an edit distance d gives at least the threshold only when
// d <= (1 - threshold) * longer length, and such a distance never leaves the band
// of cells within that many of the diagonal; the computation also stops once a
// whole row is past it. A result below `threshold` is then only a bound. The rows
// are kept in `rows` for the next call.
struct EditDistanceRows {
  std::vector<size_t> previous;
  std::vector<size_t> current;
};

double boundedSimilarity(std::u32string_view a, std::u32string_view b, double threshold, EditDistanceRows& rows) {
  if (a.empty() && b.empty()) return 1.0;
  const size_t longer = std::max(a.size(), b.size());
  auto similarityOf = [longer](size_t distance) {
    return 1.0 - static_cast<double>(distance) / static_cast<double>(longer);
  };
  // One cell of slack against rounding in the band's width. Thresholds above 1
  // (unreachable) and NaN get the narrowest band.
  const double slack = std::max(0.0, 1.0 - threshold);
  const size_t band =
      threshold <= 0 ? longer : std::min(longer, static_cast<size_t>(slack * static_cast<double>(longer)) + 1);
  const size_t lengthDifference = a.size() > b.size() ? a.size() - b.size() : b.size() - a.size();
  if (lengthDifference > band) return similarityOf(lengthDifference);

  const size_t outside = longer + 1;  // larger than any distance inside the band
  std::vector<size_t>& previous = rows.previous;
  std::vector<size_t>& current = rows.current;
  previous.assign(b.size() + 1, outside);
  current.assign(b.size() + 1, outside);
  for (size_t j = 0; j <= std::min(b.size(), band); ++j) previous[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    const size_t first = i > band ? i - band : 1;
    const size_t last = std::min(b.size(), i + band);
    current[first - 1] = first == 1 && i <= band ? i : outside;
    size_t rowMinimum = current[first - 1];
    for (size_t j = first; j <= last; ++j) {
      const size_t substitution = previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      const size_t value = std::min(std::min(previous[j] + 1, current[j - 1] + 1), substitution);
      current[j] = value;
      rowMinimum = std::min(rowMinimum, value);
    }
    if (last < b.size()) current[last + 1] = outside;
    if (similarityOf(rowMinimum) < threshold) return similarityOf(rowMinimum);
    std::swap(previous, current);
  }
  return similarityOf(previous[b.size()]);
}

std::vector<std::string> splitAtSpaces(std::string_view text, bool keepEmpty) {
  std::vector<std::string> pieces;
  size_t start = 0;
  while (true) {
    size_t space = text.find(' ', start);
    std::string_view piece = text.substr(start, space == std::string_view::npos ? std::string_view::npos : space - start);
    if (keepEmpty || !piece.empty()) pieces.emplace_back(piece);
    if (space == std::string_view::npos) break;
    start = space + 1;
  }
  return pieces;
}

// The non-empty pieces of `text` between single spaces, as views into it.
std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  words.reserve(text.size() / 4 + 1);
  size_t start = 0;
  while (start <= text.size()) {
    size_t space = text.find(' ', start);
    if (space == std::string_view::npos) space = text.size();
    if (space > start) words.push_back(text.substr(start, space - start));
    start = space + 1;
  }
  return words;
}

std::string joinedWithSpaces(const std::vector<std::string>& pieces) {
  std::string result;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i > 0) result.push_back(' ');
    result += pieces[i];
  }
  return result;
}

// `text` without punctuation (general category P) at either end.
std::string_view trimPunctuation(std::string_view text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  int32_t start = 0;
  while (start < length) {
    int32_t next = start;
    UChar32 c;
    U8_NEXT(bytes, next, length, c);
    if (c < 0 || (U_GET_GC_MASK(c) & U_GC_P_MASK) == 0) break;
    start = next;
  }
  int32_t end = length;
  while (end > start) {
    int32_t previous = end;
    UChar32 c;
    U8_PREV(bytes, 0, previous, c);
    if (c < 0 || (U_GET_GC_MASK(c) & U_GC_P_MASK) == 0) break;
    end = previous;
  }
  return text.substr(static_cast<size_t>(start), static_cast<size_t>(end - start));
}

// One of 64 bits standing for a character in matching form: a bit of its own for
// each of a to z and 0 to 9, one of the other 28 for any other character. Two
// characters with different bits are different characters.
uint64_t characterBit(char32_t unit) {
  if (unit >= U'a' && unit <= U'z') return uint64_t{1} << (unit - U'a');
  if (unit >= U'0' && unit <= U'9') return uint64_t{1} << (26 + unit - U'0');
  return uint64_t{1} << (36 + unit % 28);
}

uint64_t maskOf(std::u32string_view units) {
  uint64_t mask = 0;
  for (char32_t unit : units) mask |= characterBit(unit);
  return mask;
}

// text_support::characterCount(), without a break iterator for ASCII text, where
// every character but CR LF stands alone.
size_t characterCount(std::string_view text) {
  if (!isASCII(text)) return text_support::characterCount(text);
  size_t count = text.size();
  for (size_t at = text.find("\r\n"); at != std::string_view::npos; at = text.find("\r\n", at + 2)) --count;
  return count;
}

// The words of a text (its pieces between single spaces, empty ones dropped) and
// their characters in matching form, laid end to end so that the characters of a
// run of words are one slice.
class WordTable {
 public:
  void build(std::string_view text, CharacterUnits& characters) {
    if (!buildASCII(text)) {
      words_ = wordsOf(text);
      units_.clear();
      starts_.assign(1, 0);
      masks_.clear();
      for (std::string_view word : words_) {
        const size_t start = units_.size();
        characters.append(word, true, units_);
        starts_.push_back(units_.size());
        masks_.push_back(maskOf(std::u32string_view(units_).substr(start)));
      }
    }
    size_t wordBytes = 0;
    for (std::string_view word : words_) wordBytes += word.size();
    joined_ = words_.empty() ? text.empty() : text.size() == wordBytes + words_.size() - 1;
  }

  const std::vector<std::string_view>& words() const { return words_; }

  // The characters of the `count` words from `first`, in matching form.
  std::u32string_view units(size_t first, size_t count) const {
    return std::u32string_view(units_).substr(starts_[first], starts_[first + count] - starts_[first]);
  }

  // Where the characters of each word start in matching form, and one past the last.
  const std::vector<size_t>& starts() const { return starts_; }

  // characterBit() of every character of the word at `index`.
  uint64_t mask(size_t index) const { return masks_[index]; }

  // True when the text is its words joined by single spaces.
  bool joined() const { return joined_; }

 private:
  // build() in one walk for ASCII text: the same words and characters as
  // wordsOf() and CharacterUnits give. False, having done nothing, for other text.
  bool buildASCII(std::string_view text) {
    // Each byte's character in matching form: 0 for the bytes matching drops,
    // kSpace for the space and kOther for the bytes beyond ASCII.
    static constexpr char kSpace = 1;
    static constexpr char kOther = 2;
    static const std::array<char, 256> matching = [] {
      std::array<char, 256> table{};
      for (int c = 'a'; c <= 'z'; ++c) table[static_cast<size_t>(c)] = static_cast<char>(c);
      for (int c = 'A'; c <= 'Z'; ++c) table[static_cast<size_t>(c)] = static_cast<char>(c - 'A' + 'a');
      for (int c = '0'; c <= '9'; ++c) table[static_cast<size_t>(c)] = static_cast<char>(c);
      table[' '] = kSpace;
      for (size_t c = 0x80; c < 256; ++c) table[c] = kOther;
      return table;
    }();
    auto beyondASCII = [](char c) { return matching[static_cast<unsigned char>(c)] == kOther; };
    if (std::any_of(text.begin(), text.end(), beyondASCII)) return false;
    words_.clear();
    starts_.assign(1, 0);
    masks_.clear();
    units_.resize(text.size());
    char32_t* const begin = units_.data();
    char32_t* out = begin;
    const char* const bytes = text.data();
    const size_t size = text.size();
    size_t wordStart = 0;
    uint64_t mask = 0;
    for (size_t i = 0; i <= size; ++i) {
      const char c = i < size ? matching[static_cast<unsigned char>(bytes[i])] : kSpace;
      if (c == kSpace) {
        if (i > wordStart) {
          words_.emplace_back(bytes + wordStart, i - wordStart);
          starts_.push_back(static_cast<size_t>(out - begin));
          masks_.push_back(mask);
        }
        wordStart = i + 1;
        mask = 0;
      } else if (c != 0) {
        *out++ = static_cast<char32_t>(c);
        mask |= characterBit(static_cast<char32_t>(c));
      }
    }
    units_.resize(static_cast<size_t>(out - begin));
    return true;
  }

  std::vector<std::string_view> words_;
  std::u32string units_;
  std::vector<size_t> starts_;
  std::vector<uint64_t> masks_;
  bool joined_ = true;
};

// A run of `count` words from `first` that a term replaces.
struct Span {
  size_t first;
  size_t count;
};

// The spans replaceNGramApproximations gives to a term whose characters in matching
// form are `target`, left to right. Every span that passes the length filter is
// considered, but the edit distance is computed only when two lower bounds on it
// still allow the threshold: the difference in length, and the number of the
// target's characters that do not occur in the span at all (each costs an edit).
void findApproximations(const WordTable& table, std::u32string_view target, double threshold, EditDistanceRows& rows,
                        std::vector<Span>& spans) {
  spans.clear();
  const size_t wordCount = table.words().size();
  const size_t targetLength = target.size();
  const size_t allowedDifference = targetLength < 6 ? 3 : targetLength / 2;
  const size_t shortestLength = targetLength - std::min(targetLength, allowedDifference);
  const size_t longestLength = targetLength + allowedDifference;
  // For each length that passes the length filter, the largest edit distance
  // whose similarity still reaches the threshold, or -1 when the difference in
  // length alone is too much. Similarity only falls as the distance grows, so the
  // estimate from the threshold is moved to the exact boundary.
  std::vector<ptrdiff_t> allowedDistance(longestLength + 1, -1);
  for (size_t length = shortestLength; length <= longestLength; ++length) {
    const auto longer = static_cast<ptrdiff_t>(std::max(length, targetLength));
    auto reaches = [longer, threshold](ptrdiff_t distance) {
      const double similarity =
          longer == 0 ? 1.0 : 1.0 - static_cast<double>(distance) / static_cast<double>(longer);
      return !(similarity < threshold);
    };
    ptrdiff_t allowed = longer;  // NaN and thresholds of 0 or less allow every distance
    if (threshold > 0) {
      const double estimate = std::floor((1.0 - std::min(threshold, 1.0)) * static_cast<double>(longer));
      allowed = std::clamp(static_cast<ptrdiff_t>(estimate), ptrdiff_t{0}, longer);
      while (allowed < longer && reaches(allowed + 1)) ++allowed;
      while (allowed >= 0 && !reaches(allowed)) --allowed;
    }
    const size_t difference = length > targetLength ? length - targetLength : targetLength - length;
    allowedDistance[length] = allowed < static_cast<ptrdiff_t>(difference) ? -1 : allowed;
  }
  // How many characters of the target have each bit.
  std::array<ptrdiff_t, 64> targetBitCounts{};
  uint64_t targetMask = 0;
  for (char32_t unit : target) {
    const uint64_t bit = characterBit(unit);
    targetMask |= bit;
    ++targetBitCounts[static_cast<size_t>(std::countr_zero(bit))];
  }
  const std::vector<size_t>& starts = table.starts();
  auto tooFar = [&](size_t first, size_t count, ptrdiff_t allowed) {
    uint64_t spanMask = 0;
    for (size_t k = first; k < first + count; ++k) spanMask |= table.mask(k);
    ptrdiff_t missing = 0;
    for (uint64_t absent = targetMask & ~spanMask; absent != 0; absent &= absent - 1) {
      missing += targetBitCounts[static_cast<size_t>(std::countr_zero(absent))];
      if (missing > allowed) return true;
    }
    return false;
  };

  // Spans from one word are tried longest first; their lengths grow with their
  // words, so only the counts whose lengths pass the filter are walked.
  size_t reach = 0;  // one past the last word a span from word i may end with; never falls as i grows
  size_t i = 0;
  while (i < wordCount) {
    reach = std::max(reach, i);
    while (reach < wordCount && starts[reach + 1] - starts[i] <= longestLength) ++reach;
    bool matched = false;
    for (size_t n = std::min<size_t>(6, reach - i); n >= 1 && !matched; --n) {
      const size_t length = starts[i + n] - starts[i];
      if (length < shortestLength) break;
      const ptrdiff_t allowed = allowedDistance[length];
      if (allowed < 0 || tooFar(i, n, allowed)) continue;
      if (boundedSimilarity(table.units(i, n), target, threshold, rows) >= threshold) {
        spans.push_back({i, n});
        i += n;
        matched = true;
      }
    }
    if (!matched) ++i;
  }
}

// The text of `table` as words joined by single spaces, each of `spans` (in
// order) replaced by `term`.
std::string replacingSpans(std::string_view text, const WordTable& table, const std::vector<Span>& spans,
                           std::string_view term) {
  const std::vector<std::string_view>& words = table.words();
  std::string output;
  output.reserve(text.size() + spans.size() * term.size());
  if (table.joined()) {
    // The text between spans is already the words between them, joined.
    size_t copied = 0;
    for (const Span& span : spans) {
      const auto start = static_cast<size_t>(words[span.first].data() - text.data());
      const std::string_view last = words[span.first + span.count - 1];
      output.append(text.substr(copied, start - copied));
      output.append(term);
      copied = static_cast<size_t>(last.data() - text.data()) + last.size();
    }
    output.append(text.substr(copied));
    return output;
  }
  auto span = spans.begin();
  for (size_t i = 0; i < words.size();) {
    if (i > 0) output.push_back(' ');
    if (span != spans.end() && span->first == i) {
      output.append(term);
      i += span->count;
      ++span;
    } else {
      output.append(words[i]);
      ++i;
    }
  }
  return output;
}

// The dictionary step of clean(), for one text and term after term: what
// replacing the spoken forms and replaceNGramApproximations derive from the text
// (its lower-cased, UTF-16 and case-folded copies, its words and their characters)
// is kept until a term changes the text, so a term that is not there costs a few
// searches and one walk over the words.
class DictionaryPass {
 public:
  explicit DictionaryPass(std::string text) : text_(std::move(text)) {}

  // Every occurrence of `form`, ignoring letter case, replaced by `term`.
  void replaceIgnoringCase(std::string_view form, std::string_view term) {
    if (form.empty()) return;
    if (textIsASCII() && isASCII(form)) {
      // Between ASCII texts, ignoring case only pairs A-Z with a-z.
      std::string loweredForm(form);
      for (char& c : loweredForm) c = internal::lowercaseASCII(c);
      const std::string& lowered = loweredText();
      size_t at = lowered.find(loweredForm);
      if (at == std::string::npos) return;
      std::string output;
      output.reserve(text_.size() + term.size());
      size_t copied = 0;
      for (; at != std::string::npos; at = lowered.find(loweredForm, copied)) {
        output.append(text_, copied, at - copied);
        output.append(term);
        copied = at + form.size();
      }
      output.append(text_, copied);
      replaceText(std::move(output));
      return;
    }
    const icu::UnicodeString unicodeForm = unicodeFrom(form);
    // A match is a stretch of text whose full case folding is the form's, so text
    // whose folding does not contain the form's has none.
    if (foldedText().indexOf(icu::UnicodeString(unicodeForm).foldCase()) < 0) return;
    UParseError parseError;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexPattern> pattern(
        icu::RegexPattern::compile(unicodeForm, UREGEX_LITERAL | UREGEX_CASE_INSENSITIVE, parseError, status));
    if (U_FAILURE(status)) return;
    const icu::UnicodeString& input = unicodeText();
    std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(input, status));
    if (U_FAILURE(status)) return;
    const icu::UnicodeString replacement = unicodeFrom(term);
    icu::UnicodeString output;
    int32_t copied = 0;
    bool replaced = false;
    while (matcher->find(status) && U_SUCCESS(status)) {
      int32_t start = matcher->start(status);
      int32_t end = matcher->end(status);
      if (U_FAILURE(status) || end == start) break;
      output.append(input, copied, start - copied);
      output.append(replacement);
      copied = end;
      replaced = true;
    }
    if (!replaced) return;
    output.append(input, copied, input.length() - copied);
    matcher.reset();
    replaceText(utf8From(output));
  }

  // The text as replaceNGramApproximations(text, term, threshold) leaves it.
  void replaceApproximations(std::string_view term, double threshold) {
    if (!tableIsCurrent_) {
      table_.build(text_, characters_);
      tableIsCurrent_ = true;
    }
    target_.clear();
    characters_.append(term, true, target_);
    findApproximations(table_, target_, threshold, rows_, spans_);
    if (spans_.empty() && table_.joined()) return;
    replaceText(replacingSpans(text_, table_, spans_, term));
  }

  std::string take() { return std::move(text_); }

 private:
  void replaceText(std::string text) {
    text_ = std::move(text);
    ascii_.reset();
    lowered_.reset();
    unicode_.reset();
    folded_.reset();
    tableIsCurrent_ = false;
  }

  bool textIsASCII() {
    if (!ascii_) ascii_ = isASCII(text_);
    return *ascii_;
  }

  const std::string& loweredText() {
    if (!lowered_) {
      lowered_ = text_;
      for (char& c : *lowered_) c = internal::lowercaseASCII(c);
    }
    return *lowered_;
  }

  const icu::UnicodeString& unicodeText() {
    if (!unicode_) unicode_ = unicodeFrom(text_);
    return *unicode_;
  }

  const icu::UnicodeString& foldedText() {
    if (!folded_) folded_ = icu::UnicodeString(unicodeText()).foldCase();
    return *folded_;
  }

  std::string text_;
  std::optional<bool> ascii_;
  std::optional<std::string> lowered_;
  std::optional<icu::UnicodeString> unicode_;
  std::optional<icu::UnicodeString> folded_;
  bool tableIsCurrent_ = false;
  WordTable table_;
  CharacterUnits characters_;
  EditDistanceRows rows_;
  std::vector<Span> spans_;
  std::u32string target_;
};

}  // namespace

void to_json(nlohmann::json& json, const TranscriptCleanupConfiguration& configuration) {
  json = nlohmann::json{{"dictionaryTerms", configuration.dictionaryTerms},
                        {"wordCorrectionThreshold", configuration.wordCorrectionThreshold},
                        {"removesFillers", configuration.removesFillers},
                        {"collapsesStutters", configuration.collapsesStutters}};
  json_support::putOptional(json, "dictionaryContext", configuration.dictionaryContext);
}

void from_json(const nlohmann::json& json, TranscriptCleanupConfiguration& configuration) {
  configuration.dictionaryTerms = json.at("dictionaryTerms").get<std::vector<std::string>>();
  json_support::getOptional(json, "dictionaryContext", configuration.dictionaryContext);
  configuration.wordCorrectionThreshold = json.at("wordCorrectionThreshold").get<double>();
  configuration.removesFillers = json.at("removesFillers").get<bool>();
  configuration.collapsesStutters = json.at("collapsesStutters").get<bool>();
}

TranscriptCleanupEngine::TranscriptCleanupEngine() : TranscriptCleanupEngine(UserDefaults::standard()) {}

TranscriptCleanupEngine::TranscriptCleanupEngine(const UserDefaults& settings)
    : fillerWords{"um", "uh", "erm", "ah", "like"}, settings_(&settings) {}

std::string TranscriptCleanupEngine::clean(std::string_view text, const TranscriptCleanupConfiguration& configuration,
                                           const std::optional<std::string>& language,
                                           const std::function<void(long long)>& onAutocorrectDuration) const {
  std::string result = PromptOutputParser::stripInvisibleCharacters(text);
  const std::vector<std::string> terms =
      normalizedDictionaryTerms(configuration.dictionaryTerms, configuration.dictionaryContext);
  const double threshold = std::min(std::max(configuration.wordCorrectionThreshold, 0.0), 1.0);

  if (configuration.collapsesStutters) result = collapseStutters(result);
  if (configuration.removesFillers) result = removeFillers(result);

  if (!terms.empty()) {
    std::vector<std::pair<size_t, const std::string*>> ordered;
    ordered.reserve(terms.size());
    for (const std::string& term : terms) ordered.emplace_back(characterCount(term), &term);
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    DictionaryPass pass(std::move(result));
    for (const auto& [length, term] : ordered) {
      for (const std::string& form : spokenForms(*term)) pass.replaceIgnoringCase(form, *term);
      pass.replaceApproximations(*term, threshold);
    }
    result = pass.take();
  }

  if (configuration.collapsesStutters) result = collapseStutters(result);
  result = normalizeWhitespace(result);

  const OrvidSettings settings = OrvidSettingsPersistence::load(*settings_);
  if (settings.autocorrectEnabled) {
    const auto start = std::chrono::steady_clock::now();
    AutocorrectRules rules;
    rules.applyRules(settings.autocorrectRules);
    result = rules.format(result);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (onAutocorrectDuration) {
      onAutocorrectDuration(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
    }
  }
  if (settings.inverseTextNormalizationEnabled) {
    result = InverseTextNormalizer::normalize(result, language.value_or("auto"));
  }
  return convertChinese(result, settings.chineseConversionMode);
}

std::string TranscriptCleanupEngine::convertChinese(std::string_view text, std::string_view openccMode) {
  std::optional<OpenCCMode> mode = openCCMode(openccMode);
  if (!mode || *mode == OpenCCMode::none) return std::string(text);
  try {
    return OpenCC::shared().convert(text, *mode);
  } catch (const OpenCCError&) {
    return std::string(text);
  }
}

std::string TranscriptCleanupEngine::normalizeLanguageCode(std::string_view code, bool forLocalEngine) {
  if (code.empty()) return "auto";
  if (forLocalEngine && (code == "zh-Hans" || code == "zh-Hant")) return "zh";
  return std::string(code);
}

std::string TranscriptCleanupEngine::removeFillers(std::string_view text) const {
  std::vector<std::string> kept;
  for (std::string& piece : splitAtSpaces(text, true)) {
    if (fillerWords.count(text_support::lowercased(trimPunctuation(piece))) == 0) kept.push_back(std::move(piece));
  }
  return joinedWithSpaces(kept);
}

std::vector<std::string> TranscriptCleanupEngine::normalizedDictionaryTerms(
    const std::vector<std::string>& terms, const std::optional<std::string>& context) {
  std::vector<std::string> candidates = terms;
  for (std::string& term : contextDictionaryTerms(context)) candidates.push_back(std::move(term));
  std::vector<std::string> result;
  std::set<std::u32string> keys;
  CharacterUnits characters;
  for (const std::string& candidate : candidates) {
    std::string trimmed = normalizeWhitespace(candidate);
    if (trimmed.empty()) continue;
    if (keys.insert(characters.units(trimmed, true)).second) result.push_back(std::move(trimmed));
  }
  return result;
}

std::vector<std::string> TranscriptCleanupEngine::contextDictionaryTerms(const std::optional<std::string>& context) {
  if (!context || trimWhitespaceAndNewlines(*context).empty()) return {};
  std::vector<std::string> terms = matches(patterns().quotedTerm.get(), *context, 1);
  for (std::string& identifier : matches(patterns().identifier.get(), *context, 0)) {
    terms.push_back(std::move(identifier));
  }
  return terms;
}

std::vector<std::string> TranscriptCleanupEngine::spokenForms(std::string_view term) {
  std::vector<std::string> forms{std::string(term)};
  auto add = [&forms](std::string form) {
    if (std::find(forms.begin(), forms.end(), form) == forms.end()) forms.push_back(std::move(form));
  };
  add(replaceAll(patterns().camelCase.get(), term, "$1 $2"));

  icu::UnicodeString unicode = unicodeFrom(term);
  icu::UnicodeString letters;
  bool allUpper = true;
  for (int32_t i = 0; i < unicode.length();) {
    UChar32 c = unicode.char32At(i);
    if (U_GET_GC_MASK(c) & U_GC_L_MASK) {
      allUpper = allUpper && u_isUUppercase(c);
      if (!letters.isEmpty()) letters.append(static_cast<UChar>(u' '));
      letters.append(c);
    }
    i += U16_LENGTH(c);
  }
  if (!letters.isEmpty() && allUpper) add(utf8From(letters));
  return forms;
}

std::string TranscriptCleanupEngine::replaceNGramApproximations(std::string_view text, std::string_view term,
                                                                double threshold) {
  CharacterUnits characters;
  WordTable table;
  table.build(text, characters);
  const std::u32string target = characters.units(term, true);
  EditDistanceRows rows;
  std::vector<Span> spans;
  findApproximations(table, target, threshold, rows, spans);
  return replacingSpans(text, table, spans, term);
}

double TranscriptCleanupEngine::similarity(std::string_view a, std::string_view b) {
  CharacterUnits characters;
  const std::u32string first = characters.units(a, false);
  const std::u32string second = characters.units(b, false);
  // A threshold below every possible value keeps the full computation.
  EditDistanceRows rows;
  return boundedSimilarity(first, second, -1.0, rows);
}

}  // namespace orvid

size_t std::hash<orvid::TranscriptCleanupConfiguration>::operator()(
    const orvid::TranscriptCleanupConfiguration& configuration) const noexcept {
  using orvid::internal::hashCombined;
  size_t seed = 0;
  for (const std::string& term : configuration.dictionaryTerms) seed = hashCombined(seed, std::hash<std::string>{}(term));
  seed = hashCombined(seed, configuration.dictionaryContext ? std::hash<std::string>{}(*configuration.dictionaryContext)
                                                            : 0x51);
  seed = hashCombined(seed, std::hash<double>{}(configuration.wordCorrectionThreshold));
  seed = hashCombined(seed, configuration.removesFillers ? 1 : 2);
  return hashCombined(seed, configuration.collapsesStutters ? 3 : 4);
}
