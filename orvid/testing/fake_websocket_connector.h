#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "orvid/platform/bytes.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/transcription/realtime/orvid_websocket.h"

namespace orvid::testing {

// One frame a session sent through a FakeWebSocketConnection.
struct FakeWebSocketFrame {
  enum class Kind { text, binary };
  Kind kind = Kind::text;
  Bytes payload;

  std::string text() const { return stringFromBytes(payload); }
  bool operator==(const FakeWebSocketFrame&) const = default;
};

// A WebSocket played by the test: it records every frame sent, and receive()
// returns, in order, the payloads and errors the test pushes, blocking until one
// is there. Honours stop tokens and cancel() as a real connection does (cancel()
// makes pending and later calls throw OrvidWebSocketError::cancelled). Thread-safe.
class FakeWebSocketConnection : public OrvidWebSocketConnection {
 public:
  void send(const Bytes& data, std::stop_token stop = {}) override {
    record(FakeWebSocketFrame{FakeWebSocketFrame::Kind::binary, data}, stop);
  }
  void send(std::string_view text, std::stop_token stop = {}) override {
    record(FakeWebSocketFrame{FakeWebSocketFrame::Kind::text, bytesFromString(text)}, stop);
  }

  Bytes receive(std::stop_token stop = {}) override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, stop, [&] { return cancelled_ || !incoming_.empty(); });
    if (cancelled_) throw OrvidWebSocketError::make(OrvidWebSocketError::Case::cancelled);
    if (incoming_.empty()) throw CancellationError();
    Incoming next = std::move(incoming_.front());
    incoming_.pop_front();
    if (auto* error = std::get_if<std::exception_ptr>(&next)) std::rethrow_exception(*error);
    return std::get<Bytes>(std::move(next));
  }

  void cancel() noexcept override {
    {
      std::lock_guard lock(mutex_);
      cancelled_ = true;
      ++cancelCount_;
    }
    changed_.notify_all();
  }

  // The next payload receive() returns.
  void pushPayload(Bytes payload) { push(std::move(payload)); }
  void pushText(std::string_view text) { push(bytesFromString(text)); }
  // The next receive() throws `error`.
  void pushError(std::exception_ptr error) { push(std::move(error)); }
  template <typename Error>
  void pushError(Error error) {
    pushError(std::make_exception_ptr(std::move(error)));
  }

  // Every later send() throws `error` (absent: sends succeed again).
  void failSends(std::exception_ptr error) {
    std::lock_guard lock(mutex_);
    sendError_ = std::move(error);
  }

  std::vector<FakeWebSocketFrame> sentFrames() const {
    std::lock_guard lock(mutex_);
    return sent_;
  }

  // Blocks until at least `count` frames were sent; false after `timeout`.
  bool waitForSentFrames(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return sent_.size() >= count; });
  }

  int cancelCount() const {
    std::lock_guard lock(mutex_);
    return cancelCount_;
  }

 private:
  using Incoming = std::variant<Bytes, std::exception_ptr>;

  void push(Incoming incoming) {
    {
      std::lock_guard lock(mutex_);
      incoming_.push_back(std::move(incoming));
    }
    changed_.notify_all();
  }

  void record(FakeWebSocketFrame frame, const std::stop_token& stop) {
    {
      std::lock_guard lock(mutex_);
      checkCancellation(stop);
      if (cancelled_) throw OrvidWebSocketError::make(OrvidWebSocketError::Case::cancelled);
      if (sendError_) std::rethrow_exception(sendError_);
      sent_.push_back(std::move(frame));
    }
    changed_.notify_all();
  }

  mutable std::mutex mutex_;
  mutable std::condition_variable_any changed_;
  std::deque<Incoming> incoming_;
  std::vector<FakeWebSocketFrame> sent_;
  std::exception_ptr sendError_;
  bool cancelled_ = false;
  int cancelCount_ = 0;
};

// Hands out FakeWebSocketConnections and records the requests it was asked to
// connect. Connections prepared by the test go out first, in order; after them
// each connect() makes a new one. Thread-safe.
class FakeWebSocketConnector : public OrvidWebSocketConnector {
 public:
  std::shared_ptr<OrvidWebSocketConnection> connect(const OrvidHTTPRequest& request,
                                                    std::stop_token stop = {}) override {
    std::lock_guard lock(mutex_);
    checkCancellation(stop);
    requests_.push_back(request);
    if (connectError_) std::rethrow_exception(std::exchange(connectError_, nullptr));
    std::shared_ptr<FakeWebSocketConnection> connection;
    if (prepared_.empty()) {
      connection = std::make_shared<FakeWebSocketConnection>();
    } else {
      connection = std::move(prepared_.front());
      prepared_.pop_front();
    }
    connections_.push_back(connection);
    return connection;
  }

  // The connection that the next connect() without a prepared one ahead returns,
  // so that a test can push the server's first messages before connecting.
  std::shared_ptr<FakeWebSocketConnection> prepareConnection() {
    auto connection = std::make_shared<FakeWebSocketConnection>();
    std::lock_guard lock(mutex_);
    prepared_.push_back(connection);
    return connection;
  }

  // The next connect() throws `error` (after recording its request).
  void failNextConnect(std::exception_ptr error) {
    std::lock_guard lock(mutex_);
    connectError_ = std::move(error);
  }

  std::vector<OrvidHTTPRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }

  // The connections handed out, in order.
  std::vector<std::shared_ptr<FakeWebSocketConnection>> connections() const {
    std::lock_guard lock(mutex_);
    return connections_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<OrvidHTTPRequest> requests_;
  std::deque<std::shared_ptr<FakeWebSocketConnection>> prepared_;
  std::vector<std::shared_ptr<FakeWebSocketConnection>> connections_;
  std::exception_ptr connectError_;
};

}  // namespace orvid::testing
