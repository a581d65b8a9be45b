#include "orvid/ai/ai_provider_url_builder.h"

#include <regex>

#include "orvid/ai/whitespace_trimming.h"

namespace orvid::AIProviderURLBuilder {
namespace {

std::string_view withoutTrailingSlashes(std::string_view text) {
  while (!text.empty() && text.back() == '/') text.remove_suffix(1);
  return text;
}

std::string_view withoutOneLeadingSlash(std::string_view text) {
  if (!text.empty() && text.front() == '/') text.remove_prefix(1);
  return text;
}

}  // namespace

std::optional<URL> normalizedBaseURL(std::string_view text) {
  const auto base = withoutTrailingSlashes(trimmingWhitespaceAndNewlines(text));
  if (base.empty()) return std::nullopt;
  return URL::parse(base);
}

std::optional<URL> endpoint(std::string_view baseURL, const std::optional<std::string>& path) {
  auto base = normalizedBaseURL(baseURL);
  if (!base) return std::nullopt;
  // An absent path counts as empty.
  const auto component = path ? trimmingWhitespaceAndNewlines(*path) : std::string_view();
  if (component.empty()) return std::nullopt;
  return base->appendingPathComponent(withoutOneLeadingSlash(component));
}

URL chatNormalizedBaseURL(const URL& url) {
  static const std::regex chatSuffix("/chat(?:/completions)?/?$|/messages/?$",
                                     std::regex::ECMAScript | std::regex::icase);
  std::string path(withoutTrailingSlashes(url.path()));
  std::smatch match;
  if (std::regex_search(path, match, chatSuffix)) path.erase(static_cast<std::size_t>(match.position(0)));

  // Every other part (scheme, user, host, port, query, fragment) stays as it was.
  return url.settingPath(std::move(path));
}

URL chatEndpoint(const URL& baseURL, std::string_view path) {
  const URL base = chatNormalizedBaseURL(baseURL);
  const auto component = trimmingWhitespaceAndNewlines(path);
  if (component.empty()) return base;
  return base.appendingPathComponent(withoutOneLeadingSlash(component));
}

}  // namespace orvid::AIProviderURLBuilder
