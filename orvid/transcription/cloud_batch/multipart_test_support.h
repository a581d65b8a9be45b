#pragma once

// Reads back the multipart uploads the cloud batch tests capture in memory.

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/platform/orvid_http_client.h"

namespace orvid::testing {

struct SentPart {
  std::string name;
  std::optional<std::string> filename;
  std::optional<std::string> contentType;
  std::string content;
  bool operator==(const SentPart&) const = default;
};

// The boundary named by the request's "Content-Type: multipart/form-data; boundary=...".
inline std::string multipartBoundary(const OrvidHTTPRequest& request) {
  const std::string prefix = "multipart/form-data; boundary=";
  auto contentType = request.headerValue("Content-Type").value_or("");
  if (!contentType.starts_with(prefix)) throw std::runtime_error("not a multipart request: " + contentType);
  return contentType.substr(prefix.size());
}

// The parts of the request's body, which must follow the exact framing the builder
// writes (CR LF line ends, one header block per part, the closing delimiter and a
// final CR LF); any deviation throws std::runtime_error naming it.
inline std::vector<SentPart> multipartParts(const OrvidHTTPRequest& request) {
  if (!request.body) throw std::runtime_error("no body");
  const std::string boundary = multipartBoundary(request);
  const std::string body(request.body->begin(), request.body->end());
  const std::string delimiter = "--" + boundary + "\r\n";
  const std::string separator = "\r\n--" + boundary;
  const std::string closing = "--" + boundary + "--\r\n";
  if (!body.ends_with(closing)) throw std::runtime_error("the body does not end with the closing delimiter");
  std::vector<SentPart> parts;
  std::size_t at = 0;
  while (true) {
    if (body.compare(at, closing.size(), closing) == 0 && at + closing.size() == body.size()) return parts;
    if (body.compare(at, delimiter.size(), delimiter) != 0) throw std::runtime_error("missing delimiter");
    at += delimiter.size();
    std::size_t headersEnd = body.find("\r\n\r\n", at);
    if (headersEnd == std::string::npos) throw std::runtime_error("unterminated part headers");
    SentPart part;
    std::string_view headers(body.data() + at, headersEnd - at);
    while (!headers.empty()) {
      std::size_t lineEnd = headers.find("\r\n");
      std::string_view line = headers.substr(0, lineEnd);
      headers = lineEnd == std::string_view::npos ? std::string_view() : headers.substr(lineEnd + 2);
      const std::string_view disposition = "Content-Disposition: form-data; name=\"";
      const std::string_view type = "Content-Type: ";
      if (line.starts_with(disposition)) {
        line.remove_prefix(disposition.size());
        std::size_t quote = line.find('"');
        part.name = std::string(line.substr(0, quote));
        std::string_view rest = line.substr(quote + 1);
        const std::string_view filename = "; filename=\"";
        if (rest.starts_with(filename) && rest.ends_with("\"")) {
          part.filename = std::string(rest.substr(filename.size(), rest.size() - filename.size() - 1));
        } else if (!rest.empty()) {
          throw std::runtime_error("unexpected disposition tail: " + std::string(rest));
        }
      } else if (line.starts_with(type)) {
        part.contentType = std::string(line.substr(type.size()));
      } else {
        throw std::runtime_error("unexpected part header: " + std::string(line));
      }
    }
    at = headersEnd + 4;
    std::size_t contentEnd = body.find(separator, at);
    if (contentEnd == std::string::npos) throw std::runtime_error("unterminated part content");
    part.content = body.substr(at, contentEnd - at);
    parts.push_back(std::move(part));
    at = contentEnd + 2;
  }
}

// The content of the part named `name`; absent when there is none.
inline std::optional<std::string> partContent(const std::vector<SentPart>& parts, std::string_view name) {
  for (const auto& part : parts) {
    if (part.name == name) return part.content;
  }
  return std::nullopt;
}

}  // namespace orvid::testing
