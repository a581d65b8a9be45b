// The hot paths of a real-time dictation: merging a hypothesis into the running
// text, folding a stream of partial results into the live text, and appending one
// captured frame to an OpenAI real-time session over a real WebSocket.
//
// BM_Merge: RealtimeTranscriptAccumulator::merge of a 20-word hypothesis into a
// running text of 2,000 Unicode scalars. arg 0: English, the hypothesis a new
// sentence (the call displayText() makes for every partial); arg 1: English, the
// hypothesis restating the last words before going on; arg 2: Chinese, a new
// sentence. Calls are timed in rounds of ten; "median_us" is the median round / 10
// and "vs_target" is median_us / 20 µs (at most 1 meets the target). The baseline,
// "vs_concatenation", is median_us over the median of the same rounds of the least
// any merge must do, building current + " " + incoming.
//
// BM_LiveIngest: LiveTranscriptionTextAccumulator::ingest of 500 partials of a
// dictation into a fresh accumulator per iteration: interim hypotheses that grow
// word by word, hear a word wrong and take it back, and a punctuated final per
// sentence. Items are partials; each ingest is timed on its own: "us_per_partial"
// is the median over the whole stream, "us_per_partial_at_end" over its last 50,
// where the committed text is longest.
//
// BM_OpenAIAppend: one iteration is one second of capture (50 frames of 20 ms,
// 16 kHz mono, 640 bytes), each appended as the OpenAI session appends it:
// resampled to 24 kHz, base64 in the input_audio_buffer.append event, sent as a
// text frame through a BeastOrvidWebSocketConnector connection to a loopback
// server that counts what it reads. Each second is timed until the server has
// read all 50 frames. "frame_us" is the median second / 50, "realtime_share_pct"
// its share of the 20 ms a frame lasts, "vs_target" frame_us / 50 µs. The
// baseline, measured right after with the same statistic against the same kind
// of server, is a bare synchronous Beast client writing the same events, prepared
// beforehand: "bare_frame_us" and "vs_bare_beast" = frame_us / bare_frame_us.
// "prepare_us" is the median time of resampling, base64 and JSON alone.
// "flush_ms" and "bare_flush_ms": the median round trip of a small message sent
// right after a second of frames, as the closing commit is.
// BM_BareBeastAppend: the bare client on its own, one second per iteration.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <numbers>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include "orvid/audio/pcm16_resampler.h"
#include "orvid/testing/loopback_websocket_server.h"
#include "orvid/transcription/live_transcription_text_accumulator.h"
#include "orvid/transcription/realtime/beast_orvid_websocket_connector.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_messages.h"
#include "orvid/transcription/realtime_transcript_accumulator.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::size_t scalarCount(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

// Sentences repeated to exactly `scalars` Unicode scalars, cut after a whole scalar.
std::string runningText(const std::vector<std::string>& sentences, std::size_t scalars, std::string_view separator) {
  std::string text;
  for (std::size_t i = 0; scalarCount(text) < scalars; ++i) text += sentences[i % sentences.size()] + std::string(separator);
  std::size_t kept = 0, end = 0;
  while (kept < scalars) {
    ++end;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
    ++kept;
  }
  text.resize(end);
  return text;
}

const std::vector<std::string> kEnglishSentences = {
    "Hi Sarah, thanks for sending the draft over this morning.",
    "I went through the second section on the train and I think the numbers for the third quarter still need a "
    "proper source.",
    "Could you ask Daniel whether the figures from the Berlin office are final or only an estimate?",
    "Apart from that the structure works well and the introduction reads much better than last week.",
    "Let's keep the appendix short, maybe two pages at most, and move the long tables into a separate file.",
    "I'm out on Thursday afternoon, so if you want to talk it through we could meet on Friday at ten.",
    "Also, please remind me to book the meeting room for the review with the client.",
};

const std::vector<std::string> kChineseSentences = {
    "早上好，我刚刚看完了你昨天发过来的季度报告。",
    "第二部分的数据还需要再核对一下，特别是上海办公室的销售数字。",
    "请你问一下王经理，这些数字是最终结果还是只是估计。",
    "除此之外，整体结构很好，引言部分比上周清楚多了。",
    "附录尽量控制在两页以内，长的表格可以放到单独的文件里。",
    "我周四下午不在，如果需要讨论的话，我们可以周五上午十点见面。",
};

