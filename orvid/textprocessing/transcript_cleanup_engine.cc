#include "orvid/textprocessing/transcript_cleanup_engine.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>

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

char lowerASCII(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Every occurrence of `form`, ignoring letter case, replaced by `term`.
std::string replaceIgnoringCase(std::string_view text, std::string_view form, std::string_view term) {
  if (form.empty()) return std::string(text);
  if (isASCII(text) && isASCII(form)) {
    // Between ASCII texts, ignoring case only pairs A-Z with a-z.
    auto equalIgnoringCase = [](char a, char b) { return lowerASCII(a) == lowerASCII(b); };
    std::string output;
    size_t copied = 0;
    for (auto at = std::search(text.begin(), text.end(), form.begin(), form.end(), equalIgnoringCase);
         at != text.end();
         at = std::search(at + static_cast<std::ptrdiff_t>(form.size()), text.end(), form.begin(), form.end(),
                          equalIgnoringCase)) {
      const auto start = static_cast<size_t>(at - text.begin());
      output.append(text.substr(copied, start - copied));
      output.append(term);
      copied = start + form.size();
    }
    if (copied == 0) return std::string(text);
    output.append(text.substr(copied));
    return output;
  }
  UParseError parseError;
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexPattern> pattern(icu::RegexPattern::compile(
      unicodeFrom(form), UREGEX_LITERAL | UREGEX_CASE_INSENSITIVE, parseError, status));
  if (U_FAILURE(status)) return std::string(text);
  icu::UnicodeString input = unicodeFrom(text);
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(input, status));
  if (U_FAILURE(status)) return std::string(text);
  icu::UnicodeString replacement = unicodeFrom(term);
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
  if (!replaced) return std::string(text);
  output.append(input, copied, input.length() - copied);
  return utf8From(output);
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
    const bool ascii = isASCII(text);
    // Every ASCII character but CR LF is a character of its own; CR and LF are
    // neither letters nor digits.
    if (ascii && (matchingForm || text.find("\r\n") == std::string_view::npos)) {
      for (char c : text) {
        char lower = matchingForm && c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        bool keep = !matchingForm || (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9');
        if (keep) result.push_back(static_cast<char32_t>(static_cast<unsigned char>(lower)));
      }
      return result;
    }
    icu::UnicodeString unicode = unicodeFrom(text);
    if (matchingForm) unicode.toLower(icu::Locale::getRoot());
    UErrorCode status = U_ZERO_ERROR;
    if (const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status); U_SUCCESS(status)) {
      icu::UnicodeString composed = nfc->normalize(unicode, status);
      if (U_SUCCESS(status)) unicode = std::move(composed);
    }
    auto append = [&](int32_t start, int32_t end) {
      UChar32 first = unicode.char32At(start);
      if (matchingForm && !isLetterOrNumber(first)) return;
      result.push_back(unitOf(unicode, start, end));
    };
    if (eachCodePointIsACharacter(unicode)) {
      for (int32_t i = 0; i < unicode.length();) {
        int32_t next = unicode.moveIndex32(i, 1);
        append(i, next);
        i = next;
      }
      return result;
    }
    icu::BreakIterator* characters = breakIterator();
    if (characters == nullptr) return result;
    characters->setText(unicode);
    for (int32_t start = characters->first(), end = characters->next(); end != icu::BreakIterator::DONE;
         start = end, end = characters->next()) {
      append(start, end);
    }
    return result;
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
    for (const std::string& term : terms) ordered.emplace_back(text_support::characterCount(term), &term);
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    for (const auto& [length, term] : ordered) {
      for (const std::string& form : spokenForms(*term)) {
        if (!form.empty()) result = replaceIgnoringCase(result, form, *term);
      }
      result = replaceNGramApproximations(result, *term, threshold);
    }
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
  const std::vector<std::string_view> words = wordsOf(text);
  CharacterUnits characters;
  const std::u32string target = characters.units(term, true);
  std::vector<std::u32string> forms;
  forms.reserve(words.size());
  for (std::string_view word : words) forms.push_back(characters.units(word, true));

  const size_t targetLength = target.size();
  const size_t allowedDifference = targetLength < 6 ? 3 : targetLength / 2;
  std::string output;
  output.reserve(text.size());
  bool first = true;
  auto emit = [&output, &first](std::string_view piece) {
    if (!first) output.push_back(' ');
    output.append(piece);
    first = false;
  };
  std::u32string candidate;
  EditDistanceRows rows;
  size_t i = 0;
  while (i < words.size()) {
    bool matched = false;
    const size_t longest = std::min<size_t>(6, words.size() - i);
    size_t spanLength = 0;
    for (size_t k = i; k < i + longest; ++k) spanLength += forms[k].size();
    for (size_t n = longest; n >= 1; spanLength -= forms[i + n - 1].size(), --n) {
      size_t difference = spanLength > targetLength ? spanLength - targetLength : targetLength - spanLength;
      if (difference > allowedDifference) continue;
      candidate.clear();
      for (size_t k = i; k < i + n; ++k) candidate += forms[k];
      if (boundedSimilarity(candidate, target, threshold, rows) >= threshold) {
        emit(term);
        i += n;
        matched = true;
        break;
      }
    }
    if (!matched) emit(words[i++]);
  }
  return output;
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
  size_t seed = 0;
  auto combine = [&seed](size_t value) { seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2); };
  for (const std::string& term : configuration.dictionaryTerms) combine(std::hash<std::string>{}(term));
  combine(configuration.dictionaryContext ? std::hash<std::string>{}(*configuration.dictionaryContext) : 0x51);
  combine(std::hash<double>{}(configuration.wordCorrectionThreshold));
  combine(configuration.removesFillers ? 1 : 2);
  combine(configuration.collapsesStutters ? 3 : 4);
  return seed;
}
