// Feeds arbitrary text to PromptOutputParser as a language model's answer. The first
// byte says whether the original input is known; the rest, cut at its first NUL
// byte, is the answer and then the original input. Nothing may throw. The extracted
// output is trimmed and, for well-formed UTF-8, free of invisible characters;
// choices are trimmed and not empty; structured choices have a start of at least 0
// and an end within the input's length in characters and not before a start inside
// it (both 0 when the input is unknown); the word overlap is a ratio in [0, 1].
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "orvid/platform/internal/text.h"
#include "orvid/textprocessing/prompt_output_parser.h"
#include "orvid/textprocessing/text_support.h"

namespace {

using orvid::fuzz::require;

using orvid::PromptOutputParser;
using orvid::RewriteChoice;
namespace internal = orvid::internal;

std::vector<std::uint8_t> input(std::uint8_t known, std::string_view answer, std::string_view original) {
  std::vector<std::uint8_t> bytes = {known};
  bytes.insert(bytes.end(), answer.begin(), answer.end());
  bytes.push_back(0);
  bytes.insert(bytes.end(), original.begin(), original.end());
  return bytes;
}

bool isTrimmed(std::string_view text) { return internal::trimUnicodeWhitespace(text) == text; }

bool hasInvisibleCharacters(std::string_view text) {
  for (const std::string_view invisible : {"\xE2\x80\x8B", "\xE2\x80\x8C", "\xE2\x80\x8D", "\xEF\xBB\xBF"}) {
    if (text.find(invisible) != std::string_view::npos) return true;
  }
  return false;
}

orvid::fuzz::Seeds seeds() {
  return {
      {"output-tags", input(0, "Sure.\n<output>\xE2\x80\x8B  Hello there \xEF\xBB\xBF</output> trailing", "")},
      {"choices", input(1, "```json\n[\"One.\", \" \", \"Two, three.\"]\n```", "one two three")},
      {"structured", input(1, R"([{"text":"Hi","start":2,"end":99},{"text":"x","start":-4,"end":1e30}])", "héllo")},
      {"line-split", input(1, R"(["first line","second line","third line"])", "first line\nsecond line\nthird line")},
      {"unknown-input", input(0, R"([{"text":"a","start":5,"end":7}])", "")},
      {"not-array", input(1, R"({"text":"a"})", "a")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::size_t cut = std::min(rest.find('\0'), rest.size());
  const std::string_view answer = rest.substr(0, cut);
  const std::optional<std::string> original =
      data[0] % 2 == 1 ? std::optional<std::string>(rest.substr(std::min(cut + 1, rest.size()))) : std::nullopt;

  // In malformed UTF-8 the bytes around a removed character may spell another one.
  const bool wellFormed = internal::isValidUTF8(answer);
  const std::string stripped = PromptOutputParser::stripInvisibleCharacters(answer);
  require(stripped.size() <= answer.size(), "stripping only removes");
  require(!wellFormed || !hasInvisibleCharacters(stripped), "invisible characters are removed");
  const std::string output = PromptOutputParser::extractOutput(answer);
  require(isTrimmed(output), "the output is trimmed");
  require(!wellFormed || !hasInvisibleCharacters(output), "the output has no invisible characters");

  if (const auto choices = PromptOutputParser::parseMultipleChoices(answer, original)) {
    require(!choices->empty(), "choices are never an empty list");
    for (const auto& choice : *choices) require(!choice.empty() && isTrimmed(choice), "a choice is trimmed text");
  }
  if (const auto choices = PromptOutputParser::parseMultipleChoicesStructured(answer, original)) {
    require(!choices->empty(), "structured choices are never an empty list");
    // Characters as the user sees them (grapheme clusters), as the parser counts them.
    const auto length = static_cast<std::int64_t>(original ? orvid::text_support::characterCount(*original) : 0);
    for (const RewriteChoice& choice : *choices) {
      require(!choice.text.empty() && isTrimmed(choice.text), "a structured choice is trimmed text");
      require(choice.start >= 0, "start is never negative");
      require(choice.end >= 0 && choice.end <= length, "end is clamped to the input's length");
      require(choice.start > length || choice.end >= choice.start, "end is not before a start within the input");
      if (!original) require(choice.start == 0 && choice.end == 0, "offsets are 0 when the input is unknown");
    }
  }

  const std::string_view other = original ? std::string_view(*original) : answer.substr(answer.size() / 2);
  const double overlap = PromptOutputParser::tokenOverlapRatio(answer, other);
  require(overlap >= 0 && overlap <= 1, "the overlap is a ratio");
  require(overlap == PromptOutputParser::tokenOverlapRatio(other, answer), "the overlap is symmetric");
  return 0;
}
