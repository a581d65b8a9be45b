#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvid {

// One "name=value" item of a URL query; an absent value is written as the bare name.
struct URLQueryItem {
  std::string name;
  std::optional<std::string> value;
  bool operator==(const URLQueryItem&) const = default;
};

// Character sets for percent-encoding, after the sets a URL's parts allow.
enum class URLCharacterSet { pathAllowed, queryAllowed, queryValueAllowed };

// Percent-encodes every byte of `text` outside `allowed` (UTF-8 bytes are encoded one by one).
std::string percentEncode(std::string_view text, URLCharacterSet allowed);
// Decodes %XX escapes; absent when an escape is malformed.
std::optional<std::string> percentDecode(std::string_view text);

// An absolute URL: scheme "://" [user-info "@"] host [":" port] path ["?" query] ["#" fragment].
// Parts are kept as written (already percent-encoded).
class URL {
 public:
  // Parses an absolute URL with a scheme and a host, after trimming white space.
  // Absent for anything else (relative references, empty host, bad port, spaces).
  static std::optional<URL> parse(std::string_view text);

  const std::string& scheme() const { return scheme_; }
  // "user[:password]" as written before "@"; empty when the URL has none.
  const std::string& userInfo() const { return userInfo_; }
  const std::string& host() const { return host_; }
  std::optional<int> port() const { return port_; }
  // The percent-encoded path, "" or starting with "/".
  const std::string& path() const { return path_; }
  const std::optional<std::string>& query() const { return query_; }
  const std::optional<std::string>& fragment() const { return fragment_; }

  // The whole URL as text.
  std::string absoluteString() const;

  // Appends `component` to the path with one "/" between (none added when the path
  // already ends in "/"). A "/" inside `component` stays a separator; other
  // characters outside the path set are percent-encoded. Query and fragment are kept.
  URL appendingPathComponent(std::string_view component) const;

  // The query split into items with names and values percent-decoded.
  std::vector<URLQueryItem> queryItems() const;
  // Replaces the query with `items` (encoded); an empty list removes the query.
  URL settingQueryItems(const std::vector<URLQueryItem>& items) const;
  // Appends `items` after the existing query items.
  URL appendingQueryItems(const std::vector<URLQueryItem>& items) const;
  // The same URL with the path replaced by `percentEncodedPath` (must be "" or start with "/").
  URL settingPath(std::string percentEncodedPath) const;

  bool operator==(const URL&) const = default;

 private:
  std::string scheme_;
  std::string userInfo_;
  std::string host_;
  std::optional<int> port_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

}  // namespace orvid