// Merges in rounds of ten calls.
constexpr int kRound = 10;
constexpr double kMergeTargetMicroseconds = 20;

void BM_Merge(benchmark::State& state) {
  const bool chinese = state.range(0) == 2;
  const std::string current = chinese ? runningText(kChineseSentences, 2000, "") : runningText(kEnglishSentences, 2000, " ");
  std::string incoming;
  switch (state.range(0)) {
    case 0:
      incoming = "and one more thing before I forget we still have to send the signed contract back to legal by Monday";
      break;
    case 1: {
      // The last five words again, then fifteen new ones.
      std::size_t start = current.size();
      for (int spaces = 0; spaces < 5 && start > 0;) spaces += current[--start] == ' ';
      incoming = current.substr(start + 1) + " and one more thing before I forget we still have to send the signed contract";
      break;
    }
    default: incoming = "还有一件事，我们周一之前必须把签好的合同寄回给法务部门，别忘了。"; break;
  }
  if (scalarCount(current) != 2000) {
    state.SkipWithError("the running text is not 2,000 scalars");
    return;
  }
  // A new sentence is appended whole; a restatement is appended after the words it repeats.
  const std::size_t mergedSize = orvid::RealtimeTranscriptAccumulator::merge(current, incoming).size();
  if ((state.range(0) == 1) != (mergedSize < current.size() + incoming.size())) {
    state.SkipWithError("the hypothesis did not merge as a dictation would");
    return;
  }
  auto rounds = [&](auto work, std::size_t count, std::vector<double>& seconds) {
    for (std::size_t i = 0; i < count; ++i) {
      const auto start = Clock::now();
      for (int call = 0; call < kRound; ++call) {
        std::string merged = work();
        benchmark::DoNotOptimize(merged.data());
      }
      seconds.push_back(secondsSince(start) / kRound);
    }
  };
  std::vector<double> mergeSeconds;
  for (auto _ : state) {
    rounds([&] { return orvid::RealtimeTranscriptAccumulator::merge(current, incoming); }, 1, mergeSeconds);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kRound);
  std::vector<double> concatenationSeconds;
  rounds([&] { return current + " " + incoming; }, std::min<std::size_t>(mergeSeconds.size(), 100'000), concatenationSeconds);
  const double mergeMicroseconds = 1e6 * median(mergeSeconds);
  state.counters["median_us"] = mergeMicroseconds;
  state.counters["vs_target"] = mergeMicroseconds / kMergeTargetMicroseconds;
  state.counters["vs_concatenation"] = mergeMicroseconds / (1e6 * median(concatenationSeconds));
}

constexpr std::size_t kStreamPartials = 500;

// A dictation as a streaming service reports it: per sentence, lower-case interim
// hypotheses of one more word each, every fourth one hearing its last word wrong
// (corrected by the next), then the sentence as final with capitals and punctuation.
std::vector<orvid::TranscriptionPartialResult> dictationStream() {
  std::vector<orvid::TranscriptionPartialResult> stream;
  auto spoken = [](std::string word) {
    std::string plain;
    for (char c : word) {
      if (c == ',' || c == '.' || c == '?' || c == '!') continue;
      plain.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c));
    }
    return plain;
  };
  for (std::size_t sentence = 0; stream.size() < kStreamPartials; ++sentence) {
    const std::string& text = kEnglishSentences[sentence % kEnglishSentences.size()];
    std::string heard;
    std::size_t begin = 0;
    for (int word = 1; begin < text.size() && stream.size() < kStreamPartials; ++word) {
      std::size_t end = text.find(' ', begin);
      if (end == std::string::npos) end = text.size();
      const std::string next = spoken(text.substr(begin, end - begin));
      if (word % 4 == 0) stream.push_back({heard + (heard.empty() ? "" : " ") + next + "s", false, std::nullopt});
      heard += (heard.empty() ? "" : " ") + next;
      if (stream.size() < kStreamPartials) stream.push_back({heard, false, std::nullopt});
      begin = end + 1;
    }
    if (stream.size() < kStreamPartials) stream.push_back({text, true, std::nullopt});
  }
  return stream;
}

