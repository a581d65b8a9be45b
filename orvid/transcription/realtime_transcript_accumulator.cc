#include "orvid/transcription/realtime_transcript_accumulator.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include "orvid/platform/internal/text.h"

namespace orvid::RealtimeTranscriptAccumulator {
namespace {

// The overlap scan looks at no more of the running text than this many scalars.
constexpr std::size_t kOverlapScanLimit = 2048;
// The quadratic common-run test looks at no more of each side than this.
constexpr std::size_t kRevisionComparisonLimit = 512;

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// ICU break iterators are not thread-safe; each thread that merges gets its own,
// made once.
icu::BreakIterator* characterBreaks() {
  thread_local std::unique_ptr<icu::BreakIterator> breaks = [] {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> made(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) made.reset();
    return made;
  }();
  return breaks.get();
}

// Character (extended grapheme cluster) boundaries of one UTF-8 text, as byte
// offsets. ASCII text is split without ICU: there every byte is a character but
// for "\r\n". Without ICU's break data every scalar counts as a character.
class Characters {
 public:
  explicit Characters(std::string_view text) : text_(text), ascii_(isASCII(text)) {
    if (ascii_) return;
    breaks_ = characterBreaks();
    if (!breaks_) return;
    UErrorCode status = U_ZERO_ERROR;
    utext_.adoptInstead(utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status));
    breaks_->setText(utext_.getAlias(), status);
    if (U_FAILURE(status)) breaks_ = nullptr;
  }

  // Calls visit(begin, end) for every character in order.
  template <typename Visit>
  void forEach(Visit&& visit) const {
    std::size_t begin = 0;
    while (begin < text_.size()) {
      std::size_t end = next(begin);
      visit(begin, end);
      begin = end;
    }
  }

  // The offset just after the character that starts at `begin`.
  std::size_t next(std::size_t begin) const {
    if (breaks_) return static_cast<std::size_t>(breaks_->following(static_cast<int32_t>(begin)));
    if (ascii_) return begin + (text_.substr(begin, 2) == "\r\n" ? 2 : 1);
    return afterScalar(begin);
  }

  // The offset where the character that ends at `end` starts.
  std::size_t previous(std::size_t end) const {
    if (breaks_) return static_cast<std::size_t>(breaks_->preceding(static_cast<int32_t>(end)));
    if (ascii_) return end - (end >= 2 && text_.substr(end - 2, 2) == "\r\n" ? 2 : 1);
    int32_t offset = static_cast<int32_t>(end);
    UChar32 scalar;
    U8_PREV(text_.data(), 0, offset, scalar);
    return static_cast<std::size_t>(offset);
  }

  bool isBoundary(std::size_t offset) const {
    if (offset == 0 || offset >= text_.size()) return true;
    if (breaks_) return breaks_->isBoundary(static_cast<int32_t>(offset));
    if (ascii_) return !(text_[offset - 1] == '\r' && text_[offset] == '\n');
    return !U8_IS_TRAIL(static_cast<uint8_t>(text_[offset]));
  }

 private:
  std::size_t afterScalar(std::size_t begin) const {
    int32_t offset = static_cast<int32_t>(begin);
    UChar32 scalar;
    U8_NEXT(text_.data(), offset, static_cast<int32_t>(text_.size()), scalar);
    return static_cast<std::size_t>(offset);
  }

  std::string_view text_;
  bool ascii_;
  icu::BreakIterator* breaks_ = nullptr;
  icu::LocalUTextPointer utext_;
};

std::u32string scalarsOf(std::string_view text) {
  std::u32string scalars;
  int32_t offset = 0;
  const auto length = static_cast<int32_t>(text.size());
  while (offset < length) {
    UChar32 scalar;
    U8_NEXT(text.data(), offset, length, scalar);
    scalars.push_back(static_cast<char32_t>(scalar < 0 ? 0xFFFD : scalar));
  }
  return scalars;
}

// Appends the letters and digits of one non-ASCII character, folded for width,
// case and diacritics without a locale: halfwidth and fullwidth forms become
// their ordinary counterparts, case is folded, and the character is decomposed,
// stripped of its non-spacing marks and composed again.
void appendFoldedAlphanumerics(std::string_view character, std::u32string& scalars) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfkc = icu::Normalizer2::getNFKCInstance(status);
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  if (U_FAILURE(status)) return;

