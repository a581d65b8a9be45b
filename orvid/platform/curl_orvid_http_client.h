#pragma once

#include <memory>
#include <stop_token>

#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// OrvidHTTPClient over libcurl: http and https, compressed answers decoded, connections
// kept alive and shared between the calls of one client. Up to 16 redirects are followed
// (303, and 301/302 after a POST, continue as a GET without a body). A redirect to
// another origin (scheme, host, port) is refused with OrvidHTTPError::redirectRefused
// when the request carries user information in its URL or any header field other than
// Accept, Accept-Encoding, Accept-Language, Cache-Control, Content-Type, Content-Length,
// Expect and User-Agent: credentials stay with the origin they were meant for. A request
// fails with OrvidHTTPError::timedOut once nothing has moved for its timeout (a timeout
// of zero or less never expires). A stop request aborts the transfer at once. Safe to
// call from several threads at once.
class CurlOrvidHTTPClient final : public OrvidHTTPClient {
 public:
  CurlOrvidHTTPClient();
  ~CurlOrvidHTTPClient() override;
  CurlOrvidHTTPClient(const CurlOrvidHTTPClient&) = delete;
  CurlOrvidHTTPClient& operator=(const CurlOrvidHTTPClient&) = delete;

  OrvidHTTPResponse data(const OrvidHTTPRequest& request, std::stop_token stop = {}) override;
  // Hands each piece of a 2xx body to `receiver` as libcurl reads it; redirects are
  // followed as data() follows them.
  OrvidHTTPResponse stream(const OrvidHTTPRequest& request, const BodyReceiver& receiver,
                           std::stop_token stop = {}) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvid
