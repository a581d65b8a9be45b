#include "orvid/transcription/realtime/beast_orvid_websocket_connector.h"

#include <chrono>
#include <cstdint>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <openssl/ssl.h>

#include "orvid/platform/cancellation.h"

namespace orvid {

namespace net = boost::asio;
namespace ssl = boost::asio::ssl;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using tcp = boost::asio::ip::tcp;
using Case = OrvidWebSocketError::Case;

struct BeastOrvidWebSocketConnector::TLS {
  ssl::context context{ssl::context::tls_client};
};

namespace {

// How long a cancelled connection waits for the server to answer its close frame
// before it drops the socket.
constexpr std::chrono::seconds kCloseGrace{1};

// What a transport error means to a caller. Only the error's own text is kept, never
// bytes the server sent.
OrvidWebSocketError describe(const boost::system::error_code& error, bool opening) {
  namespace asioError = net::error;
  if (error == asioError::host_not_found || error == asioError::host_not_found_try_again ||
      error == asioError::no_data) {
    return OrvidWebSocketError::make(Case::cannotFindHost, error.message());
  }
  if (error == asioError::connection_refused || error == asioError::network_unreachable ||
      error == asioError::host_unreachable) {
    return OrvidWebSocketError::make(Case::cannotConnectToHost, error.message());
  }
  if (error == beast::error::timeout || error == asioError::timed_out) {
    return OrvidWebSocketError::make(Case::timedOut, error.message());
  }
  if (error.category() == net::error::get_ssl_category() || error == ssl::error::stream_truncated) {
    return OrvidWebSocketError::make(opening ? Case::secureConnectionFailed : Case::connectionLost, error.message());
  }
  if (error == websocket::error::message_too_big || error == beast::http::error::buffer_overflow) {
    return OrvidWebSocketError::make(Case::messageTooLarge);
  }
  if (error == beast::http::error::end_of_stream || error == beast::http::error::partial_message) {
    return OrvidWebSocketError::make(Case::connectionLost, error.message());
  }
  if (error == net::error::eof || error == asioError::connection_reset || error == asioError::broken_pipe ||
      error == asioError::connection_aborted || error == asioError::operation_aborted) {
    return OrvidWebSocketError::make(opening ? Case::cannotConnectToHost : Case::connectionLost, error.message());
  }
  return OrvidWebSocketError::make(Case::transportFailed, error.message());
}

// The parts of a ws or wss URL that opening a socket needs.
struct Endpoint {
  bool secure = false;
  std::string host;      // without IPv6 brackets
  std::string hostField;  // the Host header: host as written, ":port" when not the default
  std::string port;
  std::string target;  // path (at least "/") and query
};

Endpoint endpointOf(const URL& url) {
  Endpoint endpoint;
  if (url.scheme() == "wss") {
    endpoint.secure = true;
  } else if (url.scheme() != "ws") {
    throw OrvidWebSocketError::make(Case::badURL, "the scheme must be ws or wss");
  }
  endpoint.host = url.host();
  if (endpoint.host.size() >= 2 && endpoint.host.front() == '[') {
    endpoint.host = endpoint.host.substr(1, endpoint.host.size() - 2);
  }
  const int defaultPort = endpoint.secure ? 443 : 80;
  const int port = url.port().value_or(defaultPort);
  endpoint.port = std::to_string(port);
  endpoint.hostField = url.host() + (port == defaultPort ? "" : ":" + endpoint.port);
  endpoint.target = url.path().empty() ? "/" : url.path();
  if (url.query()) endpoint.target += "?" + *url.query();
  return endpoint;
}

bool isIPAddress(const std::string& host) {
  boost::system::error_code error;
  net::ip::make_address(host, error);
  return !error;
}

// One WebSocket over `Stream` (a plain or a TLS TCP stream) with its own I/O thread.
// Every operation on the stream runs on that thread; callers wait on `mutex_` and
// `changed_`, which the thread's handlers update.
template <typename Stream>
class BeastConnection final : public OrvidWebSocketConnection {
 public:
  template <typename... StreamArguments>
  explicit BeastConnection(std::size_t maximumMessageSize, StreamArguments&&... arguments)
      : socket_(io_, std::forward<StreamArguments>(arguments)...),
        resolver_(io_),
        openTimer_(io_),
        closeTimer_(io_) {
    socket_.read_message_max(maximumMessageSize);
    thread_ = std::thread([this] { io_.run(); });
  }

  ~BeastConnection() override {
    cancel();
    work_.reset();
    thread_.join();
  }