  icu::UnicodeString folded;
  for (char32_t scalar : scalarsOf(character)) {
    icu::UnicodeString one(static_cast<UChar32>(scalar));
    if (scalar >= 0xFF00 && scalar <= 0xFFEF) one = nfkc->normalize(one, status);
    folded.append(one);
  }
  folded.foldCase(U_FOLD_CASE_DEFAULT);
  icu::UnicodeString decomposed = nfd->normalize(folded, status);
  icu::UnicodeString unmarked;
  for (int32_t i = 0; i < decomposed.length();) {
    UChar32 scalar = decomposed.char32At(i);
    if (u_charType(scalar) != U_NON_SPACING_MARK) unmarked.append(scalar);
    i += U16_LENGTH(scalar);
  }
  icu::UnicodeString composed = nfc->normalize(unmarked, status);
  if (U_FAILURE(status)) return;
  for (int32_t i = 0; i < composed.length();) {
    UChar32 scalar = composed.char32At(i);
    if (u_isalnum(scalar)) scalars.push_back(static_cast<char32_t>(scalar));
    i += U16_LENGTH(scalar);
  }
}

// What one BMP scalar on its own contributes to a comparison text, worked out once
// and kept: 0 until known; otherwise kKnown, plus kJoins when the scalar may join
// the character before it (so splitting the text needs ICU's break rules), plus
// either kDropped, kSeveral (folding makes more than one scalar) or the one folded
// scalar.
constexpr std::uint32_t kKnown = 1u << 31;
constexpr std::uint32_t kJoins = 1u << 30;
constexpr std::uint32_t kDropped = 0x3FFFFF;
constexpr std::uint32_t kSeveral = 0x3FFFFE;
constexpr std::uint32_t kScalarBits = 0x3FFFFF;

bool joinsPrevious(UChar32 scalar) {
  switch (u_getIntPropertyValue(scalar, UCHAR_GRAPHEME_CLUSTER_BREAK)) {
    case U_GCB_EXTEND:
    case U_GCB_ZWJ:
    case U_GCB_SPACING_MARK:
    case U_GCB_PREPEND:
    case U_GCB_L:
    case U_GCB_V:
    case U_GCB_T:
    case U_GCB_REGIONAL_INDICATOR:
      return true;
    default:
      return false;
  }
}

std::uint32_t describeScalar(UChar32 scalar) {
  char utf8[4];
  int32_t length = 0;
  UBool failed = false;
  U8_APPEND(utf8, length, 4, scalar, failed);
  std::u32string folded;
  if (!failed) appendFoldedAlphanumerics(std::string_view(utf8, static_cast<std::size_t>(length)), folded);
  const std::uint32_t contribution =
      folded.empty() ? kDropped : (folded.size() > 1 ? kSeveral : static_cast<std::uint32_t>(folded[0]));
  return kKnown | (joinsPrevious(scalar) ? kJoins : 0) | contribution;
}

// The description of `scalar`; BMP scalars, nearly all text, come from a table
// shared by every thread and filled as they are met.
std::uint32_t scalarDescription(UChar32 scalar) {
  static std::array<std::atomic<std::uint32_t>, 0x10000> table{};
  if (scalar < 0 || scalar > 0xFFFF) return describeScalar(scalar);
  auto& entry = table[static_cast<std::size_t>(scalar)];
  std::uint32_t description = entry.load(std::memory_order_relaxed);
  if (description == 0) {
    description = describeScalar(scalar);
    entry.store(description, std::memory_order_relaxed);
  }
  return description;
}

// True when some scalar of `text` may join the one before it, so that characters
// are not simply scalars (with "\r\n" as one).
bool needsBreakRules(std::string_view text) {
  int32_t offset = 0;
  const auto length = static_cast<int32_t>(text.size());
  while (offset < length) {
    UChar32 scalar;
    U8_NEXT(text.data(), offset, length, scalar);
    if (scalar >= 0x80 && (scalarDescription(scalar) & kJoins) != 0) return true;
  }
  return false;
}

// The folded letters and digits of a text, with the text offset just after the
// character each came from; boundaries[0] is 0 for a non-empty text, so the first
// k scalars come from text[0, boundaries[k]).
struct ComparisonText {
  std::u32string scalars;
  std::vector<std::size_t> boundaries;
  std::size_t characterCount = 0;

