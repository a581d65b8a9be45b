#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/platform/bytes.h"
#include "orvid/platform/url.h"

namespace orvid {

// One header field as sent or received. Names compare case-insensitively.
struct OrvidHTTPHeader {
  std::string name;
  std::string value;
  bool operator==(const OrvidHTTPHeader&) const = default;
};

// True when `a` and `b` are the same header name, ignoring ASCII case.
bool httpHeaderNamesEqual(std::string_view a, std::string_view b);

// A whole HTTP request: method, URL, header fields, optional body and the time it
// may stay idle (no bytes moving, including while connecting) before it fails.
struct OrvidHTTPRequest {
  std::string method = "GET";
  URL url;
  std::vector<OrvidHTTPHeader> headers;
  // Absent: no body at all. Present (even empty): the body to send.
  std::optional<Bytes> body;
  std::chrono::milliseconds timeout{60'000};

  // The value of the first header named `name` (any case); absent if none.
  std::optional<std::string> headerValue(std::string_view name) const;
  // Sets `name` to `value`, replacing every header of that name (any case).
  void setHeader(std::string_view name, std::string value);

  bool operator==(const OrvidHTTPRequest&) const = default;
};

// A whole HTTP response: the final URL (after redirects), status, header fields
// in arrival order and the body (decoded when the server compressed it).
struct OrvidHTTPResponse {
  URL url;
  int statusCode = 0;
  std::vector<OrvidHTTPHeader> headers;
  Bytes body;

  // The value of the first header named `name` (any case); absent if none.
  std::optional<std::string> headerValue(std::string_view name) const;
  // Status 200 to 299.
  bool isSuccess() const { return statusCode >= 200 && statusCode < 300; }

  bool operator==(const OrvidHTTPResponse&) const = default;
};

// A transport failure: no complete HTTP response arrived. An answer with any
// status code is not a transport failure.
class OrvidHTTPError : public std::exception {
 public:
  enum class Case {
    // The URL's scheme is not http or https, or the URL cannot be used.
    badURL,
    // The host name did not resolve.
    cannotFindHost,
    // The connection was refused or could not be set up.
    cannotConnectToHost,
    // Nothing moved for longer than the request's timeout.
    timedOut,
    // The connection closed before the whole response arrived.
    networkConnectionLost,
    // The TLS handshake or certificate check failed.
    secureConnectionFailed,
    // Any other failure of the transport.
    transportFailed,
    // A redirect to another origin (scheme, host or port) while the request carries
    // header fields or user information that may hold a credential.
    redirectRefused,
  };

  static OrvidHTTPError badURL(std::string detail);
  static OrvidHTTPError cannotFindHost(std::string detail);
  static OrvidHTTPError cannotConnectToHost(std::string detail);
  static OrvidHTTPError timedOut(std::string detail);
  static OrvidHTTPError networkConnectionLost(std::string detail);
  static OrvidHTTPError secureConnectionFailed(std::string detail);
  static OrvidHTTPError transportFailed(std::string detail);
  static OrvidHTTPError redirectRefused(std::string detail);

  Case errorCase() const { return case_; }
  // The transport's own description of what went wrong (may be empty).
  const std::string& detail() const { return detail_; }
  // The case's fixed sentence, followed by " (" + detail + ")" when there is one.
  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const OrvidHTTPError& other) const {
    return case_ == other.case_ && detail_ == other.detail_;
  }

 private:
  OrvidHTTPError(Case errorCase, std::string detail);

  Case case_;
  std::string detail_;
  std::string message_;
};

// The one HTTP operation through which the framework's service traffic goes, so
// that a host may supply its own transport and tests may answer without a network.
// Implementations are safe to call from several threads at once.
class OrvidHTTPClient {
 public:
  virtual ~OrvidHTTPClient() = default;

  // Sends `request` once and blocks until the whole response has arrived. A
  // response with any status code is returned, not thrown. Throws OrvidHTTPError
  // for transport failures and CancellationError once `stop` is requested.
  virtual OrvidHTTPResponse data(const OrvidHTTPRequest& request, std::stop_token stop = {}) = 0;

  // Takes the body of a successful answer piece by piece, in order, as it arrives.
  // An exception it throws ends the exchange and reaches the caller of stream().
  using BodyReceiver = std::function<void(std::span<const std::uint8_t>)>;

  // Sends `request` once like data(), but hands the body of a 2xx answer to
  // `receiver` while it arrives instead of keeping it: the returned response then
  // has an empty body. Any other answer comes back whole, its body untouched by the
  // receiver. Throws like data(), and what the receiver throws. This default waits
  // for data() and hands over a 2xx body in one piece; transports that can do better
  // override it.
  virtual OrvidHTTPResponse stream(const OrvidHTTPRequest& request, const BodyReceiver& receiver,
                                   std::stop_token stop = {});
};

}  // namespace orvid
