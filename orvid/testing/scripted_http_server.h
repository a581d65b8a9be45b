#pragma once

#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace orvid::testing {

struct ScriptedRequest {
  std::string target;                          // path and query as sent
  std::map<std::string, std::string> headers;  // names lower-cased
};

// What the server sends: Content-Length always announces the whole body; `cutAfter`
// stops sending after that many body bytes, then closes (or, with `stall`, holds the
// connection open until the server stops).
struct ScriptedReply {
  int status = 200;
  std::string body;
  std::vector<std::string> headers;
  std::optional<std::size_t> cutAfter;
  bool stall = false;
};

// An HTTP/1.1 server on 127.0.0.1 with byte-exact control over each answer, which a
// general-purpose server library does not give (it applies Range on its own). One
// request per connection; the handler runs on the connection's thread.
class ScriptedHTTPServer {
 public:
  using Handler = std::function<ScriptedReply(const ScriptedRequest&)>;
  explicit ScriptedHTTPServer(Handler handler);
  ~ScriptedHTTPServer();
  ScriptedHTTPServer(const ScriptedHTTPServer&) = delete;
  ScriptedHTTPServer& operator=(const ScriptedHTTPServer&) = delete;

  std::string baseURL() const;
  std::vector<ScriptedRequest> requests() const;

 private:
  void acceptLoop();
  void serve(int client);

  Handler handler_;
  int listener_ = -1;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable released_;
  bool stopping_ = false;
  std::vector<ScriptedRequest> requests_;
  std::vector<std::jthread> connections_;
  std::jthread acceptor_;
};

ScriptedReply scriptedAnswer(int status, std::string body, std::vector<std::string> headers = {});
// A whole-file answer honouring "Range: bytes=N-" as a file server does (416 past the end).
ScriptedReply rangeReply(const std::string& content, const ScriptedRequest& request);

// Deterministic pseudo-random bytes.
std::string randomBytes(std::size_t count);
std::string readFile(const std::filesystem::path& path);
// Creates the parent folders.
void writeFile(const std::filesystem::path& path, const std::string& contents);

}  // namespace orvid::testing
