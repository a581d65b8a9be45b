#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "orvid/platform/bytes.h"
#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// A failure of a WebSocket: opening it, or a frame that could not be sent or
// received. The text never holds a server's bytes.
class OrvidWebSocketError : public std::exception {
 public:
  enum class Case {
    // The URL's scheme is not ws or wss, or the URL cannot be used.
    badURL,
    // The host name did not resolve.
    cannotFindHost,
    // The connection was refused or could not be set up.
    cannotConnectToHost,
    // The opening handshake did not complete within the request's timeout.
    timedOut,
    // The TLS handshake or the certificate check failed.
    secureConnectionFailed,
    // The server answered the opening request with an HTTP status instead of
    // switching protocols (a refused credential, a wrong path); statusCode() says which.
    handshakeRejected,
    // The server closed the WebSocket; closeCode() is the code it sent (1005 when none).
    closedByPeer,
    // The connection broke without a closing handshake.
    connectionLost,
    // A received message was larger than the connection accepts.
    messageTooLarge,
    // The connection was cancelled by its owner.
    cancelled,
    // Any other failure of the transport.
    transportFailed,
  };

  static OrvidWebSocketError make(Case errorCase, std::string detail = {});
  static OrvidWebSocketError handshakeRejected(int statusCode);
  static OrvidWebSocketError closedByPeer(int closeCode);

  Case errorCase() const { return case_; }
  // The HTTP status of a rejected handshake; 0 otherwise.
  int statusCode() const { return statusCode_; }
  // The close code of closedByPeer; 0 otherwise.
  int closeCode() const { return closeCode_; }
  // The transport's own description of what went wrong (may be empty).
  const std::string& detail() const { return detail_; }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  OrvidWebSocketError(Case errorCase, std::string detail, int statusCode, int closeCode);

  Case case_;
  std::string detail_;
  int statusCode_ = 0;
  int closeCode_ = 0;
  std::string message_;
};

// One open WebSocket. One receive() may run while other threads send; sends from
// several threads go out one whole frame at a time. Safe to destroy at any time
// (the socket is closed then, as by cancel()).
class OrvidWebSocketConnection {
 public:
  virtual ~OrvidWebSocketConnection() = default;

  // Sends one binary frame holding `data`; returns once it is handed to the socket.
  // Throws OrvidWebSocketError, or CancellationError once `stop` is requested.
  virtual void send(const Bytes& data, std::stop_token stop = {}) = 0;
  // Sends one text frame holding `text` (UTF-8).
  virtual void send(std::string_view text, std::stop_token stop = {}) = 0;

  // Blocks for the next message, text or binary, and returns its payload: a text
  // message as its UTF-8 bytes. Throws OrvidWebSocketError (closedByPeer when the
  // server closed, cancelled after cancel()), or CancellationError once `stop` is
  // requested, which leaves the connection usable.
  virtual Bytes receive(std::stop_token stop = {}) = 0;

  // Closes the socket with code 1001 (going away) and no reason, without waiting for
  // the server. Pending and later sends and receives throw OrvidWebSocketError with
  // the cancelled case. Never throws; any number of calls.
  virtual void cancel() noexcept = 0;
};

// Opens WebSockets, so that providers never touch a socket themselves and a host or
// a test can put any transport in their place. Safe to use from several threads.
class OrvidWebSocketConnector {
 public:
  virtual ~OrvidWebSocketConnector() = default;

  // Opens a WebSocket for `request`: its URL (scheme ws or wss), its header fields
  // and its timeout, which bounds connecting and the opening handshake. Returns once
  // the server has switched protocols. Throws OrvidWebSocketError, or
  // CancellationError once `stop` is requested.
  virtual std::shared_ptr<OrvidWebSocketConnection> connect(const OrvidHTTPRequest& request,
                                                            std::stop_token stop = {}) = 0;
};

}  // namespace orvid
