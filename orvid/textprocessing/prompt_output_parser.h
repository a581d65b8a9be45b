#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/core/corelib/transcription_prompt.h"

namespace orvid {

// Turns a language model's answer into clean text or a list of alternative
// rewrites. Pure functions; they never throw: malformed answers degrade to the
// whole text (extractOutput) or to no result (the choice parsers).
struct PromptOutputParser {
  // `text` without U+200B, U+200C, U+200D and U+FEFF.
  static std::string stripInvisibleCharacters(std::string_view text);

  // The answer between the first "<output>" and the first "</output>" after it
  // (the whole text when either tag is missing), invisible characters removed and
  // white space trimmed.
  static std::string extractOutput(std::string_view text);

  // A JSON array of strings (optionally in a ``` fence), trimmed, empty ones
  // dropped. Absent when the text is not such an array, nothing is left, or the
  // "alternatives" are really one answer cut into lines.
  static std::optional<std::vector<std::string>> parseMultipleChoices(
      std::string_view text, const std::optional<std::string>& originalInput = std::nullopt);

  // A JSON array of {"text", "start", "end"} objects, offsets clamped to the
  // input's length L in characters: start = max(start, 0), end = min(max(start,
  // end), L); both 0 when the input is unknown. Start itself is kept as the model
  // gave it, so a choice whose start lies past the input has start > end: a caller
  // that splices the text in checks start <= end first. Failing that, a JSON array
  // of strings, each covering the whole input. Absent as for parseMultipleChoices.
  static std::optional<std::vector<RewriteChoice>> parseMultipleChoicesStructured(
      std::string_view text, const std::optional<std::string>& originalInput = std::nullopt);

  // True when two or more choices are one answer cut into lines: joined by line
  // breaks they equal the input (ignoring case and spacing) or share at least 90%
  // of its words; or, when no choice spans lines, the input has three or more
  // non-empty lines and the choices number within one of them.
  static bool looksLikeLineSplitOfSingleAnswer(const std::vector<std::string>& choices,
                                               const std::optional<std::string>& originalInput);

  // |A ∩ B| / |A ∪ B| of the sets of space-separated words of `a` and `b`; 0 when
  // either has none.
  static double tokenOverlapRatio(std::string_view a, std::string_view b);
};

}  // namespace orvid
