#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvid::testing {

// One part of a multipart/form-data body.
struct LoopbackMultipartPart {
  std::string name;
  std::string filename;
  std::string contentType;
  std::string content;
};

struct LoopbackRequest {
  std::string method;
  std::string path;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;  // empty for multipart bodies, which arrive as `parts`
  std::vector<LoopbackMultipartPart> parts;
  bool isMultipart = false;

  std::optional<std::string> header(std::string_view name) const;
  const LoopbackMultipartPart* part(std::string_view name) const;
};

struct LoopbackReply {
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  std::vector<std::pair<std::string, std::string>> headers;
  std::chrono::milliseconds delay{0};  // cut short when the server stops
  bool dropConnection = false;         // send half of the body, then close
};

LoopbackReply makeReply(int status, std::string body, std::string contentType = "application/json",
                        std::vector<std::pair<std::string, std::string>> headers = {});

// An HTTP/1.1 server on an ephemeral 127.0.0.1 port that answers its routes (404
// otherwise), records every request, and stops when destroyed.
class LoopbackHTTPServer {
 public:
  using Handler = std::function<LoopbackReply(const LoopbackRequest&)>;

  // Throws std::runtime_error when it cannot start serving.
  LoopbackHTTPServer();
  ~LoopbackHTTPServer();
  LoopbackHTTPServer(const LoopbackHTTPServer&) = delete;
  LoopbackHTTPServer& operator=(const LoopbackHTTPServer&) = delete;

  std::string baseURL() const;

  // Replaces any earlier route for the pair; handlers run on the server's threads.
  void route(std::string method, std::string path, Handler handler);

  std::vector<LoopbackRequest> requests() const;
  // True once `count` requests have arrived within `timeout`.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;

  // Releases delayed answers and joins the server's threads; idempotent.
  void stop();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace orvid::testing