  // Resolves, connects, secures and upgrades, all within the request's timeout.
  void open(const OrvidHTTPRequest& request, const Endpoint& endpoint, std::stop_token stop) {
    bool finished = false;
    std::exception_ptr failure;
    net::co_spawn(io_, opening(request, endpoint), [this, &finished, &failure](std::exception_ptr error) {
      opening_ = false;
      openTimer_.cancel();
      std::lock_guard lock(mutex_);
      failure = error;
      finished = true;
      changed_.notify_all();
    });
    net::post(io_, [this, timeout = request.timeout] {
      if (!opening_) return;
      openTimer_.expires_after(timeout);
      openTimer_.async_wait([this](boost::system::error_code error) {
        if (error || !opening_) return;
        openTimedOut_ = true;
        abortOpening();
      });
    });
    {
      std::stop_callback onStop(stop, [this] {
        net::post(io_, [this] {
          if (!opening_) return;
          openStopped_ = true;
          abortOpening();
        });
      });
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] { return finished; });
    }
    if (!failure) return;
    // The flags were set on the I/O thread before the failure was reported.
    if (openStopped_) throw CancellationError();
    if (openTimedOut_) throw OrvidWebSocketError::make(Case::timedOut);
    try {
      std::rethrow_exception(failure);
    } catch (const boost::system::system_error& error) {
      throw describe(error.code(), true);
    }
  }

  void send(const Bytes& data, std::stop_token stop) override {
    write(std::make_shared<std::string>(data.begin(), data.end()), false, stop);
  }

  void send(std::string_view text, std::stop_token stop) override {
    write(std::make_shared<std::string>(text), true, stop);
  }

  Bytes receive(std::stop_token stop) override {
    std::unique_lock lock(mutex_);
    if (messages_.empty() && !readFailure_ && !readPending_ && !cancelled_) {
      readPending_ = true;
      net::post(io_, [this] { readNext(); });
    }
    changed_.wait(lock, stop, [&] { return !messages_.empty() || readFailure_ || cancelled_; });
    if (cancelled_) throw OrvidWebSocketError::make(Case::cancelled);
    if (!messages_.empty()) {
      Bytes message = std::move(messages_.front());
      messages_.pop_front();
      return message;
    }
    if (readFailure_) throw *readFailure_;
    throw CancellationError();
  }

  void cancel() noexcept override {
    {
      std::lock_guard lock(mutex_);
      if (cancelled_) return;
      cancelled_ = true;
    }
    changed_.notify_all();
    try {
      net::post(io_, [this] { closeSocket(); });
    } catch (...) {
      // Posting only fails when memory runs out; the destructor still stops the thread.
    }
  }

 private:
  net::awaitable<void> opening(OrvidHTTPRequest request, Endpoint endpoint) {
    auto addresses = co_await resolver_.async_resolve(endpoint.host, endpoint.port, net::use_awaitable);
    co_await beast::get_lowest_layer(socket_).async_connect(addresses, net::use_awaitable);
    // Audio goes out in small frames that must not wait for the previous one's
    // acknowledgement.
    beast::get_lowest_layer(socket_).socket().set_option(tcp::no_delay(true));
    if constexpr (isSecure) {
      auto& tlsStream = socket_.next_layer();
      if (!isIPAddress(endpoint.host) && !SSL_set_tlsext_host_name(tlsStream.native_handle(), endpoint.host.c_str())) {
        throw boost::system::system_error(net::error::invalid_argument);
      }
      tlsStream.set_verify_mode(ssl::verify_peer);
      tlsStream.set_verify_callback(ssl::host_name_verification(endpoint.host));
      co_await tlsStream.async_handshake(ssl::stream_base::client, net::use_awaitable);
    }
    socket_.set_option(websocket::stream_base::decorator([headers = request.headers](websocket::request_type& upgrade) {
      for (const auto& header : headers) upgrade.set(header.name, header.value);
    }));
    websocket::response_type response;
    boost::system::error_code error;
    co_await socket_.async_handshake(response, endpoint.hostField, endpoint.target,
                                     net::redirect_error(net::use_awaitable, error));
    if (error == websocket::error::upgrade_declined || (!error && response.result_int() != 101)) {
      throw OrvidWebSocketError::handshakeRejected(static_cast<int>(response.result_int()));
    }
    if (error) throw boost::system::system_error(error);
    // From here on only cancel() or the server ends the connection: no idle limit.
    socket_.set_option(websocket::stream_base::timeout{
        kCloseGrace, websocket::stream_base::none(), false});
  }

  void abortOpening() {
    resolver_.cancel();
    boost::system::error_code ignored;
    beast::get_lowest_layer(socket_).socket().close(ignored);
  }

  void readNext() {
    socket_.async_read(buffer_, [this](boost::system::error_code error, std::size_t) {
      std::lock_guard lock(mutex_);
      readPending_ = false;
      if (error == websocket::error::closed) {
        readFailure_ = OrvidWebSocketError::closedByPeer(static_cast<int>(socket_.reason().code));
      } else if (error) {
        readFailure_ = describe(error, false);
      } else {
        const auto bytes = static_cast<const std::uint8_t*>(buffer_.data().data());
        messages_.emplace_back(bytes, bytes + buffer_.size());
        buffer_.consume(buffer_.size());
      }
      changed_.notify_all();
    });
  }

