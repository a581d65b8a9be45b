#pragma once

#include <memory>
#include <stop_token>

#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// OrvidHTTPClient over libcurl: http and https, redirects followed, compressed
// answers decoded, connections kept alive and shared between the calls of one
// client. A request fails with OrvidHTTPError::timedOut once nothing has moved for
// its timeout (a timeout of zero or less never expires). A stop request aborts the
// transfer at once. Safe to call from several threads at once.
class CurlOrvidHTTPClient final : public OrvidHTTPClient {
 public:
  CurlOrvidHTTPClient();
  ~CurlOrvidHTTPClient() override;
  CurlOrvidHTTPClient(const CurlOrvidHTTPClient&) = delete;
  CurlOrvidHTTPClient& operator=(const CurlOrvidHTTPClient&) = delete;

  OrvidHTTPResponse data(const OrvidHTTPRequest& request, std::stop_token stop = {}) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvid
