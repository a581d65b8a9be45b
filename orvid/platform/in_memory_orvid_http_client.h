#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <vector>

#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// An OrvidHTTPClient that answers in memory through a handler, for code that is
// tested without a network. It keeps a copy of every request it was given.
class InMemoryOrvidHTTPClient final : public OrvidHTTPClient {
 public:
  // Computes the answer to one request; it may throw (a transport failure, say)
  // and may watch the stop token. Called without any lock held.
  using Handler = std::function<OrvidHTTPResponse(const OrvidHTTPRequest&, std::stop_token)>;

  explicit InMemoryOrvidHTTPClient(Handler handler);

  // A client that gives every request the same status, body and header fields.
  static std::shared_ptr<InMemoryOrvidHTTPClient> answering(int statusCode, Bytes body, std::vector<OrvidHTTPHeader> headers = {});

  // Records the request, then returns the handler's answer; an answer without a
  // URL gets the request's. Throws CancellationError when `stop` is already requested
  // (the request is not recorded then).
  OrvidHTTPResponse data(const OrvidHTTPRequest& request, std::stop_token stop = {}) override;

  // Every request given so far, in order.
  std::vector<OrvidHTTPRequest> requests() const;

 private:
  Handler handler_;
  mutable std::mutex mutex_;
  std::vector<OrvidHTTPRequest> requests_;
};

}  // namespace orvid
