#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "orvid/platform/url.h"

// Joins provider base URLs and endpoint paths without doubling or losing a "/".
namespace orvid::AIProviderURLBuilder {

// `text` trimmed of (Unicode) white space and line ends, every trailing "/"
// removed, parsed as an absolute URL. Absent for blank or unparsable text.
std::optional<URL> normalizedBaseURL(std::string_view text);

// The normalised base with `path` appended: the path is trimmed (absent counts as
// empty), its leading "/" never double the separator, and inner "/" stay
// separators. Absent when the base is absent or the path is blank.
std::optional<URL> endpoint(std::string_view baseURL, const std::optional<std::string>& path);

// `url` with trailing "/" and then one trailing "/chat", "/chat/completions" or
// "/messages" (any case) removed from its path; every other part is kept.
URL chatNormalizedBaseURL(const URL& url);

// chatNormalizedBaseURL(baseURL) with the trimmed `path` appended as endpoint()
// appends it; the normalised base alone when the path is blank. So a base that
// already ends in the chat path is not doubled.
URL chatEndpoint(const URL& baseURL, std::string_view path);

}  // namespace orvid::AIProviderURLBuilder
