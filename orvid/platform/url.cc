#include "orvid/platform/url.h"

#include <cctype>
#include <charconv>

#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

bool isUnreserved(unsigned char c) {
  return std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

bool isAllowed(unsigned char c, URLCharacterSet set) {
  if (c >= 0x80) return false;
  if (isUnreserved(c)) return true;
  switch (set) {
    case URLCharacterSet::pathAllowed:
      return std::string_view("!$&'()*+,/:;=@").find(static_cast<char>(c)) != std::string_view::npos;
    case URLCharacterSet::queryAllowed:
      return std::string_view("!$&'()*+,/:;=?@").find(static_cast<char>(c)) != std::string_view::npos;
    case URLCharacterSet::queryValueAllowed:
      // Query names and values: the separators "&", "=", "+" and "#" are always escaped.
      return std::string_view("!$'()*,/:;?@").find(static_cast<char>(c)) != std::string_view::npos;
  }
  return false;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string encodeItems(const std::vector<URLQueryItem>& items) {
  std::string query;
  for (const auto& item : items) {
    // Between items, not after text: an item with an empty name and no value writes nothing.
    if (&item != &items.front()) query.push_back('&');
    query += percentEncode(item.name, URLCharacterSet::queryValueAllowed);
    if (item.value) {
      query.push_back('=');
      query += percentEncode(*item.value, URLCharacterSet::queryValueAllowed);
    }
  }
  return query;
}

}  // namespace

std::string percentEncode(std::string_view text, URLCharacterSet allowed) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    auto c = static_cast<unsigned char>(ch);
    if (isAllowed(c, allowed)) {
      out.push_back(ch);
    } else {
      out.push_back('%');
      out.push_back(digits[c >> 4]);
      out.push_back(digits[c & 15]);
    }
  }
  return out;
}

std::optional<std::string> percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    int high = hexValue(text[i + 1]);
    int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out.push_back(static_cast<char>(high << 4 | low));
    i += 2;
  }
  return out;
}

std::optional<URL> URL::parse(std::string_view input) {
  std::string_view text = internal::trimASCIIWhitespace(input);
  auto schemeEnd = text.find("://");
  if (schemeEnd == std::string_view::npos || schemeEnd == 0) return std::nullopt;
  URL url;
  for (std::size_t i = 0; i < schemeEnd; ++i) {
    auto c = static_cast<unsigned char>(text[i]);
    bool ok = std::isalpha(c) || (i > 0 && (std::isdigit(c) || c == '+' || c == '-' || c == '.'));
    if (!ok) return std::nullopt;
    url.scheme_.push_back(internal::lowercaseASCII(text[i]));
  }
  for (char c : text) {
    auto u = static_cast<unsigned char>(c);
    if (u <= 0x20 || u == 0x7F) return std::nullopt;
  }
  std::string_view rest = text.substr(schemeEnd + 3);
  auto authorityEnd = rest.find_first_of("/?#");
  std::string_view authority = rest.substr(0, authorityEnd);
  rest = authorityEnd == std::string_view::npos ? std::string_view() : rest.substr(authorityEnd);

  if (auto at = authority.rfind('@'); at != std::string_view::npos) {
    url.userInfo_ = std::string(authority.substr(0, at));
    authority.remove_prefix(at + 1);
  }
  std::string_view hostPart = authority;
  std::string_view portPart;
  if (!authority.empty() && authority.front() == '[') {
    auto close = authority.find(']');
    if (close == std::string_view::npos) return std::nullopt;
    hostPart = authority.substr(0, close + 1);
    std::string_view after = authority.substr(close + 1);
    if (!after.empty()) {
      if (after.front() != ':') return std::nullopt;
      portPart = after.substr(1);
    }
  } else if (auto colon = authority.rfind(':'); colon != std::string_view::npos) {
    hostPart = authority.substr(0, colon);
    portPart = authority.substr(colon + 1);
  }
  // Outside brackets a colon only ever starts the port.
  if (hostPart.empty() || (hostPart.front() != '[' && hostPart.find(':') != std::string_view::npos)) {
    return std::nullopt;
  }
  url.host_ = std::string(hostPart);
  if (!portPart.empty()) {
    int port = 0;
    auto [end, error] = std::from_chars(portPart.data(), portPart.data() + portPart.size(), port);
    if (error != std::errc() || end != portPart.data() + portPart.size() || port < 0 || port > 65535) {
      return std::nullopt;
    }
    url.port_ = port;
  }

  if (auto hash = rest.find('#'); hash != std::string_view::npos) {
    url.fragment_ = std::string(rest.substr(hash + 1));
    rest = rest.substr(0, hash);
  }
  if (auto question = rest.find('?'); question != std::string_view::npos) {
    url.query_ = std::string(rest.substr(question + 1));
    rest = rest.substr(0, question);
  }
  url.path_ = std::string(rest);
  return url;
}

std::string URL::absoluteString() const {
  std::string text = scheme_ + "://";
  if (!userInfo_.empty()) {
    text += userInfo_;
    text += '@';
  }
  text += host_;
  if (port_) {
    text += ':';
    text += std::to_string(*port_);
  }
  text += path_;
  if (query_) {
    text += '?';
    text += *query_;
  }
  if (fragment_) {
    text += '#';
    text += *fragment_;
  }
  return text;
}

URL URL::appendingPathComponent(std::string_view component) const {
  URL url = *this;
  if (url.path_.empty() || url.path_.back() != '/') url.path_.push_back('/');
  url.path_ += percentEncode(component, URLCharacterSet::pathAllowed);
  return url;
}

std::vector<URLQueryItem> URL::queryItems() const {
  std::vector<URLQueryItem> items;
  if (!query_ || query_->empty()) return items;
  std::string_view query = *query_;
  while (true) {
    auto amp = query.find('&');
    std::string_view part = query.substr(0, amp);
    auto eq = part.find('=');
    URLQueryItem item;
    std::string_view name = part.substr(0, eq);
    item.name = percentDecode(name).value_or(std::string(name));
    if (eq != std::string_view::npos) {
      std::string_view value = part.substr(eq + 1);
      item.value = percentDecode(value).value_or(std::string(value));
    }
    items.push_back(std::move(item));
    if (amp == std::string_view::npos) break;
    query.remove_prefix(amp + 1);
  }
  return items;
}

URL URL::settingQueryItems(const std::vector<URLQueryItem>& items) const {
  URL url = *this;
  if (items.empty()) {
    url.query_.reset();
  } else {
    url.query_ = encodeItems(items);
  }
  return url;
}

URL URL::appendingQueryItems(const std::vector<URLQueryItem>& items) const {
  if (items.empty()) return *this;
  URL url = *this;
  std::string added = encodeItems(items);
  url.query_ = (query_ && !query_->empty()) ? *query_ + "&" + added : added;
  return url;
}

URL URL::settingPath(std::string percentEncodedPath) const {
  URL url = *this;
  url.path_ = std::move(percentEncodedPath);
  return url;
}

}  // namespace orvid
