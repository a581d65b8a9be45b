#include "orvid/transcription/transcription_language_resolver.h"

#include <algorithm>
#include <vector>

namespace orvid {

std::string TranscriptionLanguageResolver::language(const std::optional<std::string>& requested,
                                                    const TranscriptionProviderDescriptor& descriptor) {
  const auto& supported = descriptor.supportedLanguageCodes;
  auto supports = [&](const std::string& code) {
    return std::find(supported.begin(), supported.end(), code) != supported.end();
  };
  const std::string r = requested && !requested->empty() ? *requested : "auto";
  if (supports(r)) return r;
  if (r == "auto") {
    auto concrete = std::find_if(supported.begin(), supported.end(), [](const std::string& code) {
      return code != "auto";
    });
    if (concrete != supported.end()) return *concrete;
  }
  if (r == "zh-Hans" || r == "zh-Hant") {
    for (const char* chinese : {"zh", "zh-Hans", "zh-Hant"}) {
      if (supports(chinese)) return chinese;
    }
  }
  return supported.empty() ? "auto" : supported.front();
}

}  // namespace orvid
