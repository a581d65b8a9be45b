// Feeds arbitrary bytes to the shared UTF-8 helpers and to UTF8ChunkDecoder. The
// first byte seeds the chunk sizes; the rest is the text. The helpers must agree
// with a plain reference decoder (well-formed, cut off at the end, malformed);
// trimming only views the text; and decoding in chunks must give exactly what
// decoding the whole gives, which for well-formed text is the text itself.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "orvid/automation/utf8_chunk_decoder.h"
#include "orvid/platform/internal/text.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

namespace internal = orvid::internal;

enum class Form { wellFormed, cutOff, malformed };

// Reads `text` by the table of well-formed byte sequences in the Unicode standard
// (chapter 3, table 3-7). `whole` is the length of the prefix of whole characters.
Form referenceForm(std::string_view text, std::size_t& whole) {
  whole = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(i);
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead < 0x80) {
      length = 1;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      return Form::malformed;
    }
    for (std::size_t k = 1; k < length; ++k) {
      if (i + k == text.size()) return Form::cutOff;
      const unsigned char next = byte(i + k);
      if (next < (k == 1 ? low : 0x80) || next > (k == 1 ? high : 0xBF)) return Form::malformed;
    }
    i += length;
    whole = i;
  }
  return Form::wellFormed;
}

bool isView(std::string_view part, std::string_view text) {
  return part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size();
}

orvid::fuzz::Seeds seeds() {
  auto withSizes = [](std::uint8_t sizes, std::string_view text) {
    std::vector<std::uint8_t> input = {sizes};
    input.insert(input.end(), text.begin(), text.end());
    return input;
  };
  return {
      {"mixed", withSizes(1, "h\xC3\xA9llo \xE4\xB8\x96\xE7\x95\x8C \xF0\x9F\x98\x80!")},
      {"cut-off", withSizes(2, "abc\xE2\x82")},
      {"surrogate", withSizes(3, "\xED\xA0\x80x")},
      {"overlong", withSizes(4, "\xC0\xAF\xE0\x80\xAF")},
      {"beyond-unicode", withSizes(5, "\xF4\x90\x80\x80")},
      {"white-space", withSizes(6, "\xE3\x80\x80 \t\xC2\xA0text\xE2\x80\x8B\xC2\x85\n")},
      {"upper", bytes("\x07HELLO W\xC3\x96RLD")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  std::size_t whole = 0;
  const Form form = referenceForm(text, whole);
  require(internal::isValidUTF8(text) == (form == Form::wellFormed), "isValidUTF8 agrees with the standard");
  const std::optional<std::size_t> wholeLength = internal::wholeUTF8CharactersLength(text);
  require(wholeLength.has_value() == (form != Form::malformed), "only malformed text has no whole prefix");
  if (wholeLength) require(*wholeLength == whole, "the whole prefix ends at the last whole character");
  const std::optional<std::string> decoded = internal::decodeUTF8(text);
  require(decoded.has_value() == (form == Form::wellFormed) && (!decoded || *decoded == text),
          "decodeUTF8 is the text when well-formed");
  require(internal::decodeUTF8(std::vector<std::uint8_t>(data + 1, data + size)) == decoded,
          "both decodeUTF8 overloads agree");
  require(internal::decodeUTF8OrEmpty(text) == decoded.value_or(""), "decodeUTF8OrEmpty is decodeUTF8 or empty");

  const std::string_view asciiTrimmed = internal::trimASCIIWhitespace(text);
  require(isView(asciiTrimmed, text), "ASCII trimming views the text");
  require(asciiTrimmed.empty() || (!internal::isASCIIWhitespace(asciiTrimmed.front()) &&
                                   !internal::isASCIIWhitespace(asciiTrimmed.back())),
          "ASCII trimming leaves no white space at either end");
  const std::string_view unicodeTrimmed = internal::trimUnicodeWhitespace(text);
  require(isView(unicodeTrimmed, text) && unicodeTrimmed.size() <= asciiTrimmed.size(),
          "Unicode trimming views the text and trims at least the ASCII white space");
  require(internal::trimUnicodeWhitespace(unicodeTrimmed) == unicodeTrimmed, "Unicode trimming is idempotent");
  const std::string lowered = internal::lowercaseASCII(text);
  require(lowered.size() == text.size(), "lowercasing keeps every byte in place");
  for (std::size_t i = 0; i < text.size(); ++i) {
    require(lowered[i] == internal::lowercaseASCII(text[i]), "lowercasing lowers A to Z and nothing else");
  }

  // The same text in chunks whose sizes the first byte seeds.
  std::uint32_t state = data[0] * 2654435761u + 1;
  orvid::UTF8ChunkDecoder chunked;
  std::string joined;
  for (std::size_t at = 0; at < text.size();) {
    state = state * 1103515245u + 12345u;
    const std::size_t length = std::min<std::size_t>(text.size() - at, 1 + (state >> 16) % 7);
    joined += chunked.decode(text.substr(at, length));
    at += length;
  }
  require(internal::isValidUTF8(joined), "chunked decoding yields well-formed text");
  orvid::UTF8ChunkDecoder once;
  const std::string all = once.decode(text);
  if (form == Form::wellFormed) {
    require(all == text, "well-formed text decodes to itself");
    require(joined == text, "well-formed text decoded in chunks is itself");
  }
  if (form == Form::cutOff) require(all == text.substr(0, whole), "a cut-off character is held back");
  if (form == Form::malformed) require(all.empty(), "a malformed chunk is dropped whole");
  return 0;
}
