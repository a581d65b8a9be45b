#include "orvid/ai/secret_redactor.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <unicode/regex.h>
#include <unicode/utext.h>

#include "orvid/ai/internal/secret_replacement.h"

namespace orvid::SecretRedactor {

constexpr std::string_view kReplacement = "[REDACTED]";

namespace {

constexpr std::array<const char*, 4> kPatterns = {
    R"((?i)\b((?:authorization|proxy-authorization)[ \t]*[:=][ \t]*(?:bearer|token)[ \t]+)[A-Za-z0-9._~+/=-]+)",
    R"((?i)(?<![:=])\b((?:bearer|token)[ \t]+)[A-Za-z0-9._~+/=-]+)",
    R"((?i)\b((?:x-api-key|api[-_]?key)[ \t]*["']?[ \t]*[:=][ \t]*["']?)[^"'\s,;}\\]+)",
    R"((?i)\b((?:x-[a-z0-9-]*(?:token|secret|credential|key))[ \t]*[:=][ \t]*)[^"'\s,;}\\]+)",
};

// What can stand glued in front of a label without a word boundary, yet still
// separates it from the word before: an escape as JSON, C, Python or URLs write it
// ("\n", "\u200b", "\x0a", "%0A"), or an invisible format character (zero-width
// space, byte order mark...), which the engine's \b looks through.
constexpr std::string_view kGluedSeparator =
    R"((?<=\\[0abtnvfr]|\\u[0-9A-Fa-f]{4}|\\x[0-9A-Fa-f]{2}|%[0-9A-Fa-f]{2}|\p{Cf}))";

constexpr std::size_t kPatternCount = 2 * kPatterns.size();

// The secret of the last two patterns, `[^"'\s,;}\\]+`, runs on over escapes and
// invisible characters, and so over a label that stands glued or after punctuation
// inside it. Past its first character it stops where such a label starts, so that
// the label is left for its own pattern; where no label stands inside, it is the
// same secret.
constexpr std::string_view kOpenSecret = R"([^"'\s,;}\\]+)";
constexpr std::string_view kSecretUpToALabel =
    R"([^"'\s,;}\\](?:(?!(?:\b|(?<=\\[0abtnvfr]|\\u[0-9A-Fa-f]{4}|\\x[0-9A-Fa-f]{2}|%[0-9A-Fa-f]{2}|\p{Cf})))"
    R"((?:(?:proxy-)?authorization[ \t]*[:=]|(?:bearer|token)[ \t]+[A-Za-z0-9._~+/=-]|)"
    R"((?:x-api-key|api[-_]?key)[ \t]*["']?[ \t]*[:=]|x-[a-z0-9-]*(?:token|secret|credential|key)[ \t]*[:=])))"
    R"([^"'\s,;}\\])*)";

// The four patterns in their order, each preceded by its glued form: the same
// pattern with the leading word boundary replaced by a glued separator. A glued
// label is thus caught at its own pattern's turn, before a value of a later pattern
// (which runs on over an invisible character) could swallow it and leave its secret
// behind. Where nothing is glued to a label the glued forms match nothing and the
// four give their own results.
std::array<std::string, kPatternCount> patternSources() {
  std::array<std::string, kPatternCount> sources;
  for (std::size_t index = 0; index < kPatterns.size(); ++index) {
    std::string plain = kPatterns[index];
    if (const std::size_t secret = plain.rfind(kOpenSecret); secret != std::string::npos) {
      plain.replace(secret, kOpenSecret.size(), kSecretUpToALabel);
    }
    std::string glued = plain;
    const std::size_t boundary = glued.find(R"(\b()");
    if (boundary == std::string::npos) throw std::logic_error("credential pattern without a leading boundary");
    glued.replace(boundary, 2, kGluedSeparator);
    sources[2 * index] = std::move(glued);
    sources[2 * index + 1] = std::move(plain);
  }
  return sources;
}

// The compiled patterns, built once. A RegexPattern is immutable and may be shared
// between threads; each call makes its own matchers.
const std::array<std::unique_ptr<icu::RegexPattern>, kPatternCount>& compiledPatterns() {
  static const auto patterns = [] {
    std::array<std::unique_ptr<icu::RegexPattern>, kPatternCount> result;
    const auto sources = patternSources();
    for (std::size_t index = 0; index < sources.size(); ++index) {
      UErrorCode status = U_ZERO_ERROR;
      UParseError parseError{};
      result[index].reset(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(sources[index]),
                                                     UREGEX_CASE_INSENSITIVE, parseError, status));
      if (U_FAILURE(status)) {
        throw std::logic_error(std::string("credential pattern does not compile: ") + u_errorName(status));
      }
    }
    return result;
  }();
  return patterns;
}

}  // namespace

std::string redact(std::string_view text) {
  std::string result(text);
  for (const auto& pattern : compiledPatterns()) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(status));
    std::optional<std::string> replaced;
    if (U_SUCCESS(status)) replaced = internal::replaceSecrets(*matcher, result);
    // Fail closed: a text that could not be searched may still hold a secret.
    if (!replaced) return std::string(kReplacement);
    result = std::move(*replaced);
  }
  return result;
}

}  // namespace orvid::SecretRedactor

namespace orvid::internal {

// Matching runs on a UTF-8 UText, whose native indexes are byte offsets, so the bytes
// between matches are copied from the input untouched.
std::optional<std::string> replaceSecrets(icu::RegexMatcher& matcher, const std::string& text) {
  UErrorCode status = U_ZERO_ERROR;
  UText* input = utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status);
  if (U_FAILURE(status)) return std::nullopt;
  std::unique_ptr<UText, decltype(&utext_close)> inputOwner(input, &utext_close);
  matcher.reset(input);

  std::string output;
  output.reserve(text.size());
  int64_t copied = 0;
  while (matcher.find(status) && U_SUCCESS(status)) {
    const int64_t matchStart = matcher.start64(status);
    const int64_t labelStart = matcher.start64(1, status);
    const int64_t labelEnd = matcher.end64(1, status);
    const int64_t matchEnd = matcher.end64(status);
    if (U_FAILURE(status)) return std::nullopt;
    output.append(text, static_cast<size_t>(copied), static_cast<size_t>(matchStart - copied));
    output.append(text, static_cast<size_t>(labelStart), static_cast<size_t>(labelEnd - labelStart));
    output.append(SecretRedactor::kReplacement);
    copied = matchEnd;
  }
  if (U_FAILURE(status)) return std::nullopt;
  output.append(text, static_cast<size_t>(copied), std::string::npos);
  return output;
}

}  // namespace orvid::internal
