#include "orvid/testing/loopback_http_server.h"

#include <strings.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <httplib.h>

namespace orvid::testing {
namespace {

using Clock = std::chrono::steady_clock;

LoopbackRequest describe(const httplib::Request& request) {
  return {.method = request.method, .path = request.path, .headers = {request.headers.begin(), request.headers.end()}, .body = {}, .parts = {}};
}

}  // namespace

LoopbackReply makeReply(int status, std::string body, std::string contentType,
                        std::vector<std::pair<std::string, std::string>> headers) {
  return {.status = status, .body = std::move(body), .contentType = std::move(contentType), .headers = std::move(headers)};
}

std::optional<std::string> LoopbackRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && ::strncasecmp(key.data(), name.data(), name.size()) == 0) return value;
  }
  return std::nullopt;
}

const LoopbackMultipartPart* LoopbackRequest::part(std::string_view name) const {
  auto found = std::find_if(parts.begin(), parts.end(), [&](const auto& part) { return part.name == name; });
  return found == parts.end() ? nullptr : &*found;
}

struct LoopbackHTTPServer::State {
  httplib::Server server;
  int port = 0;
  std::jthread listener;

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<LoopbackRequest> requests;
  std::map<std::pair<std::string, std::string>, Handler> routes;
  bool stopping = false;
  bool listenerFinished = false;

  void respond(LoopbackRequest request, httplib::Response& response, bool complete = true) {
    Handler handler;
    {
      std::lock_guard lock(mutex);
      requests.push_back(request);
      auto found = routes.find({request.method, request.path});
      if (found != routes.end()) handler = found->second;
    }
    changed.notify_all();

    LoopbackReply reply = !complete ? makeReply(400, R"({"error":"malformed body"})")
                          : handler ? handler(request)
                                    : makeReply(404, R"({"error":"no route"})");

    if (reply.delay.count() > 0) {
      std::unique_lock lock(mutex);
      changed.wait_for(lock, reply.delay, [this] { return stopping; });
    }

    response.status = reply.status;
    for (const auto& [name, value] : reply.headers) response.set_header(name, value);
    if (!reply.dropConnection) {
      response.set_content(reply.body, reply.contentType);
      return;
    }
    auto body = std::make_shared<std::string>(reply.body.empty() ? "{}" : reply.body);
    const std::size_t half = body->size() / 2;
    response.set_content_provider(body->size(), reply.contentType,
                                  [body, half](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                    if (offset >= half) return false;  // closes the connection
                                    sink.write(body->data() + offset, std::min(length, half - offset));
                                    return true;
                                  });
  }
};

LoopbackHTTPServer::LoopbackHTTPServer() : state_(std::make_shared<State>()) {
  State* state = state_.get();
  auto plain = [state](const httplib::Request& request, httplib::Response& response) {
    LoopbackRequest described = describe(request);
    described.body = request.body;
    state->respond(std::move(described), response);
  };
  auto reading = [state](const httplib::Request& request, httplib::Response& response,
                         const httplib::ContentReader& reader) {
    LoopbackRequest described = describe(request);
    bool complete = true;
    if ((described.isMultipart = request.is_multipart_form_data())) {
      complete = reader(
          [&](const httplib::MultipartFormData& header) {
            described.parts.push_back({header.name, header.filename, header.content_type, {}});
            return true;
          },
          [&](const char* data, std::size_t length) {
            if (described.parts.empty()) return false;
            described.parts.back().content.append(data, length);
            return true;
          });
    } else {
      complete = reader([&](const char* data, std::size_t length) {
        described.body.append(data, length);
        return true;
      });
    }
    state->respond(std::move(described), response, complete);
  };

  auto& server = state->server;
  server.set_keep_alive_timeout(1);
  // The status line and header fields go out before the body; with Nagle's
  // algorithm the body would wait for the client's delayed ACK (40 ms).
  server.set_tcp_nodelay(true);
  server.Get(".*", plain);
  server.Post(".*", reading);
  server.Patch(".*", reading);

  state->port = server.bind_to_any_port("127.0.0.1");
  if (state->port <= 0) throw std::runtime_error("the loopback server could not bind 127.0.0.1");
  state->listener = std::jthread([state] {
    state->server.listen_after_bind();
    {
      std::lock_guard lock(state->mutex);
      state->listenerFinished = true;
    }
    state->changed.notify_all();
  });
  // stop() only takes effect once the accept loop runs, so wait for it (bounded).
  auto deadline = Clock::now() + std::chrono::seconds(5);
  while (!server.is_running()) {
    if (Clock::now() > deadline) {
      stop();
      throw std::runtime_error("the loopback server did not start");
    }
    std::this_thread::yield();
  }
}

LoopbackHTTPServer::~LoopbackHTTPServer() { stop(); }

std::string LoopbackHTTPServer::baseURL() const { return "http://127.0.0.1:" + std::to_string(state_->port); }

void LoopbackHTTPServer::route(std::string method, std::string path, Handler handler) {
  std::lock_guard lock(state_->mutex);
  state_->routes[{std::move(method), std::move(path)}] = std::move(handler);
}

std::vector<LoopbackRequest> LoopbackHTTPServer::requests() const {
  std::lock_guard lock(state_->mutex);
  return state_->requests;
}

bool LoopbackHTTPServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, timeout, [&] { return state_->requests.size() >= count; });
}

void LoopbackHTTPServer::stop() {
  {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
  }
  state_->changed.notify_all();
  if (!state_->listener.joinable()) return;
  // The accept loop may not have noticed an early stop: repeat it until the loop ends.
  std::unique_lock lock(state_->mutex);
  while (!state_->listenerFinished) {
    lock.unlock();
    state_->server.stop();
    lock.lock();
    state_->changed.wait_for(lock, std::chrono::milliseconds(50), [this] { return state_->listenerFinished; });
  }
  lock.unlock();
  state_->listener.join();
}

}  // namespace orvid::testing
