#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "orvid/testing/test_certificate.h"

namespace orvid::testing {

// A WebSocket server on 127.0.0.1 for tests, over plain TCP or TLS. Each accepted
// connection runs `handler` on a thread of its own with a Peer; the server stops,
// unblocking and joining every connection, when destroyed.
class LoopbackWebSocketServer {
 public:
  struct Message {
    bool text = false;
    std::string payload;
  };

  // One client, seen from the server. The opening request is read before the
  // handler runs; the upgrade is answered on first use unless reject() came first.
  class Peer {
   public:
    virtual ~Peer() = default;
    // The opening request's target (path and query) and header fields.
    virtual const std::string& target() const = 0;
    virtual std::optional<std::string> header(std::string_view name) const = 0;
    // Answers the opening request with `status` and the JSON `body` instead of
    // switching protocols.
    virtual void reject(int status, std::string_view body = R"({"error":"refused"})") = 0;
    // The next message; absent once the client closed or the connection broke.
    virtual std::optional<Message> receive() = 0;
    // The close code the client sent, once receive() has come back absent (0 if none).
    virtual int clientCloseCode() const = 0;
    virtual void sendText(std::string_view text) = 0;
    virtual void sendBinary(std::string_view bytes) = 0;
    // Sends a close frame with `code` and waits for the client's answer.
    virtual void close(int code) = 0;
  };

  using Handler = std::function<void(Peer&)>;

  // Serves wss with `certificate` when given, ws otherwise.
  explicit LoopbackWebSocketServer(Handler handler, std::optional<TestCertificate> certificate = std::nullopt);
  ~LoopbackWebSocketServer();
  LoopbackWebSocketServer(const LoopbackWebSocketServer&) = delete;
  LoopbackWebSocketServer& operator=(const LoopbackWebSocketServer&) = delete;

  int port() const;
  // "ws://127.0.0.1:PORT" + path, or "wss://..." when serving TLS.
  std::string url(std::string_view path = "/") const;
  // How many connections were accepted so far.
  int acceptedCount() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace orvid::testing
