// The whole cloud batch path of the library against the loopback OpenAI service,
// beside the curl command-line tool posting the same upload to the same service.
//
// BM_LibraryBatchTranscription: one transcription per iteration through the
// provider: WAV encoding of the capture frames, the multipart body, the POST over
// libcurl on a connection kept alive between transcriptions (the loopback server
// closes a connection after its fifth request, so every fifth transcription opens
// a new one), and parsing the answer.
// BM_CurlToolPost: one post per iteration by a new curl process sending the same
// multipart body, written to a file beforehand: starting the process (loading
// curl and its libraries), connecting, sending and reading the answer.
// Bytes are the WAV bytes of one upload.
//
// The library benchmark also reports the same statistic for both sides, measured
// in the same run: "library_ms", the median time of its transcriptions (back to
// back, each timed on its own); "curl_tool_ms", the median of a few curl tool
// posts made right after them (back to back too); and "vs_curl_tool",
// curl_tool_ms / library_ms: above 1 the library is faster than starting curl
// for each post. Both sides include the loopback service's own work on the
// request.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/loopback_cloud_services.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

extern char** environ;

namespace {

constexpr const char* kCurlTool = "/usr/bin/curl";
constexpr const char* kAPIKey = "sk-loopback-openai-key";
// Capture frames of 20 ms at 16 kHz, as the host hands them over.
constexpr int kCaptureFrameSamples = 320;

// `seconds` of a 16 kHz tone with a slow tremolo, in 20 ms capture frames.
std::vector<orvid::PCMFrame> recording(int seconds) {
  std::vector<orvid::PCMFrame> frames;
  const int total = 16000 * seconds;
  for (int start = 0; start < total; start += kCaptureFrameSamples) {
    orvid::PCMFrame frame{{}, 16000, 1, kCaptureFrameSamples};
    frame.pcm16LittleEndian.reserve(2 * kCaptureFrameSamples);
    for (int i = start; i < start + kCaptureFrameSamples; ++i) {
      const double t = i / 16000.0;
      auto sample = static_cast<std::int16_t>(8000 * std::sin(2 * std::numbers::pi * 220 * t) *
                                             (0.6 + 0.4 * std::sin(2 * std::numbers::pi * 3 * t)));
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>(sample & 0xFF));
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>((sample >> 8) & 0xFF));
    }
    frames.push_back(std::move(frame));
  }
  return frames;
}

// A loopback OpenAI service, a provider talking to it over libcurl, and the same
// upload written to a file for the curl tool.
struct BatchFixture {
  orvid::testing::LoopbackHTTPServer server;
  orvid::testing::LoopbackOpenAIService service{server};
  std::shared_ptr<orvid::InMemoryOrvidCredentialStore> store = std::make_shared<orvid::InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.bench.api-key", kAPIKey}});
  orvid::CloudBatchTranscriptionProvider provider{"openai",
                                                  orvid::URL::parse(service.baseURL()).value(),
                                                  orvid::CloudTranscriptionProviderAPI::openAICompatible,
                                                  "bench",
                                                  "whisper-1",
                                                  store,
                                                  std::make_shared<orvid::CurlOrvidHTTPClient>()};
  orvid::TranscriptionRequest request;
  orvid::TemporaryDirectory folder;
  std::filesystem::path bodyFile = folder.path() / "upload.multipart";
  std::vector<std::string> curlArguments;
  std::size_t wavBytes = 0;

  explicit BatchFixture(int seconds) {
    request.audioFrames = recording(seconds);
    request.languageRoute.providerLanguage = "en";
    wavBytes = 44 + 2 * static_cast<std::size_t>(16000) * static_cast<std::size_t>(seconds);

    orvid::OrvidHTTPRequest upload = provider.openAIRequestBuilder().request(
        provider.baseURL(), "bench", "whisper-1", request.audioFrames, std::string("en"), std::nullopt, std::nullopt);
    std::ofstream out(bodyFile, std::ios::binary);
    out.write(reinterpret_cast<const char*>(upload.body->data()), static_cast<std::streamsize>(upload.body->size()));
    if (!out.flush()) throw std::runtime_error("cannot write the upload file");
    curlArguments = {kCurlTool,
                     "--silent",
                     "--show-error",
                     "--fail",
                     "--output",
                     "/dev/null",
                     "--header",
                     "Expect:",
                     "--header",
                     "Content-Type: " + upload.headerValue("Content-Type").value(),
                     "--header",
                     "Authorization: " + upload.headerValue("Authorization").value(),
                     "--data-binary",
                     "@" + bodyFile.string(),
                     upload.url.absoluteString()};
  }

  // One post by the curl tool; throws when it does not exit with status 0.
  void postWithCurlTool() const {
    std::vector<char*> argv;
    for (const auto& argument : curlArguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int spawned = posix_spawn(&pid, kCurlTool, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("cannot start " + std::string(kCurlTool));
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
      if (errno != EINTR) throw std::runtime_error("waitpid failed");
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("curl did not post successfully");
  }
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

// Curl tool posts made for the counters of the library benchmark.
constexpr int kCurlToolPosts = 9;

void BM_LibraryBatchTranscription(benchmark::State& state) {
  BatchFixture fixture(static_cast<int>(state.range(0)));
  fixture.provider.transcribe(fixture.request);  // opens the kept-alive connection
  std::vector<double> librarySeconds;
  for (auto _ : state) {
    orvid::TranscriptionResult result;
    librarySeconds.push_back(secondsTaken([&] { result = fixture.provider.transcribe(fixture.request); }));
    benchmark::DoNotOptimize(result.text.data());
    if (result.text.empty()) {
      state.SkipWithError("the service gave no transcript");
      return;
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(fixture.wavBytes));
  if (!std::filesystem::exists(kCurlTool)) {
    state.SkipWithError("no curl tool to compare with");
    return;
  }
  std::vector<double> curlToolSeconds;
  for (int post = 0; post < kCurlToolPosts; ++post) {
    curlToolSeconds.push_back(secondsTaken([&] { fixture.postWithCurlTool(); }));
  }
  const double library = median(librarySeconds);
  const double curlTool = median(curlToolSeconds);
  state.counters["library_ms"] = 1000 * library;
  state.counters["curl_tool_ms"] = 1000 * curlTool;
  state.counters["vs_curl_tool"] = curlTool / library;
}

// The same upload by the curl command-line tool, one new process per post.
void BM_CurlToolPost(benchmark::State& state) {
  if (!std::filesystem::exists(kCurlTool)) {
    state.SkipWithError("no curl tool");
    return;
  }
  BatchFixture fixture(static_cast<int>(state.range(0)));
  for (auto _ : state) fixture.postWithCurlTool();
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(fixture.wavBytes));
}

BENCHMARK(BM_LibraryBatchTranscription)->Arg(5)->Arg(60)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CurlToolPost)->Arg(5)->Arg(60)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