  explicit ComparisonText(std::string_view text) {
    if (text.empty()) return;
    boundaries.push_back(0);
    scalars.reserve(text.size());
    boundaries.reserve(text.size() + 1);
    if (needsBreakRules(text)) {
      Characters(text).forEach([&](std::size_t begin, std::size_t end) { add(text, begin, end); });
      return;
    }
    // Every scalar is a character of its own, but for "\r\n".
    int32_t offset = 0;
    const auto length = static_cast<int32_t>(text.size());
    while (offset < length) {
      const auto begin = static_cast<std::size_t>(offset);
      UChar32 scalar;
      U8_NEXT(text.data(), offset, length, scalar);
      if (scalar == '\r' && offset < length && text[static_cast<std::size_t>(offset)] == '\n') ++offset;
      const auto end = static_cast<std::size_t>(offset);
      if (scalar < 0x80) {
        add(text, begin, end);
        continue;
      }
      ++characterCount;
      const std::uint32_t contribution = scalarDescription(scalar < 0 ? 0xFFFD : scalar) & kScalarBits;
      if (contribution == kSeveral) {
        --characterCount;
        add(text, begin, end);
      } else if (contribution != kDropped) {
        scalars.push_back(static_cast<char32_t>(contribution));
        boundaries.push_back(end);
      }
    }
  }

 private:
  // One character, text[begin, end).
  void add(std::string_view text, std::size_t begin, std::size_t end) {
    ++characterCount;
    std::string_view character = text.substr(begin, end - begin);
    std::size_t before = scalars.size();
    if (character.size() == 1 && isASCII(character)) {
      char c = character[0];
      if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
        scalars.push_back(static_cast<char32_t>(internal::lowercaseASCII(c)));
    } else {
      appendFoldedAlphanumerics(character, scalars);
    }
    boundaries.insert(boundaries.end(), scalars.size() - before, end);
  }
};

// Character-wise prefix: `prefix` must end on a character boundary of `text`.
bool startsWith(std::string_view text, std::string_view prefix) {
  return text.starts_with(prefix) && Characters(text).isBoundary(prefix.size());
}

// KMP failure function: entry i is the length of the longest proper prefix of
// pattern[0...i] that is also its suffix.
std::vector<std::size_t> prefixTable(const std::u32string& pattern) {
  std::vector<std::size_t> table(pattern.size(), 0);
  std::size_t matched = 0;
  for (std::size_t i = 1; i < pattern.size(); ++i) {
    while (matched > 0 && pattern[i] != pattern[matched]) matched = table[matched - 1];
    if (pattern[i] == pattern[matched]) ++matched;
    table[i] = matched;
  }
  return table;
}

// The length of the longest suffix of `a` (of its last 2048 scalars) that is
// also a prefix of `b`.
std::size_t suffixPrefixOverlap(const std::u32string& a, const std::u32string& b) {
  if (a.empty() || b.empty()) return 0;
  const std::vector<std::size_t> table = prefixTable(b);
  const std::size_t start = a.size() > kOverlapScanLimit ? a.size() - kOverlapScanLimit : 0;
  std::size_t matched = 0;
  for (std::size_t i = start; i < a.size(); ++i) {
    // A whole match of `b` that is not at the end of `a` is not a suffix.
    if (matched == b.size()) matched = table[matched - 1];
    while (matched > 0 && a[i] != b[matched]) matched = table[matched - 1];
    if (a[i] == b[matched]) ++matched;
  }
  return matched;
}

// The length of the longest common contiguous run of `a` and `b`.
std::size_t longestCommonContiguousRun(std::u32string_view a, std::u32string_view b) {
  std::vector<std::size_t> previous(b.size() + 1, 0);
  std::vector<std::size_t> row(b.size() + 1, 0);
  std::size_t longest = 0;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = a[i - 1] == b[j - 1] ? previous[j - 1] + 1 : 0;
      longest = std::max(longest, row[j]);
    }
    std::swap(previous, row);
  }
  return longest;
}

// Two long hypotheses of similar length that share most of their words in one
// run: the newer is a revision of the whole, not a continuation.
bool isLikelyCumulativeRevision(const std::u32string& a, const std::u32string& b) {
  const std::size_t shorter = std::min(a.size(), b.size());
  const std::size_t longer = std::max(a.size(), b.size());
  if (shorter < 24 || shorter * 4 < longer * 3) return false;
  std::u32string_view cutA = std::u32string_view(a).substr(0, kRevisionComparisonLimit);
  std::u32string_view cutB = std::u32string_view(b).substr(0, kRevisionComparisonLimit);
  const std::size_t run = longestCommonContiguousRun(cutA, cutB);
  const auto threshold = static_cast<std::size_t>(0.58 * static_cast<double>(std::min(cutA.size(), cutB.size())));
  return run >= std::max<std::size_t>(threshold, 14);
}

bool isCJK(char32_t c) {
  return (c >= 0x3040 && c <= 0x30FF) || (c >= 0x31F0 && c <= 0x31FF) || (c >= 0x3400 && c <= 0x4DBF) ||
         (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0xAC00 && c <= 0xD7AF) || (c >= 0xF900 && c <= 0xFAFF) ||
         (c >= 0xFF00 && c <= 0xFFEF);
}

