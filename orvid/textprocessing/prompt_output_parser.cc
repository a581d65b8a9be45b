#include "orvid/textprocessing/prompt_output_parser.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>

#include <nlohmann/json.hpp>
#include <unicode/utf8.h>

#include "orvid/platform/internal/text.h"
#include "orvid/platform/joined.h"
#include "orvid/textprocessing/text_support.h"

namespace orvid {
namespace {

using internal::trimUnicodeWhitespace;

// The pieces of `text` between characters for which `separator` holds, empty pieces dropped.
template <typename Separator>
std::vector<std::string> splitWhere(std::string_view text, Separator separator) {
  std::vector<std::string> pieces;
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  int32_t pieceStart = 0;
  int32_t index = 0;
  while (index < length) {
    int32_t characterStart = index;
    UChar32 c;
    U8_NEXT(bytes, index, length, c);
    if (c >= 0 && separator(static_cast<char32_t>(c))) {
      if (characterStart > pieceStart) {
        pieces.emplace_back(text.substr(static_cast<size_t>(pieceStart), static_cast<size_t>(characterStart - pieceStart)));
      }
      pieceStart = index;
    }
  }
  if (length > pieceStart) pieces.emplace_back(text.substr(static_cast<size_t>(pieceStart)));
  return pieces;
}

bool isLineBreak(char32_t c) {
  return c == U'\n' || c == U'\r' || c == U'\u0085' || c == U'\u2028' || c == U'\u2029';
}

// Trimmed, lower-cased, words separated by single spaces.
std::string normalForm(std::string_view text) {
  std::string lower = text_support::lowercased(trimUnicodeWhitespace(text));
  return joined(splitWhere(lower, internal::isUnicodeWhitespace), " ");
}

std::string stripCodeFence(std::string_view text) {
  std::string trimmed(trimUnicodeWhitespace(text));
  if (trimmed.starts_with("```")) {
    if (size_t newline = trimmed.find('\n'); newline != std::string::npos) trimmed.erase(0, newline);
    if (trimmed.ends_with("```")) trimmed.erase(trimmed.size() - 3);
  }
  return std::string(trimUnicodeWhitespace(trimmed));
}

std::optional<std::vector<std::string>> decodeStringArray(const std::string& text) {
  nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded() || !json.is_array()) return std::nullopt;
  std::vector<std::string> strings;
  for (const auto& element : json) {
    if (!element.is_string()) return std::nullopt;
    strings.push_back(element.get<std::string>());
  }
  return strings;
}

std::vector<std::string> trimmedNonEmpty(const std::vector<std::string>& strings) {
  std::vector<std::string> result;
  for (const std::string& string : strings) {
    std::string trimmed(trimUnicodeWhitespace(string));
    if (!trimmed.empty()) result.push_back(std::move(trimmed));
  }
  return result;
}

}  // namespace

std::string PromptOutputParser::stripInvisibleCharacters(std::string_view text) {
  // U+200B, U+200C, U+200D are E2 80 8B/8C/8D in UTF-8; U+FEFF is EF BB BF.
  std::string result;
  result.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    if (i + 2 < text.size()) {
      auto b0 = static_cast<unsigned char>(text[i]);
      auto b1 = static_cast<unsigned char>(text[i + 1]);
      auto b2 = static_cast<unsigned char>(text[i + 2]);
      if ((b0 == 0xE2 && b1 == 0x80 && (b2 == 0x8B || b2 == 0x8C || b2 == 0x8D)) ||
          (b0 == 0xEF && b1 == 0xBB && b2 == 0xBF)) {
        i += 3;
        continue;
      }
    }
    result.push_back(text[i++]);
  }
  return result;
}

std::string PromptOutputParser::extractOutput(std::string_view text) {
  std::string visible = stripInvisibleCharacters(text);
  std::string_view body = visible;
  constexpr std::string_view kOpen = "<output>";
  constexpr std::string_view kClose = "</output>";
  if (size_t open = body.find(kOpen); open != std::string_view::npos) {
    size_t contentStart = open + kOpen.size();
    if (size_t close = body.find(kClose, contentStart); close != std::string_view::npos) {
      body = body.substr(contentStart, close - contentStart);
    }
  }
  return std::string(trimUnicodeWhitespace(body));
}

