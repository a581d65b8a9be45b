#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

#include "orvid/transcription/realtime/orvid_websocket.h"

namespace orvid {

// WebSockets over Boost.Beast and Asio, with OpenSSL for wss. A wss server's
// certificate must chain to a trusted authority (the system's store, which honours
// SSL_CERT_FILE and SSL_CERT_DIR as OpenSSL's tools do, plus `caFile` when given) and
// name the URL's host; the host name travels as SNI. Each connection runs its own
// I/O thread, which ends when the connection is destroyed.
class BeastOrvidWebSocketConnector : public OrvidWebSocketConnector {
 public:
  struct Options {
    // PEM certificates trusted besides the system's, e.g. a private authority.
    std::optional<std::filesystem::path> caFile;
    // The largest message a connection accepts; a larger one fails the receive
    // with messageTooLarge and closes the connection.
    std::size_t maximumMessageSize = 16 * 1024 * 1024;
  };

  BeastOrvidWebSocketConnector();
  // Throws OrvidWebSocketError (secureConnectionFailed) when `caFile` cannot be read.
  explicit BeastOrvidWebSocketConnector(Options options);
  ~BeastOrvidWebSocketConnector() override;

  std::shared_ptr<OrvidWebSocketConnection> connect(const OrvidHTTPRequest& request,
                                                    std::stop_token stop = {}) override;

 private:
  struct TLS;
  Options options_;
  std::shared_ptr<TLS> tls_;
};

}  // namespace orvid
