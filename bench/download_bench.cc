// A model download from a loopback server through FileDownloadSession, beside the
// curl command-line tool downloading the same file to the same folder.
//
// The server sends a 200 MB file from disk with sendfile(2), one request per
// connection, so that it costs both sides the same and little. One benchmark
// iteration is a set of rounds; each round downloads the file three times, in
// turn: through FileDownloadSession with no progress handler, through it with a
// handler that turns every report into the model state the model manager
// publishes, and by a new curl process ("curl -s -o FILE URL", including the
// process start), each side going first in turn. Each download is timed on its own and its file removed
// afterwards, outside the timing. Counters, all from the same run with the same
// statistic (the median over the rounds):
//   "library_MBps", "with_progress_MBps", "curl_tool_MBps": throughput;
//   "vs_curl_tool": curl tool seconds / library seconds with progress (the library
//   is at most 5 % slower when this is at least 0.95);
//   "progress_cost_pct": how much longer the download with progress takes than the
//   one without, in percent of the latter (the target is at most 1).

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/transcription/local/models/file_download_session.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr const char* kCurlTool = "/usr/bin/curl";
constexpr std::int64_t kFileBytes = 200'000'000;
constexpr int kRounds = 9;

// Serves one file over HTTP/1.1 on 127.0.0.1, one request per connection.
class SendfileServer {
 public:
  explicit SendfileServer(fs::path file) : file_(std::move(file)), size_(std::int64_t(fs::file_size(file_))) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener_, 8) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error("cannot listen on 127.0.0.1");
    }
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/model.bin";
    thread_ = std::jthread([this] { serve(); });
  }
  ~SendfileServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    ::close(listener_);
  }
  const std::string& url() const { return url_; }

 private:
  void serve() {
    while (!stopping_) {
      int client = ::accept(listener_, nullptr, nullptr);
      if (client < 0) return;
      char buffer[4096];
      std::string head;
      while (head.find("\r\n\r\n") == std::string::npos) {
        auto count = ::recv(client, buffer, sizeof(buffer), 0);
        if (count <= 0) break;
        head.append(buffer, std::size_t(count));
      }
      std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size_) +
                           "\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n\r\n";
      ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
      int input = ::open(file_.c_str(), O_RDONLY);
      off_t offset = 0;
      while (offset < size_) {
        auto sent = ::sendfile(client, input, &offset, std::size_t(size_ - offset));
        if (sent <= 0) break;
      }
      ::close(input);
      ::close(client);
    }
  }

  fs::path file_;
  std::int64_t size_;
  int listener_ = -1;
  std::string url_;
  std::atomic<bool> stopping_ = false;
  std::jthread thread_;
};

double secondsTaken(const auto& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void runCurlTool(const std::string& url, const fs::path& output) {
  std::vector<std::string> arguments = {kCurlTool, "-s", "-f", "-o", output.string(), url};
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, kCurlTool, nullptr, nullptr, argv.data(), environ) != 0) {
    throw std::runtime_error("cannot start curl");
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error("waitpid failed");
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("curl did not download the file");
}

void download(const std::string& url, const fs::path& output, bool withProgress) {
  orvid::LocalTranscriptionModelState published;
  orvid::FileDownloadSession::ProgressHandler handler;
  if (withProgress) {
    handler = [&](std::int64_t received, std::int64_t expected, double speed) {
      published.modelID = "bench";
      published.isDownloading = true;
      published.downloadedBytes = received;
      published.progress = expected >= 1 ? std::optional(std::min(1.0, double(received) / double(expected))) : std::nullopt;
      published.bytesPerSecond = speed;
      published.path = output.string();
      benchmark::DoNotOptimize(published);
    };
  }
  orvid::FileDownloadSession session(output, 0, handler);
  orvid::OrvidHTTPRequest request;
  request.url = *orvid::URL::parse(url);
  session.start(request);
}

void BM_ModelDownload(benchmark::State& state) {
  if (!fs::exists(kCurlTool)) {
    state.SkipWithError("no curl tool to compare with");
    return;
  }
  orvid::TemporaryDirectory folder("orvid-download-bench");
  {
    std::vector<char> block(1 << 20);
    std::mt19937 generator(1);
    for (auto& byte : block) byte = char(generator());
    std::ofstream file(folder / "served.bin", std::ios::binary);
    for (std::int64_t written = 0; written < kFileBytes; written += std::int64_t(block.size())) {
      file.write(block.data(), std::streamsize(std::min<std::int64_t>(std::int64_t(block.size()), kFileBytes - written)));
    }
  }
  SendfileServer server(folder / "served.bin");
  auto output = folder / "model.bin";
  std::vector<double> library, withProgress, curlTool;
  for (auto _ : state) {
    for (int round = 0; round < kRounds; ++round) {
      // Each side goes first in turn, so that the write-back of the previous file weighs
      // on all three alike.
      for (int turn = 0; turn < 3; ++turn) {
        switch ((round + turn) % 3) {
          case 0:
            library.push_back(secondsTaken([&] { download(server.url(), output, false); }));
            break;
          case 1:
            withProgress.push_back(secondsTaken([&] { download(server.url(), output, true); }));
            break;
          default:
            curlTool.push_back(secondsTaken([&] { runCurlTool(server.url(), output); }));
        }
        if (fs::file_size(output) != std::uintmax_t(kFileBytes)) state.SkipWithError("incomplete download");
        fs::remove(output);
      }
    }
  }
  const double megabytes = double(kFileBytes) / 1e6;
  state.counters["library_MBps"] = megabytes / median(library);
  state.counters["with_progress_MBps"] = megabytes / median(withProgress);
  state.counters["curl_tool_MBps"] = megabytes / median(curlTool);
  state.counters["vs_curl_tool"] = median(curlTool) / median(withProgress);
  state.counters["progress_cost_pct"] = 100 * (median(withProgress) - median(library)) / median(library);
}

BENCHMARK(BM_ModelDownload)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
