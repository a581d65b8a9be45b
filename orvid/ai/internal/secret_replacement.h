#pragma once

// Internal to the secret redactor: not API.

#include <optional>
#include <string>

#include <unicode/regex.h>

namespace orvid::internal {

// Copies `text`, keeping group 1 of each match of `matcher` (the label) and writing
// "[REDACTED]" in place of the rest of the match. Absent when ICU reports an error at
// any point, so that the caller can mask the whole text instead of passing it on.
std::optional<std::string> replaceSecrets(icu::RegexMatcher& matcher, const std::string& text);

}  // namespace orvid::internal