bool containsCJK(std::string_view character) {
  const std::u32string scalars = scalarsOf(character);
  return std::any_of(scalars.begin(), scalars.end(), isCJK);
}

// `a` followed by `b`, with a space between them unless white space or
// punctuation at the seam, or CJK text on both sides, makes one unnecessary.
std::string join(std::string_view a, std::string_view b) {
  if (b.empty()) return std::string(a);
  if (a.empty()) return std::string(b);
  const std::string_view last = a.substr(Characters(a).previous(a.size()));
  const std::string_view first = b.substr(0, Characters(b).next(0));
  const UChar32 x = static_cast<UChar32>(scalarsOf(last).front());
  const UChar32 y = static_cast<UChar32>(scalarsOf(first).front());
  std::string joined(a);
  if (!u_isUWhiteSpace(x) && !u_isUWhiteSpace(y) && !u_ispunct(y) && !(containsCJK(last) && containsCJK(first)))
    joined += ' ';
  joined += b;
  return joined;
}

// The answers that need no guessing: equal texts, extensions, restatements that
// differ only in case, accents, width, spacing or punctuation, and a new text
// whose start repeats the end of the old one.
std::optional<std::string> resolveKnownRelationship(std::string_view current, std::string_view incoming,
                                                    const ComparisonText& currentText,
                                                    const ComparisonText& incomingText) {
  if (current == incoming) return std::string(current);
  if (startsWith(incoming, current)) return std::string(incoming);
  if (startsWith(current, incoming)) return std::string(current);
  if (currentText.scalars.empty() || incomingText.scalars.empty()) return std::nullopt;
  if (currentText.scalars == incomingText.scalars)
    return std::string(incomingText.characterCount > currentText.characterCount ? incoming : current);
  if (incomingText.scalars.starts_with(currentText.scalars)) return std::string(incoming);
  if (currentText.scalars.starts_with(incomingText.scalars)) return std::string(current);

  const std::size_t overlap = suffixPrefixOverlap(currentText.scalars, incomingText.scalars);
  if (overlap < 2) return std::nullopt;
  // A short overlap is only trusted when one of the texts is hardly longer.
  if (overlap < 4 && std::min(currentText.scalars.size(), incomingText.scalars.size()) > 2 * overlap)
    return std::nullopt;
  const std::size_t tailStart = incomingText.boundaries[std::min(overlap, incomingText.boundaries.size() - 1)];
  return join(current, incoming.substr(tailStart));
}

}  // namespace

std::string merge(std::string_view current, std::string_view incoming) {
  incoming = internal::trimUnicodeWhitespace(incoming);
  if (incoming.empty()) return std::string(current);
  if (current.empty()) return std::string(incoming);
  const ComparisonText currentText(current);
  const ComparisonText incomingText(incoming);
  if (auto known = resolveKnownRelationship(current, incoming, currentText, incomingText)) return *known;
  if (isLikelyCumulativeRevision(currentText.scalars, incomingText.scalars)) return std::string(incoming);
  return join(current, incoming);
}

std::string mergeOverlappingWindow(std::string_view current, std::string_view incoming) {
  incoming = internal::trimUnicodeWhitespace(incoming);
  if (incoming.empty()) return std::string(current);
  if (current.empty()) return std::string(incoming);
  const ComparisonText currentText(current);
  const ComparisonText incomingText(incoming);
  if (auto known = resolveKnownRelationship(current, incoming, currentText, incomingText)) return *known;
  const std::size_t shown = currentText.scalars.size();
  const std::size_t window = incomingText.scalars.size();
  if (shown <= 2 * window || window >= 80) return std::string(incoming);
  return std::string(current);
}

std::string ingestInterim(std::string_view committed, std::string_view currentTentative, std::string_view incoming) {
  incoming = internal::trimUnicodeWhitespace(incoming);
  if (incoming.empty()) return std::string(currentTentative);
  if (!currentTentative.empty()) {
    std::string merged = merge(currentTentative, incoming);
    if (merged == currentTentative || merged == incoming || committed.empty()) return merged;
    // A hypothesis that restates everything, the committed text included.
    if (merge(committed, incoming) == incoming) return std::string(incoming);
    return merged;
  }
  if (committed.empty()) return std::string(incoming);
  if (merge(committed, incoming) == committed) return std::string();
  return std::string(incoming);
}

}  // namespace orvid::RealtimeTranscriptAccumulator
