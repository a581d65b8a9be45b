#pragma once

#include <optional>
#include <string>

// Internal-only, not API: the language tags that real-time services are sent.
namespace orvid::RealtimeLanguageSupport {

// `language` trimmed of Unicode white space; absent when it is absent, empty once
// trimmed, or exactly "auto" (the service then detects the language). "zh-Hans"
// and "zh-Hant" become "zh"; any other tag is kept as it is (no case folding, no
// region stripping).
std::optional<std::string> normalized(const std::optional<std::string>& language);

}  // namespace orvid::RealtimeLanguageSupport