void BM_LiveIngest(benchmark::State& state) {
  const std::vector<orvid::TranscriptionPartialResult> stream = dictationStream();
  std::vector<double> all;
  std::vector<double> atEnd;
  for (auto _ : state) {
    orvid::LiveTranscriptionTextAccumulator accumulator;
    for (std::size_t i = 0; i < stream.size(); ++i) {
      const auto start = Clock::now();
      std::string display = accumulator.ingest(stream[i]);
      const double seconds = secondsSince(start);
      benchmark::DoNotOptimize(display.data());
      all.push_back(seconds);
      if (i + 50 >= stream.size()) atEnd.push_back(seconds);
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStreamPartials));
  state.counters["us_per_partial"] = 1e6 * median(all);
  state.counters["us_per_partial_at_end"] = 1e6 * median(atEnd);
}

// One second of capture: 50 frames of 20 ms at 16 kHz, a voiced sound whose pitch
// and loudness drift.
constexpr int kFramesPerSecond = 50;
constexpr int kFrameSamples = 320;
constexpr double kFrameMicroseconds = 20'000;
constexpr double kAppendTargetMicroseconds = 50;

std::vector<orvid::PCMFrame> captureSecond() {
  std::vector<orvid::PCMFrame> frames;
  for (int f = 0; f < kFramesPerSecond; ++f) {
    orvid::PCMFrame frame{{}, 16000, 1, kFrameSamples};
    for (int i = f * kFrameSamples; i < (f + 1) * kFrameSamples; ++i) {
      const double t = i / 16000.0;
      const double pitch = 2 * std::numbers::pi * (140 + 30 * std::sin(2 * std::numbers::pi * 0.7 * t)) * t;
      const double voice = std::sin(pitch) + 0.5 * std::sin(2 * pitch) + 0.25 * std::sin(3 * pitch);
      const auto sample = static_cast<std::int16_t>(6000 * voice * (0.55 + 0.45 * std::sin(2 * std::numbers::pi * 4 * t)));
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>(sample & 0xFF));
      frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>((sample >> 8) & 0xFF));
    }
    frames.push_back(std::move(frame));
  }
  return frames;
}

