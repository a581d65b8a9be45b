#include "orvid/ai/ai_provider_url_builder.h"

#include <regex>

namespace orvid::AIProviderURLBuilder {
namespace {

constexpr std::string_view kWhitespace = " \t\n\r\v\f";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(kWhitespace);
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(kWhitespace);
  return text.substr(first, last - first + 1);
}

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
  const auto base = withoutTrailingSlashes(trimmed(text));
  if (base.empty()) return std::nullopt;
  return URL::parse(base);
}

std::optional<URL> endpoint(std::string_view baseURL, const std::optional<std::string>& path) {
  auto base = normalizedBaseURL(baseURL);
  if (!base) return std::nullopt;
  const auto component = trimmed(path.value_or(""));
  if (component.empty()) return std::nullopt;
  return base->appendingPathComponent(withoutOneLeadingSlash(component));
}

URL chatNormalizedBaseURL(const URL& url) {
  static const std::regex chatSuffix("/chat(?:/completions)?/?$|/messages/?$",
                                     std::regex::ECMAScript | std::regex::icase);
  std::string path(withoutTrailingSlashes(url.path()));
  std::smatch match;
  if (std::regex_search(path, match, chatSuffix)) path.erase(static_cast<std::size_t>(match.position(0)));

  std::string text = url.scheme() + "://" + url.host();
  if (url.port()) text += ":" + std::to_string(*url.port());
  text += path;
  if (url.query()) text += "?" + *url.query();
  return URL::parse(text).value_or(url);
}

URL chatEndpoint(const URL& baseURL, std::string_view path) {
  const URL base = chatNormalizedBaseURL(baseURL);
  const auto component = trimmed(path);
  if (component.empty()) return base;
  return base.appendingPathComponent(withoutOneLeadingSlash(component));
}

}  // namespace orvid::AIProviderURLBuilder