  void write(std::shared_ptr<std::string> payload, bool text, const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, stop, [&] { return !writing_ || cancelled_ || writeFailure_; });
    checkCancellation(stop);
    if (cancelled_) throw OrvidWebSocketError::make(Case::cancelled);
    if (writeFailure_) throw *writeFailure_;
    writing_ = true;
    writeDone_ = false;
    net::post(io_, [this, payload, text] {
      socket_.text(text);
      socket_.async_write(net::buffer(*payload), [this, payload](boost::system::error_code error, std::size_t) {
        std::lock_guard lock(mutex_);
        if (error) writeFailure_ = describe(error, false);
        writeDone_ = true;
        changed_.notify_all();
      });
    });
    const bool written = changed_.wait(lock, stop, [&] { return writeDone_; });
    if (!written) {
      // Half a frame cannot be taken back: a stopped send gives up the connection.
      lock.unlock();
      cancel();
      lock.lock();
      changed_.wait(lock, [&] { return writeDone_; });
    }
    writing_ = false;
    changed_.notify_all();
    if (!written) throw CancellationError();
    if (cancelled_) throw OrvidWebSocketError::make(Case::cancelled);
    if (writeFailure_) throw *writeFailure_;
  }

  // Sends a close frame with 1001 (going away) and drops the socket once the server
  // answers or kCloseGrace has passed.
  void closeSocket() {
    if (!socket_.is_open()) {
      boost::system::error_code ignored;
      beast::get_lowest_layer(socket_).socket().close(ignored);
      return;
    }
    closeTimer_.expires_after(kCloseGrace);
    closeTimer_.async_wait([this](boost::system::error_code error) {
      if (error) return;
      boost::system::error_code ignored;
      beast::get_lowest_layer(socket_).socket().close(ignored);
    });
    socket_.async_close(websocket::close_code::going_away, [this](boost::system::error_code) {
      closeTimer_.cancel();
      boost::system::error_code ignored;
      beast::get_lowest_layer(socket_).socket().close(ignored);
    });
  }

  static constexpr bool isSecure = !std::is_same_v<Stream, websocket::stream<beast::tcp_stream>>;

  net::io_context io_;
  net::executor_work_guard<net::io_context::executor_type> work_ = net::make_work_guard(io_);
  Stream socket_;
  tcp::resolver resolver_;
  net::steady_timer openTimer_;
  net::steady_timer closeTimer_;
  beast::flat_buffer buffer_;
  // Set on the I/O thread only, read by open() after the opening has finished.
  bool opening_ = true;
  bool openTimedOut_ = false;
  bool openStopped_ = false;

  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<Bytes> messages_;
  std::optional<OrvidWebSocketError> readFailure_;
  std::optional<OrvidWebSocketError> writeFailure_;
  bool readPending_ = false;
  bool writing_ = false;
  bool writeDone_ = false;
  bool cancelled_ = false;

  std::thread thread_;
};

using PlainConnection = BeastConnection<websocket::stream<beast::tcp_stream>>;
using SecureConnection = BeastConnection<websocket::stream<beast::ssl_stream<beast::tcp_stream>>>;

}  // namespace

BeastOrvidWebSocketConnector::BeastOrvidWebSocketConnector(Options options)
    : options_(std::move(options)), tls_(std::make_shared<TLS>()) {
  boost::system::error_code error;
  tls_->context.set_default_verify_paths(error);
  if (!error && options_.caFile) tls_->context.load_verify_file(options_.caFile->string(), error);
  if (error) throw OrvidWebSocketError::make(Case::secureConnectionFailed, "cannot load the trusted certificates");
  tls_->context.set_verify_mode(ssl::verify_peer);
}

BeastOrvidWebSocketConnector::BeastOrvidWebSocketConnector() : BeastOrvidWebSocketConnector(Options{}) {}

BeastOrvidWebSocketConnector::~BeastOrvidWebSocketConnector() = default;

std::shared_ptr<OrvidWebSocketConnection> BeastOrvidWebSocketConnector::connect(const OrvidHTTPRequest& request,
                                                                                std::stop_token stop) {
  checkCancellation(stop);
  const Endpoint endpoint = endpointOf(request.url);
  if (endpoint.secure) {
    auto connection = std::make_shared<SecureConnection>(options_.maximumMessageSize, tls_->context);
    connection->open(request, endpoint, stop);
    return connection;
  }
  auto connection = std::make_shared<PlainConnection>(options_.maximumMessageSize);
  connection->open(request, endpoint, stop);
  return connection;
}

}  // namespace orvid
