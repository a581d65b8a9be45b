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

// One part of a multipart/form-data body, as the server parsed it.
struct LoopbackMultipartPart {
  std::string name;
  std::string filename;
  std::string contentType;
  std::string content;
};

// A request as the server received it.
struct LoopbackRequest {
  std::string method;
  std::string path;
  std::vector<std::pair<std::string, std::string>> headers;
  // The body as received; empty for multipart bodies, which arrive as `parts`.
  std::string body;
  // The parts of a multipart/form-data body, in the order they were sent.
  std::vector<LoopbackMultipartPart> parts;
  bool isMultipart = false;

  // The first header field named `name` (any case).
  std::optional<std::string> header(std::string_view name) const;
  // The first part named `name`; null if none.
  const LoopbackMultipartPart* part(std::string_view name) const;
};

// The answer a route gives.
struct LoopbackReply {
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  std::vector<std::pair<std::string, std::string>> headers;
  // Waits this long before answering; cut short when the server stops.
  std::chrono::milliseconds delay{0};
  // Sends the status line, the header fields (announcing the whole body) and half
  // of the body, then closes the connection.
  bool dropConnection = false;
};

// A reply with `status`, `body`, `contentType` and `headers`, answered at once.
LoopbackReply makeReply(int status, std::string body, std::string contentType = "application/json",
                        std::vector<std::pair<std::string, std::string>> headers = {});

// An HTTP/1.1 server on 127.0.0.1 with an ephemeral port, for tests and benchmarks.
// It answers the routes it is given, records every request, and stops (releasing
// delayed answers) when it is destroyed. Unrouted requests get 404.
class LoopbackHTTPServer {
 public:
  using Handler = std::function<LoopbackReply(const LoopbackRequest&)>;

  // Binds and starts serving; throws std::runtime_error when it cannot within a few seconds.
  LoopbackHTTPServer();
  ~LoopbackHTTPServer();
  LoopbackHTTPServer(const LoopbackHTTPServer&) = delete;
  LoopbackHTTPServer& operator=(const LoopbackHTTPServer&) = delete;

  // "http://127.0.0.1:" + the port.
  std::string baseURL() const;

  // Answers `method` requests for exactly `path` with `handler`, replacing an
  // earlier route for the same pair. Handlers run on the server's threads.
  void route(std::string method, std::string path, Handler handler);

  // Every request received so far, in arrival order.
  std::vector<LoopbackRequest> requests() const;
  // Blocks until at least `count` requests have arrived or `timeout` has passed;
  // true when they have.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;

  // Stops accepting, releases delayed answers and joins the server's threads.
  // Idempotent; the destructor calls it.
  void stop();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace orvid::testing
