#include "orvid/testing/scripted_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace orvid::testing {

namespace fs = std::filesystem;

ScriptedHTTPServer::ScriptedHTTPServer(Handler handler) : handler_(std::move(handler)) {
  listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::jthread([this] { acceptLoop(); });
}

ScriptedHTTPServer::~ScriptedHTTPServer() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  released_.notify_all();
  ::shutdown(listener_, SHUT_RDWR);
  ::close(listener_);
  acceptor_ = {};
  std::vector<std::jthread> connections;
  {
    std::lock_guard lock(mutex_);
    connections.swap(connections_);
  }
  // Joined here, without the lock, which the connections may still take.
}

std::string ScriptedHTTPServer::baseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

std::vector<ScriptedRequest> ScriptedHTTPServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

void ScriptedHTTPServer::acceptLoop() {
  while (true) {
    int client = ::accept(listener_, nullptr, nullptr);
    if (client < 0) return;
    std::lock_guard lock(mutex_);
    if (stopping_) {
      ::close(client);
      return;
    }
    connections_.emplace_back([this, client] { serve(client); });
  }
}

void ScriptedHTTPServer::serve(int client) {
  std::string received;
  char buffer[4096];
  while (received.find("\r\n\r\n") == std::string::npos) {
    auto count = ::recv(client, buffer, sizeof(buffer), 0);
    if (count <= 0) {
      ::close(client);
      return;
    }
    received.append(buffer, std::size_t(count));
  }
  ScriptedRequest request;
  auto lineEnd = received.find("\r\n");
  auto firstSpace = received.find(' ');
  request.target = received.substr(firstSpace + 1, received.find(' ', firstSpace + 1) - firstSpace - 1);
  for (auto start = lineEnd + 2; start < received.find("\r\n\r\n");) {
    auto end = received.find("\r\n", start);
    auto line = received.substr(start, end - start);
    auto colon = line.find(':');
    std::string name = line.substr(0, colon);
    for (auto& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
    request.headers[name] = line.substr(line.find_first_not_of(' ', colon + 1));
    start = end + 2;
  }
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
  }
  ScriptedReply reply = handler_(request);
  std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " X\r\nContent-Length: " +
                     std::to_string(reply.body.size()) + "\r\nConnection: close\r\n";
  for (const auto& header : reply.headers) head += header + "\r\n";
  head += "\r\n" + reply.body.substr(0, reply.cutAfter.value_or(reply.body.size()));
  for (std::size_t sent = 0; sent < head.size();) {
    auto count = ::send(client, head.data() + sent, head.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) break;
    sent += std::size_t(count);
  }
  if (reply.stall) {
    std::unique_lock lock(mutex_);
    released_.wait(lock, [this] { return stopping_; });
  }
  ::close(client);
}

ScriptedReply scriptedAnswer(int status, std::string body, std::vector<std::string> headers) {
  ScriptedReply reply;
  reply.status = status;
  reply.body = std::move(body);
  reply.headers = std::move(headers);
  return reply;
}

ScriptedReply rangeReply(const std::string& content, const ScriptedRequest& request) {
  auto range = request.headers.find("range");
  if (range == request.headers.end()) return scriptedAnswer(200, content);
  auto offset = std::stoull(range->second.substr(6));
  if (offset >= content.size()) return scriptedAnswer(416, "{\"error\":\"secret-server-detail\"}");
  return scriptedAnswer(206, content.substr(offset),
          {"Content-Range: bytes " + std::to_string(offset) + "-" + std::to_string(content.size() - 1) + "/" +
           std::to_string(content.size())});
}

std::string randomBytes(std::size_t count) {
  std::mt19937 generator(7);
  std::string bytes(count, '\0');
  for (auto& byte : bytes) byte = char(generator());
  return bytes;
}

std::string readFile(const fs::path& path) {
  std::ifstream input(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(input), {}};
}

void writeFile(const fs::path& path, const std::string& contents) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

}  // namespace orvid::testing
