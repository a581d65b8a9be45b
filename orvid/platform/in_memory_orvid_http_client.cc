#include "orvid/platform/in_memory_orvid_http_client.h"

#include <utility>

#include "orvid/platform/cancellation.h"

namespace orvid {

InMemoryOrvidHTTPClient::InMemoryOrvidHTTPClient(Handler handler) : handler_(std::move(handler)) {}

std::shared_ptr<InMemoryOrvidHTTPClient> InMemoryOrvidHTTPClient::answering(int statusCode, Bytes body,
                                                                            std::vector<OrvidHTTPHeader> headers) {
  return std::make_shared<InMemoryOrvidHTTPClient>(
      [statusCode, body = std::move(body), headers = std::move(headers)](const OrvidHTTPRequest& request,
                                                                         std::stop_token) {
        return OrvidHTTPResponse{request.url, statusCode, headers, body};
      });
}

OrvidHTTPResponse InMemoryOrvidHTTPClient::data(const OrvidHTTPRequest& request, std::stop_token stop) {
  checkCancellation(stop);
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
  }
  OrvidHTTPResponse response = handler_(request, stop);
  if (response.url.host().empty()) response.url = request.url;
  return response;
}

std::vector<OrvidHTTPRequest> InMemoryOrvidHTTPClient::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

}  // namespace orvid
