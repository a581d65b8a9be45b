// Feeds arbitrary bytes to CloudTranscriptionResponseParser::parse as a speech
// service's answer. It may never throw. The text is trimmed, well-formed UTF-8,
// and is either extractText of the JSON document or the whole body; "language" and
// "confidence" come only from an object; the fields the parser does not own stay
// absent. extractText itself yields trimmed, non-blank text or nothing.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

using orvid::Bytes;
using orvid::CloudTranscriptionResponseParser;
using orvid::TranscriptionResult;
namespace internal = orvid::internal;

bool isTrimmed(std::string_view text) { return internal::trimUnicodeWhitespace(text) == text; }

orvid::fuzz::Seeds seeds() {
  return {
      {"openai", bytes(R"({"text":"  hello world \n","language":"en","confidence":0.93})")},
      {"nested", bytes(R"({"results":{"channels":[{"alternatives":[{"transcript":"","words":[]}]}]},)"
                       R"("result":[{"output":{"utterances":[{"utterance":" \u3000 "},{"text":"\u4f60\u597d"}]}}]})")},
      {"choices", bytes(R"({"choices":[{"message":{"content":[{"text":"hi"}]}}],"language":7})")},
      {"array", bytes(R"([null, 3, {"segments":[{"text":"\t one \u00a0"}]}])")},
      {"plain", bytes("\xEF\xBB\xBF  plain text answer\r\n")},
      {"scalar", bytes("\"just a string\"")},
      {"not-utf8", bytes("\xC0\xAF broken")},
      {"deep", bytes(std::string(300, '[') + "\"deep\"" + std::string(300, ']'))},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes body(data, data + size);
  const TranscriptionResult result = CloudTranscriptionResponseParser().parse(body);

  require(isTrimmed(result.text), "the text is trimmed");
  require(internal::isValidUTF8(result.text), "the text is well-formed UTF-8");
  require(!result.effectiveLanguage && !result.providerDiagnostics, "routing fields stay absent");

  const auto json = nlohmann::json::parse(body.begin(), body.end(), nullptr, false);
  const bool isDocument = !json.is_discarded() && (json.is_object() || json.is_array());
  const std::optional<std::string> extracted =
      isDocument ? CloudTranscriptionResponseParser::extractText(json) : std::nullopt;
  if (extracted) {
    require(!extracted->empty() && isTrimmed(*extracted), "extracted text is trimmed and not blank");
    require(result.text == *extracted, "a document's text is its extracted text");
  } else {
    const std::string_view whole(reinterpret_cast<const char*>(data), size);
    require(result.text == (internal::isValidUTF8(whole) ? internal::trimUnicodeWhitespace(whole) : ""),
            "without extracted text the text is the whole body, or empty");
  }
  if (!isDocument || !json.is_object()) {
    require(!result.language && !result.confidence, "only an object carries language and confidence");
  }
  if (result.confidence) require(!std::isnan(*result.confidence), "a confidence is a number");
  return 0;
}