// What the OpenAI session sends for one captured frame.
std::string appendEvent(const orvid::PCMFrame& frame) {
  const orvid::PCMFrame converted = orvid::PCM16Resampler::resample(frame, 24'000);
  return orvid::OpenAIRealtimeTranscriptionMessageBuilder::appendAudio(converted.pcm16LittleEndian);
}

// Messages a loopback server has read, for a client to wait on.
class MessageCount {
 public:
  void add() {
    std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  // Returns once `count` messages were read; throws after ten seconds without.
  void waitFor(long long count) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, std::chrono::seconds(10), [&] { return count_ >= count; })) {
      throw std::runtime_error("the server did not read every frame");
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  long long count_ = 0;
};

// Reads and counts messages, answering "flush" with "flushed" (not counted).
orvid::testing::LoopbackWebSocketServer::Handler countingHandler(MessageCount& count) {
  return [&count](orvid::testing::LoopbackWebSocketServer::Peer& peer) {
    while (auto message = peer.receive()) {
      if (message->text && message->payload == "flush") {
        peer.sendText("flushed");
      } else {
        count.add();
      }
    }
  };
}

// A plain synchronous Beast client, the least a WebSocket sender can do.
class BareBeastClient {
 public:
  explicit BareBeastClient(int port) {
    namespace net = boost::asio;
    net::ip::tcp::resolver resolver(io_);
    net::connect(socket_.next_layer(), resolver.resolve("127.0.0.1", std::to_string(port)));
    socket_.handshake("127.0.0.1:" + std::to_string(port), "/v1/realtime?intent=transcription");
    socket_.text(true);
  }
  ~BareBeastClient() {
    boost::system::error_code ignored;
    socket_.close(boost::beast::websocket::close_code::normal, ignored);
  }
  void send(std::string_view text) { socket_.write(boost::asio::buffer(text.data(), text.size())); }
  std::size_t receive() {
    boost::beast::flat_buffer answer;
    return socket_.read(answer);
  }

 private:
  boost::asio::io_context io_;
  boost::beast::websocket::stream<boost::asio::ip::tcp::socket> socket_{io_};
};

// Times `seconds` seconds of capture: send(frame) for every frame of one second,
// then a wait until the server has read them all. Returns seconds per frame.
std::vector<double> timedSeconds(std::size_t seconds, MessageCount& count, long long& sent, const auto& sendSecond) {
  std::vector<double> perFrame;
  for (std::size_t i = 0; i < seconds; ++i) {
    const auto start = Clock::now();
    sendSecond();
    count.waitFor(sent += kFramesPerSecond);
    perFrame.push_back(secondsSince(start) / kFramesPerSecond);
  }
  return perFrame;
}

// The median time from sending "flush" right after a second of frames to reading
// "flushed": how long a small message such as the closing commit waits behind them.
double flushRoundTripSeconds(const auto& sendSecond, const auto& sendFlush, const auto& receive) {
  std::vector<double> seconds;
  for (int round = 0; round < 7; ++round) {
    sendSecond();
    const auto start = Clock::now();
    sendFlush();
    receive();
    seconds.push_back(secondsSince(start));
  }
  return median(seconds);
}

void BM_OpenAIAppend(benchmark::State& state) {
  const std::vector<orvid::PCMFrame> frames = captureSecond();
  MessageCount count;
  orvid::testing::LoopbackWebSocketServer server(countingHandler(count));
  orvid::OrvidHTTPRequest request;
  request.url = *orvid::URL::parse(server.url("/v1/realtime?intent=transcription"));
  request.headers = {{"Authorization", "Bearer sk-loopback"}};
  auto connection = orvid::BeastOrvidWebSocketConnector().connect(request);
  const auto sendSecond = [&] {
    for (const orvid::PCMFrame& frame : frames) connection->send(appendEvent(frame));
  };
  long long sent = 0;
  std::vector<double> perFrame;
  for (auto _ : state) {
    const std::vector<double> second = timedSeconds(1, count, sent, sendSecond);
    perFrame.push_back(second.front());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kFramesPerSecond);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kFramesPerSecond * 2 * kFrameSamples);
  const double flush = flushRoundTripSeconds(
      sendSecond, [&] { connection->send(std::string_view("flush")); }, [&] { connection->receive(); });

  std::vector<std::string> events;
  std::vector<double> prepareSeconds;
  for (int round = 0; round < 20; ++round) {
    for (const orvid::PCMFrame& frame : frames) {
      const auto start = Clock::now();
      std::string event = appendEvent(frame);
      prepareSeconds.push_back(secondsSince(start));
      if (round == 0) events.push_back(std::move(event));
    }
  }
  MessageCount bareCount;
  orvid::testing::LoopbackWebSocketServer bareServer(countingHandler(bareCount));
  BareBeastClient bare(bareServer.port());
  const auto bareSecond = [&] {
    for (const std::string& event : events) bare.send(event);
  };
  long long bareSent = 0;
  const double frameMicroseconds = 1e6 * median(perFrame);
  const double bareMicroseconds =
      1e6 * median(timedSeconds(std::min<std::size_t>(perFrame.size(), 2000), bareCount, bareSent, bareSecond));
  const double bareFlush = flushRoundTripSeconds(bareSecond, [&] { bare.send("flush"); }, [&] { bare.receive(); });
  state.counters["frame_us"] = frameMicroseconds;
  state.counters["realtime_share_pct"] = 100 * frameMicroseconds / kFrameMicroseconds;
  state.counters["vs_target"] = frameMicroseconds / kAppendTargetMicroseconds;
  state.counters["prepare_us"] = 1e6 * median(prepareSeconds);
  state.counters["bare_frame_us"] = bareMicroseconds;
  state.counters["vs_bare_beast"] = frameMicroseconds / bareMicroseconds;
  state.counters["flush_ms"] = 1e3 * flush;
  state.counters["bare_flush_ms"] = 1e3 * bareFlush;
}

void BM_BareBeastAppend(benchmark::State& state) {
  std::vector<std::string> events;
  for (const orvid::PCMFrame& frame : captureSecond()) events.push_back(appendEvent(frame));
  MessageCount count;
  orvid::testing::LoopbackWebSocketServer server(countingHandler(count));
  BareBeastClient client(server.port());
  long long sent = 0;
  for (auto _ : state) {
    timedSeconds(1, count, sent, [&] {
      for (const std::string& event : events) client.send(event);
    });
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kFramesPerSecond);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kFramesPerSecond * 2 * kFrameSamples);
}

BENCHMARK(BM_Merge)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LiveIngest)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenAIAppend)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareBeastAppend)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
