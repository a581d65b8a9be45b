#include "orvid/transcription/realtime/internal/realtime_language_support.h"

#include <string_view>

#include "orvid/platform/internal/text.h"

namespace orvid::RealtimeLanguageSupport {

std::optional<std::string> normalized(const std::optional<std::string>& language) {
  if (!language) return std::nullopt;
  std::string_view trimmed = internal::trimUnicodeWhitespace(*language);
  if (trimmed.empty() || trimmed == "auto") return std::nullopt;
  if (trimmed == "zh-Hans" || trimmed == "zh-Hant") return "zh";
  return std::string(trimmed);
}

}  // namespace orvid::RealtimeLanguageSupport
