// Plants a credential in fuzz-chosen surroundings and feeds the text to
// SecretRedactor::redact. The first byte picks the label and what ends the secret,
// the second the separator glued in front of the label; the rest, cut at its first
// NUL byte, is the text before and after. The secret must never survive, whatever
// stands around it, and the redacted text may grow only by the replacement per
// credential. Any ASCII text without a credential label comes back unchanged.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/platform/internal/text.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

namespace SecretRedactor = orvid::SecretRedactor;

constexpr std::string_view kSecret = "sk-PLANTED0secret9Zq";

constexpr std::array<std::string_view, 12> kLabels = {
    "Bearer ",       "bearer\t",          "Authorization: Bearer ", "Proxy-Authorization=token ",
    "token ",        "x-api-key: ",       "api_key=",               "\"apiKey\": \"",
    "API-KEY = '",   "X-Goog-Api-Key: ", "X-Auth-Token: ",          "x-client-secret=",
};

// What separates the label from the text before it: a line end, punctuation, a
// JSON or URL escape written out, or an invisible format character (zero-width
// space, byte order mark, word joiner).
constexpr std::array<std::string_view, 16> kSeparators = {
    "\n",     "\r\n",   "\"",     ",",      "{",     "(",     "\\n",           "\\t",
    "\\u200b", "\\x0a", "%0A",    "\\\"",   "\xE2\x80\x8B", "\xEF\xBB\xBF", "\xE2\x81\xA0", "\n  ",
};

constexpr std::array<std::string_view, 8> kEnds = {"", " ", "\n", "\"", ",", ";", "}", "\\n"};

std::vector<std::uint8_t> withChoice(std::uint8_t label, std::uint8_t separator, std::string_view before,
                                     std::string_view after) {
  std::vector<std::uint8_t> input = {label, separator};
  input.insert(input.end(), before.begin(), before.end());
  input.push_back(0);
  input.insert(input.end(), after.begin(), after.end());
  return input;
}

bool hasLabelWord(std::string_view text) {
  const std::string lower = orvid::internal::lowercaseASCII(text);
  for (const std::string_view word : {"bearer", "token", "key", "secret", "credential"}) {
    if (lower.find(word) != std::string::npos) return true;
  }
  return false;
}

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

orvid::fuzz::Seeds seeds() {
  return {
      {"json-escape", withChoice(2, 6, R"({"error":"bad request)", R"(","code":401})")},
      {"zero-width", withChoice(0, 12, "curl -H word", " -d x")},
      {"bom", withChoice(4, 13, "", "")},
      {"header-lines", withChoice(14, 1, "HTTP/1.1 401\r\nContent-Type: text/plain", "\r\n\r\n")},
      {"url", withChoice(6, 10, "https://example.com/?q=1", "&x=2")},
      {"plain", bytes("nothing to hide here")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data + 2), size - 2);
  const std::string redactedRest = SecretRedactor::redact(rest);
  require(redactedRest.size() <= rest.size() * 3 + 10, "redaction grows text by at most the replacements");
  if (isASCII(rest) && !hasLabelWord(rest)) require(redactedRest == rest, "text without a label is unchanged");

  const std::size_t cut = std::min(rest.find('\0'), rest.size());
  const std::string_view before = rest.substr(0, cut);
  const std::string_view after = rest.substr(std::min(cut + 1, rest.size()));
  const std::string_view label = kLabels[data[0] % kLabels.size()];
  const std::string_view end = kEnds[(data[0] / kLabels.size()) % kEnds.size()];
  const std::string_view separator = kSeparators[data[1] % kSeparators.size()];
  std::string text(before);
  text.append(separator).append(label).append(kSecret).append(end).append(after);
  // A secret the surroundings spell out themselves is not the planted one.
  if (std::string(before).append(after).find(kSecret.substr(0, 8)) != std::string::npos) return 0;

  const std::string redacted = SecretRedactor::redact(text);
  if (redacted.find(kSecret) != std::string::npos) {
    std::fprintf(stderr, "label \"%.*s\" after separator \"%.*s\": %s\n", static_cast<int>(label.size()),
                 label.data(), static_cast<int>(separator.size()), separator.data(), redacted.c_str());
  }
  require(redacted.find(kSecret) == std::string::npos, "a planted credential never survives redaction");
  require(redacted.size() <= text.size() * 3 + 10, "redaction grows text by at most the replacements");
  return 0;
}
