#include "orvid/ai/ai_provider_url_builder.h"

#include <regex>

#include "orvid/platform/internal/text.h"

namespace orvid::AIProviderURLBuilder {
namespace {

std::string_view withoutTrailingSlashes(std::string_view text) {
  while (!text.empty() && text.back() == '/') text.remove_suffix(1);
  return text;
}

// `base` with `component` appended as path text: one leading "/" of the component
// is dropped, and any further ones are absorbed by the separator, as path joining
// does, so the result never has "//" at the join. Inner "/" stay separators.
URL appending(const URL& base, std::string_view component) {
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  return base.appendingPathComponent(component);
}

}  // namespace

std::optional<URL> normalizedBaseURL(std::string_view text) {
  const auto base = withoutTrailingSlashes(internal::trimUnicodeWhitespace(text));
  if (base.empty()) return std::nullopt;
  return URL::parse(base);
}

std::optional<URL> endpoint(std::string_view baseURL, const std::optional<std::string>& path) {
  auto base = normalizedBaseURL(baseURL);
  if (!base) return std::nullopt;
  // An absent path counts as empty.
  const auto component = path ? internal::trimUnicodeWhitespace(*path) : std::string_view();
  if (component.empty()) return std::nullopt;
  return appending(*base, component);
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
  const auto component = internal::trimUnicodeWhitespace(path);
  if (component.empty()) return base;
  return appending(base, component);
}

}  // namespace orvid::AIProviderURLBuilder
