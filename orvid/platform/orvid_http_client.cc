#include "orvid/platform/orvid_http_client.h"

#include <algorithm>
#include <utility>

#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

std::optional<std::string> firstHeaderValue(const std::vector<OrvidHTTPHeader>& headers, std::string_view name) {
  for (const auto& header : headers) {
    if (httpHeaderNamesEqual(header.name, name)) return header.value;
  }
  return std::nullopt;
}

std::string sentence(OrvidHTTPError::Case errorCase) {
  switch (errorCase) {
    case OrvidHTTPError::Case::badURL:
      return "The URL cannot be used for an HTTP request.";
    case OrvidHTTPError::Case::cannotFindHost:
      return "A server with the specified hostname could not be found.";
    case OrvidHTTPError::Case::cannotConnectToHost:
      return "Could not connect to the server.";
    case OrvidHTTPError::Case::timedOut:
      return "The request timed out.";
    case OrvidHTTPError::Case::networkConnectionLost:
      return "The network connection was lost.";
    case OrvidHTTPError::Case::secureConnectionFailed:
      return "A secure connection to the server could not be made.";
    case OrvidHTTPError::Case::transportFailed:
      return "The HTTP request failed.";
    case OrvidHTTPError::Case::redirectRefused:
      return "The server redirected the request to another origin, which would receive its credentials.";
  }
  return "The HTTP request failed.";
}

}  // namespace

bool httpHeaderNamesEqual(std::string_view a, std::string_view b) {
  auto sameLetter = [](char x, char y) { return internal::lowercaseASCII(x) == internal::lowercaseASCII(y); };
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), sameLetter);
}

std::optional<std::string> OrvidHTTPRequest::headerValue(std::string_view name) const {
  return firstHeaderValue(headers, name);
}

void OrvidHTTPRequest::setHeader(std::string_view name, std::string value) {
  auto first = std::find_if(headers.begin(), headers.end(),
                            [&](const OrvidHTTPHeader& header) { return httpHeaderNamesEqual(header.name, name); });
  if (first == headers.end()) {
    headers.push_back({std::string(name), std::move(value)});
    return;
  }
  first->name = std::string(name);
  first->value = std::move(value);
  headers.erase(std::remove_if(std::next(first), headers.end(),
                               [&](const OrvidHTTPHeader& header) { return httpHeaderNamesEqual(header.name, name); }),
                headers.end());
}

std::optional<std::string> OrvidHTTPResponse::headerValue(std::string_view name) const {
  return firstHeaderValue(headers, name);
}

OrvidHTTPResponse OrvidHTTPClient::stream(const OrvidHTTPRequest& request, const BodyReceiver& receiver,
                                          std::stop_token stop) {
  OrvidHTTPResponse response = data(request, stop);
  if (!response.isSuccess()) return response;
  Bytes body = std::move(response.body);
  response.body.clear();
  if (!body.empty()) receiver(std::span<const std::uint8_t>(body.data(), body.size()));
  return response;
}

OrvidHTTPError::OrvidHTTPError(Case errorCase, std::string detail)
    : case_(errorCase), detail_(std::move(detail)), message_(sentence(errorCase)) {
  if (!detail_.empty()) message_ += " (" + detail_ + ")";
}

OrvidHTTPError OrvidHTTPError::badURL(std::string detail) { return {Case::badURL, std::move(detail)}; }
OrvidHTTPError OrvidHTTPError::cannotFindHost(std::string detail) { return {Case::cannotFindHost, std::move(detail)}; }
OrvidHTTPError OrvidHTTPError::cannotConnectToHost(std::string detail) {
  return {Case::cannotConnectToHost, std::move(detail)};
}
OrvidHTTPError OrvidHTTPError::timedOut(std::string detail) { return {Case::timedOut, std::move(detail)}; }
OrvidHTTPError OrvidHTTPError::networkConnectionLost(std::string detail) {
  return {Case::networkConnectionLost, std::move(detail)};
}
OrvidHTTPError OrvidHTTPError::secureConnectionFailed(std::string detail) {
  return {Case::secureConnectionFailed, std::move(detail)};
}
OrvidHTTPError OrvidHTTPError::transportFailed(std::string detail) {
  return {Case::transportFailed, std::move(detail)};
}
OrvidHTTPError OrvidHTTPError::redirectRefused(std::string detail) {
  return {Case::redirectRefused, std::move(detail)};
}

}  // namespace orvid
