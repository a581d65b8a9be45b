#include "orvid/testing/loopback_websocket_server.h"

#include <sys/socket.h>

#include <list>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace orvid::testing {

namespace net = boost::asio;
namespace ssl = boost::asio::ssl;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using tcp = boost::asio::ip::tcp;

namespace {

// A Peer over `Stream` (a plain or a TLS TCP stream). Errors after the upgrade end
// the exchange quietly: receive() comes back absent, sends do nothing.
template <typename Stream>
class StreamPeer final : public LoopbackWebSocketServer::Peer {
 public:
  StreamPeer(Stream& stream, http::request<http::string_body> request)
      : socket_(stream), request_(std::move(request)) {}

  const std::string& target() const override { return target_ = std::string(request_.target()); }

  std::optional<std::string> header(std::string_view name) const override {
    auto found = request_.find(beast::string_view(name.data(), name.size()));
    if (found == request_.end()) return std::nullopt;
    return std::string(found->value());
  }

  void reject(int status, std::string_view body) override {
    if (state_ != State::pending) return;
    state_ = State::rejected;
    http::response<http::string_body> response(static_cast<http::status>(status), request_.version());
    response.set(http::field::content_type, "application/json");
    response.body() = body;
    response.prepare_payload();
    boost::system::error_code ignored;
    http::write(socket_.next_layer(), response, ignored);
  }

  std::optional<LoopbackWebSocketServer::Message> receive() override {
    if (!accepted()) return std::nullopt;
    beast::flat_buffer buffer;
    boost::system::error_code error;
    socket_.read(buffer, error);
    if (error) {
      if (error == websocket::error::closed) closeCode_ = socket_.reason().code;
      return std::nullopt;
    }
    return LoopbackWebSocketServer::Message{socket_.got_text(), beast::buffers_to_string(buffer.data())};
  }

  int clientCloseCode() const override { return closeCode_; }

  void sendText(std::string_view text) override { write(text, true); }
  void sendBinary(std::string_view bytes) override { write(bytes, false); }

  void close(int code) override {
    if (!accepted()) return;
    boost::system::error_code error;
    socket_.close(websocket::close_reason(static_cast<std::uint16_t>(code)), error);
  }

 private:
  enum class State { pending, accepted, rejected, failed };

  bool accepted() {
    if (state_ == State::pending) {
      boost::system::error_code error;
      socket_.accept(request_, error);
      state_ = error ? State::failed : State::accepted;
    }
    return state_ == State::accepted;
  }

  void write(std::string_view payload, bool text) {
    if (!accepted()) return;
    socket_.text(text);
    boost::system::error_code ignored;
    socket_.write(net::buffer(payload.data(), payload.size()), ignored);
  }

  websocket::stream<Stream&> socket_;
  http::request<http::string_body> request_;
  mutable std::string target_;
  State state_ = State::pending;
  int closeCode_ = 0;
};

}  // namespace

struct LoopbackWebSocketServer::State {
  Handler handler;
  std::optional<ssl::context> tls;
  net::io_context io;
  tcp::acceptor acceptor{io};
  int port = 0;
  std::atomic<bool> stopping{false};
  std::atomic<int> accepted{0};
  std::mutex mutex;
  std::list<tcp::socket> sockets;  // every accepted socket, to unblock at shutdown
  std::list<std::thread> connections;
  std::thread acceptThread;

  void serve(tcp::socket& socket) {
    boost::system::error_code error;
    if (tls) {
      beast::ssl_stream<tcp::socket&> stream(socket, *tls);
      stream.handshake(ssl::stream_base::server, error);
      if (!error) converse(stream);
    } else {
      converse(socket);
    }
  }

  template <typename Stream>
  void converse(Stream& stream) {
    beast::flat_buffer buffer;
    http::request<http::string_body> request;
    boost::system::error_code error;
    http::read(stream, buffer, request, error);
    if (error) return;
    StreamPeer<Stream> peer(stream, std::move(request));
    handler(peer);
  }

  void acceptLoop() {
    while (true) {
      tcp::socket socket(io);
      boost::system::error_code error;
      acceptor.accept(socket, error);
      if (stopping || error) return;
      ++accepted;
      std::lock_guard lock(mutex);
      tcp::socket& kept = sockets.emplace_back(std::move(socket));
      connections.emplace_back([this, &kept] {
        serve(kept);
        // Closed under the lock, so that shutdown never meets a descriptor reused since.
        std::lock_guard closing(mutex);
        boost::system::error_code ignored;
        kept.close(ignored);
      });
    }
  }
};

LoopbackWebSocketServer::LoopbackWebSocketServer(Handler handler, std::optional<TestCertificate> certificate)
    : state_(std::make_shared<State>()) {
  state_->handler = std::move(handler);
  if (certificate) {
    auto& context = state_->tls.emplace(ssl::context::tls_server);
    context.use_certificate_chain(net::buffer(certificate->certificatePEM));
    context.use_private_key(net::buffer(certificate->privateKeyPEM), ssl::context::pem);
  }
  const tcp::endpoint endpoint(net::ip::make_address("127.0.0.1"), 0);
  state_->acceptor.open(endpoint.protocol());
  state_->acceptor.set_option(tcp::acceptor::reuse_address(true));
  state_->acceptor.bind(endpoint);
  state_->acceptor.listen();
  state_->port = state_->acceptor.local_endpoint().port();
  state_->acceptThread = std::thread([state = state_.get()] { state->acceptLoop(); });
}

LoopbackWebSocketServer::~LoopbackWebSocketServer() {
  state_->stopping = true;
  {
    // Wakes the blocking accept with a connection of our own.
    net::io_context io;
    tcp::socket waker(io);
    boost::system::error_code ignored;
    waker.connect(tcp::endpoint(net::ip::make_address("127.0.0.1"), static_cast<unsigned short>(state_->port)),
                  ignored);
    state_->acceptThread.join();
  }
  {
    std::lock_guard lock(state_->mutex);
    // Shutting a socket down from here is safe at the system level and makes every
    // blocked read or write on it return.
    for (auto& socket : state_->sockets) {
      if (socket.is_open()) ::shutdown(socket.native_handle(), SHUT_RDWR);
    }
  }
  for (auto& connection : state_->connections) connection.join();
}

int LoopbackWebSocketServer::port() const { return state_->port; }

std::string LoopbackWebSocketServer::url(std::string_view path) const {
  return std::string(state_->tls ? "wss" : "ws") + "://127.0.0.1:" + std::to_string(state_->port) + std::string(path);
}

int LoopbackWebSocketServer::acceptedCount() const { return state_->accepted; }

}  // namespace orvid::testing
