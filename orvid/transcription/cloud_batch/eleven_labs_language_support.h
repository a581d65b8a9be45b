#pragma once

#include <optional>
#include <string>

namespace orvid {

// Turns a language code as the language routing writes it into the three-letter
// code ElevenLabs accepts as "language_code". Its tables are built once and may be
// read from any thread.
namespace ElevenLabsLanguageSupport {

// The service's code for `code`: blanks and "auto" give none; the Chinese regional
// codes ("zh-Hans", "zh-TW", ...) give "zho"; a code the service accepts as it is
// (any case) gives itself lower-cased; otherwise the part before the first "-"
// looked up among the two-letter codes ("pt-BR" → "por"). Underscores do not
// separate, so "en_US" gives none.
std::optional<std::string> normalized(const std::optional<std::string>& code);

}  // namespace ElevenLabsLanguageSupport

}  // namespace orvid