std::optional<std::vector<std::string>> PromptOutputParser::parseMultipleChoices(
    std::string_view text, const std::optional<std::string>& originalInput) {
  auto strings = decodeStringArray(stripCodeFence(text));
  if (!strings) return std::nullopt;
  std::vector<std::string> choices = trimmedNonEmpty(*strings);
  if (choices.empty() || looksLikeLineSplitOfSingleAnswer(choices, originalInput)) return std::nullopt;
  return choices;
}

std::optional<std::vector<RewriteChoice>> PromptOutputParser::parseMultipleChoicesStructured(
    std::string_view text, const std::optional<std::string>& originalInput) {
  std::string body = stripCodeFence(text);
  std::optional<std::int64_t> inputLength;
  if (originalInput) inputLength = static_cast<std::int64_t>(text_support::characterCount(*originalInput));

  nlohmann::json json = nlohmann::json::parse(body, nullptr, false);
  if (!json.is_discarded() && json.is_array()) {
    std::optional<std::vector<RewriteChoice>> decoded;
    try {
      decoded = json.get<std::vector<RewriteChoice>>();
    } catch (const nlohmann::json::exception&) {
      decoded.reset();
    }
    if (decoded) {
      std::vector<RewriteChoice> choices;
      std::vector<std::string> texts;
      for (RewriteChoice choice : *decoded) {
        choice.text = std::string(trimUnicodeWhitespace(choice.text));
        if (choice.text.empty()) continue;
        if (inputLength) {
          choice.start = std::max<std::int64_t>(choice.start, 0);
          choice.end = std::min(std::max(choice.start, choice.end), *inputLength);
        } else {
          choice.start = 0;
          choice.end = 0;
        }
        texts.push_back(choice.text);
        choices.push_back(std::move(choice));
      }
      if (!choices.empty() && !looksLikeLineSplitOfSingleAnswer(texts, originalInput)) return choices;
    }
  }

  auto strings = decodeStringArray(body);
  if (!strings) return std::nullopt;
  std::vector<std::string> texts = trimmedNonEmpty(*strings);
  if (texts.empty() || looksLikeLineSplitOfSingleAnswer(texts, originalInput)) return std::nullopt;
  std::vector<RewriteChoice> choices;
  for (std::string& choiceText : texts) choices.push_back({std::move(choiceText), 0, inputLength.value_or(0)});
  return choices;
}

bool PromptOutputParser::looksLikeLineSplitOfSingleAnswer(const std::vector<std::string>& choices,
                                                          const std::optional<std::string>& originalInput) {
  if (choices.size() < 2) return false;
  if (originalInput) {
    std::string inputForm = normalForm(*originalInput);
    if (!inputForm.empty()) {
      std::string joinedForm = normalForm(joined(choices, "\n"));
      if (joinedForm == inputForm || tokenOverlapRatio(joinedForm, inputForm) >= 0.9) return true;
    }
  }
  bool choiceSpansLines = std::any_of(choices.begin(), choices.end(), [](const std::string& choice) {
    return choice.find_first_of("\n\r") != std::string::npos;
  });
  if (choiceSpansLines || !originalInput) return false;
  std::vector<std::string> lines;
  for (const std::string& line : splitWhere(*originalInput, isLineBreak)) {
    std::string trimmed(trimUnicodeWhitespace(line));
    if (!trimmed.empty()) lines.push_back(std::move(trimmed));
  }
  if (lines.size() < 3) return false;
  auto difference = static_cast<long>(choices.size()) - static_cast<long>(lines.size());
  return std::abs(difference) < 2;
}

double PromptOutputParser::tokenOverlapRatio(std::string_view a, std::string_view b) {
  auto tokens = [](std::string_view text) {
    std::set<std::string> set;
    for (std::string& token : splitWhere(text, [](char32_t c) { return c == U' '; })) set.insert(std::move(token));
    return set;
  };
  std::set<std::string> first = tokens(a);
  std::set<std::string> second = tokens(b);
  if (first.empty() || second.empty()) return 0;
  size_t common = 0;
  for (const std::string& token : first) common += second.count(token);
  size_t all = first.size() + second.size() - common;
  return static_cast<double>(common) / static_cast<double>(all);
}

}  // namespace orvid
