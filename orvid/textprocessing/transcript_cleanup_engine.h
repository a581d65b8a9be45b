#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

class UserDefaults;

// How one transcript is cleaned.
struct TranscriptCleanupConfiguration {
  // The user's dictionary: spellings forced into the text.
  std::vector<std::string> dictionaryTerms;
  // Free text (e.g. the focused document) whose quoted terms and identifiers
  // join the dictionary.
  std::optional<std::string> dictionaryContext;
  // Similarity (0 to 1) a span of words needs to be replaced by a term.
  double wordCorrectionThreshold = 0.85;
  bool removesFillers = false;
  bool collapsesStutters = false;

  bool operator==(const TranscriptCleanupConfiguration&) const = default;
};

// Keys are the field names; "dictionaryContext" is omitted when absent and may be
// missing when decoding; the other keys are required.
void to_json(nlohmann::json& json, const TranscriptCleanupConfiguration& configuration);
void from_json(const nlohmann::json& json, TranscriptCleanupConfiguration& configuration);

// Turns a raw transcript into the text that is typed or rewritten: invisible
// characters removed, stutters collapsed, fillers dropped, dictionary terms
// forced in (exact spoken forms, then fuzzy matches over spans of words), white
// space tidied, then the user's autocorrect rules, inverse text normalisation
// and Chinese script conversion as their settings say. Deterministic given the
// configuration and the settings; never throws. Copies share the settings source.
class TranscriptCleanupEngine {
 public:
  // Reads the user's settings from UserDefaults::standard() on every clean().
  TranscriptCleanupEngine();
  // Reads the user's settings from `settings`, which must outlive the engine.
  explicit TranscriptCleanupEngine(const UserDefaults& settings);

  // Dropped by filler removal, compared lower-cased with punctuation trimmed:
  // "um", "uh", "erm", "ah", "like".
  std::set<std::string> fillerWords;

  // The cleaned text. `language` (a code such as "en" or "zh-Hans"; "auto" when
  // absent) steers inverse text normalisation; `onAutocorrectDuration`, when
  // given, receives the time autocorrect took in whole milliseconds (only when
  // autocorrect is on).
  std::string clean(std::string_view text, const TranscriptCleanupConfiguration& configuration,
                    const std::optional<std::string>& language = std::nullopt,
                    const std::function<void(long long)>& onAutocorrectDuration = {}) const;

  // `text` converted by the shared Chinese converter with the mode named
  // `openccMode` ("s2t", "tw2sp", ...). "none", an unknown name or a failed
  // conversion leave the text unchanged.
  static std::string convertChinese(std::string_view text, std::string_view openccMode);

  // "zh-Hans" and "zh-Hant" become "zh" for local engines; "" becomes "auto";
  // every other code is returned unchanged.
  static std::string normalizeLanguageCode(std::string_view code, bool forLocalEngine);

  // The steps of clean(), for callers that need one of them alone.

  // Splits at single spaces (keeping empty pieces), drops pieces that are filler
  // words once punctuation is trimmed from both ends, joins with single spaces.
  std::string removeFillers(std::string_view text) const;

  // `terms` followed by the terms found in `context`, white space collapsed and
  // trimmed, empty ones skipped, and only the first of those that are equal once
  // lower-cased and reduced to letters and digits ("Open AI" and "openai").
  static std::vector<std::string> normalizedDictionaryTerms(const std::vector<std::string>& terms,
                                                            const std::optional<std::string>& context);

  // The quoted terms of `context` ("…", '…' or `…`), then its identifiers (all
  // capitals such as AWS, or with an inner capital such as GitHub), in order.
  static std::vector<std::string> contextDictionaryTerms(const std::optional<std::string>& context);

  // How `term` may have been transcribed: itself, its camel case split into
  // words ("Git Hub"), and for all-capital terms its letters spelt out ("A W S").
  static std::vector<std::string> spokenForms(std::string_view term);

  // Replaces each span of one to six words that is at least `threshold` similar
  // to `term` (compared lower-cased, letters and digits only) by `term`, trying
  // the longest span first at every word; the result's words are joined by
  // single spaces.
  static std::string replaceNGramApproximations(std::string_view text, std::string_view term, double threshold);

  // 1 − edit distance ÷ the longer length, over characters as the user sees them
  // (grapheme clusters, composed and decomposed spellings equal); 1 when both are
  // empty.
  static double similarity(std::string_view a, std::string_view b);

 private:
  const UserDefaults* settings_;
};

}  // namespace orvid

template <>
struct std::hash<orvid::TranscriptCleanupConfiguration> {
  size_t operator()(const orvid::TranscriptCleanupConfiguration& configuration) const noexcept;
};
