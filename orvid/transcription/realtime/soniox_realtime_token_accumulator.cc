#include "orvid/transcription/realtime/soniox_realtime_token_accumulator.h"

#include <algorithm>
#include <string_view>

#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

bool isControlToken(const SonioxRealtimeToken& token) {
  const std::string marker = internal::lowercaseASCII(internal::trimUnicodeWhitespace(token.text));
  return marker == "<end>" || marker == "<fin>";
}

// A final token counts towards the spoken languages unless it is a translation.
bool isSourceLanguageToken(const SonioxRealtimeToken& token) {
  if (!token.translationStatus) return true;
  const std::string status = internal::lowercaseASCII(*token.translationStatus);
  const bool translation = status.find("translation") != std::string::npos;
  return !translation || status.find("source") != std::string::npos;
}

std::optional<std::string> sourceLanguage(const std::string& language) {
  std::string tag(internal::trimUnicodeWhitespace(language));
  if (tag.empty()) return std::nullopt;
  std::replace(tag.begin(), tag.end(), '_', '-');
  const std::string folded = internal::lowercaseASCII(tag);
  if (folded == "zh-cn" || folded == "zh-hans") return "zh-Hans";
  if (folded == "zh-tw" || folded == "zh-hk" || folded == "zh-hant") return "zh-Hant";
  return tag;
}

}  // namespace

std::string SonioxRealtimeTokenAccumulator::ingest(const std::vector<SonioxRealtimeToken>& tokens) {
  std::string finalText;
  std::string nonFinalText;
  for (const SonioxRealtimeToken& token : tokens) {
    if (isControlToken(token)) continue;
    if (!token.isFinal) {
      nonFinalText += token.text;
      continue;
    }
    finalText += token.text;
    if (token.language && isSourceLanguageToken(token)) {
      if (auto language = sourceLanguage(*token.language)) finalizedSourceLanguages.insert(std::move(*language));
    }
  }
  if (!finalText.empty()) {
    if (finalText.starts_with(committedText)) {
      committedText = std::move(finalText);
    } else {
      committedText += finalText;
    }
  }
  tentativeText = std::move(nonFinalText);
  return displayText();
}

}  // namespace orvid
