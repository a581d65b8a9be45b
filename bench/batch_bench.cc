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
// BM_LibraryServiceFamily/F: the same comparison for one service of each family
// against its loopback replica (F = 0 multipart: ElevenLabs; 1 raw body: Deepgram;
// 2 job polling: AssemblyAI with a job finished by its first poll and no pause
// before it; 3 event stream: StepFun). The curl tool makes the same requests with
// the same bodies in one process (chained with --next), captured from a
// transcription by the library beforehand; the counters are as above.
// BM_ServerSentEventParsing: the event-stream reader over 4 MiB of events arriving
// in 16 KiB pieces; bytes per second is its throughput.
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
#include "orvid/transcription/cloud_batch/loopback_batch_speech_services.h"
#include "orvid/transcription/cloud_batch/server_sent_event_fragment_reader.h"

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
  void postWithCurlTool() const { runCurlTool(curlArguments); }

  static void runCurlTool(const std::vector<std::string>& curlArguments) {
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

// Records the requests it forwards while `recording` is set.
struct RecordingHTTPClient final : orvid::OrvidHTTPClient {
  std::shared_ptr<orvid::CurlOrvidHTTPClient> inner = std::make_shared<orvid::CurlOrvidHTTPClient>();
  bool recording = false;
  std::vector<orvid::OrvidHTTPRequest> seen;

  orvid::OrvidHTTPResponse data(const orvid::OrvidHTTPRequest& request, std::stop_token stop) override {
    if (recording) seen.push_back(request);
    return inner->data(request, stop);
  }
  orvid::OrvidHTTPResponse stream(const orvid::OrvidHTTPRequest& request, const BodyReceiver& receiver,
                                  std::stop_token stop) override {
    if (recording) seen.push_back(request);
    return inner->stream(request, receiver, stop);
  }
};

// One service of a family on its replica, and the curl tool's chained requests.
struct FamilyFixture {
  struct Family {
    const char* id;
    orvid::CloudTranscriptionProviderAPI api;
    const char* model;
  };
  static constexpr Family kFamilies[] = {
      {"elevenlabs", orvid::CloudTranscriptionProviderAPI::elevenLabs, "scribe_v2"},
      {"deepgram", orvid::CloudTranscriptionProviderAPI::deepgram, "nova-3"},
      {"assemblyai", orvid::CloudTranscriptionProviderAPI::assemblyAI, "universal-2"},
      {"stepfun", orvid::CloudTranscriptionProviderAPI::stepFun, "stepaudio-2.5-asr"},
  };

  orvid::testing::LoopbackBatchSpeechServices replicas;
  std::shared_ptr<RecordingHTTPClient> http = std::make_shared<RecordingHTTPClient>();
  std::unique_ptr<orvid::CloudBatchTranscriptionProvider> provider;
  orvid::TranscriptionRequest request;
  orvid::TemporaryDirectory folder;
  std::vector<std::string> curlArguments{kCurlTool};
  std::size_t wavBytes = 0;

  FamilyFixture(const Family& family, int seconds) {
    replicas.setScenario(orvid::testing::ReplicaScenario::jobCompletesAtOnce);
    auto store = std::make_shared<orvid::InMemoryOrvidCredentialStore>(std::map<std::string, std::string>{
        {"provider.bench.api-key", orvid::testing::LoopbackBatchSpeechServices::kKey}});
    provider = std::make_unique<orvid::CloudBatchTranscriptionProvider>(
        family.id, orvid::URL::parse(replicas.baseURL(family.id)).value(), family.api, "bench", family.model, store,
        http, orvid::CloudTranscriptionResponseParser(), [](std::chrono::milliseconds, std::stop_token) {});
    request.audioFrames = recording(seconds);
    wavBytes = 44 + 2 * static_cast<std::size_t>(16000) * static_cast<std::size_t>(seconds);
    http->recording = true;
    if (provider->transcribe(request).text.empty()) throw std::runtime_error("the replica gave no transcript");
    http->recording = false;
    for (std::size_t i = 0; i < http->seen.size(); ++i) {
      const auto& sent = http->seen[i];
      if (i > 0) curlArguments.push_back("--next");
      for (const char* option : {"--silent", "--show-error", "--fail", "--output", "/dev/null", "--header", "Expect:"}) {
        curlArguments.push_back(option);
      }
      for (const auto& header : sent.headers) {
        curlArguments.push_back("--header");
        curlArguments.push_back(header.name + ": " + header.value);
      }
      if (sent.body) {
        auto file = folder.path() / ("body-" + std::to_string(i));
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(sent.body->data()), static_cast<std::streamsize>(sent.body->size()));
        if (!out.flush()) throw std::runtime_error("cannot write a request body");
        curlArguments.push_back("--data-binary");
        curlArguments.push_back("@" + file.string());
      }
      curlArguments.push_back(sent.url.absoluteString());
    }
  }
};

void BM_LibraryServiceFamily(benchmark::State& state) {
  FamilyFixture fixture(FamilyFixture::kFamilies[state.range(0)], 5);
  std::vector<double> librarySeconds;
  for (auto _ : state) {
    orvid::TranscriptionResult result;
    librarySeconds.push_back(secondsTaken([&] { result = fixture.provider->transcribe(fixture.request); }));
    benchmark::DoNotOptimize(result.text.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(fixture.wavBytes));
  state.SetLabel(FamilyFixture::kFamilies[state.range(0)].id);
  if (!std::filesystem::exists(kCurlTool)) {
    state.SkipWithError("no curl tool to compare with");
    return;
  }
  std::vector<double> curlToolSeconds;
  for (int post = 0; post < kCurlToolPosts; ++post) {
    curlToolSeconds.push_back(secondsTaken([&] { BatchFixture::runCurlTool(fixture.curlArguments); }));
  }
  const double library = median(librarySeconds);
  const double curlTool = median(curlToolSeconds);
  state.counters["library_ms"] = 1000 * library;
  state.counters["curl_tool_ms"] = 1000 * curlTool;
  state.counters["vs_curl_tool"] = curlTool / library;
}

void BM_ServerSentEventParsing(benchmark::State& state) {
  std::string stream;
  for (int i = 0; stream.size() < (4u << 20); ++i) {
    stream += "event: transcript.text.delta\nid: " + std::to_string(i) +
              "\ndata: {\"type\":\"transcript.text.delta\",\"text\":\"word " + std::to_string(i) + "\"}\n\n";
    if (i % 50 == 0) stream += ": keep-alive\n\n";
  }
  stream += "data: [DONE]\n\n";
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(stream.data());
  constexpr std::size_t kPiece = 16 << 10;
  for (auto _ : state) {
    orvid::ServerSentEventFragmentReader reader;
    for (std::size_t at = 0; at < stream.size(); at += kPiece) {
      reader.append(std::span<const std::uint8_t>(bytes + at, std::min(kPiece, stream.size() - at)));
    }
    auto result = reader.finish();
    benchmark::DoNotOptimize(result.text.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(stream.size()));
}

BENCHMARK(BM_LibraryServiceFamily)->DenseRange(0, 3)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ServerSentEventParsing)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibraryBatchTranscription)->Arg(5)->Arg(60)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CurlToolPost)->Arg(5)->Arg(60)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
