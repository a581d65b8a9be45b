// Throughput of the audio conversions on ten minutes of audio, each beside a memcpy of
// the same bytes, so that the ratio to a plain copy can be read from one run.

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"
#include "orvid/audio/audio_wav_decoder.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/audio/pcm16_resampler.h"
#include "orvid/core/pcm_frame.h"

namespace {

constexpr int kSeconds = 10 * 60;
// Capture frames of 20 ms at 16 kHz, as the host hands them over.
constexpr int kCaptureFrameSamples = 320;

orvid::Bytes randomPCM(std::size_t sampleCount) {
  std::mt19937 generator(1234);
  orvid::Bytes bytes(sampleCount * 2);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(generator());
  return bytes;
}

std::vector<orvid::PCMFrame> captureFrames(const orvid::Bytes& pcm, double sampleRate) {
  std::vector<orvid::PCMFrame> frames;
  const std::size_t frameBytes = 2 * kCaptureFrameSamples;
  for (std::size_t offset = 0; offset < pcm.size(); offset += frameBytes) {
    const std::size_t length = std::min(frameBytes, pcm.size() - offset);
    frames.push_back(orvid::PCMFrame{orvid::Bytes(pcm.begin() + static_cast<std::ptrdiff_t>(offset),
                                                  pcm.begin() + static_cast<std::ptrdiff_t>(offset + length)),
                                     sampleRate, 1, static_cast<int>(length / 2)});
  }
  return frames;
}

const orvid::PCMFrame& tenMinutesAt48k() {
  static const orvid::PCMFrame frame{randomPCM(48000 * kSeconds), 48000, 1, 48000 * kSeconds};
  return frame;
}

const orvid::Bytes& tenMinutesAt16k() {
  static const orvid::Bytes pcm = randomPCM(16000 * kSeconds);
  return pcm;
}

void BM_Memcpy(benchmark::State& state, std::size_t byteCount) {
  const orvid::Bytes source(byteCount, 0x5A);
  orvid::Bytes destination(byteCount);
  for (auto _ : state) {
    std::memcpy(destination.data(), source.data(), byteCount);
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(byteCount));
}

// Bytes of input consumed: ten minutes of 48 kHz mono.
void BM_Resample48kTo16k(benchmark::State& state) {
  const orvid::PCMFrame& input = tenMinutesAt48k();
  const orvid::bench::MemcpyComparison comparison(input.pcm16LittleEndian.size());
  for (auto _ : state) {
    orvid::PCMFrame output = orvid::PCM16Resampler::resample(input, 16000);
    benchmark::DoNotOptimize(output.pcm16LittleEndian.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(input.pcm16LittleEndian.size()));
  comparison.report(state);
}

// Bytes of samples written: ten minutes of 16 kHz mono in 20 ms capture frames.
void BM_WAVEncode16k(benchmark::State& state) {
  const std::vector<orvid::PCMFrame> frames = captureFrames(tenMinutesAt16k(), 16000);
  const orvid::bench::MemcpyComparison comparison(tenMinutesAt16k().size());
  for (auto _ : state) {
    orvid::Bytes wav = orvid::AudioWAVEncoder::encodePCM16(frames);
    benchmark::DoNotOptimize(wav.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(tenMinutesAt16k().size()));
  comparison.report(state);
}

// Bytes of samples read: ten minutes of 16 kHz mono cut into 20 ms frames.
void BM_WAVDecode16k(benchmark::State& state) {
  const orvid::Bytes wav = orvid::AudioWAVEncoder::encodePCM16(tenMinutesAt16k(), 16000, 1, 16);
  const orvid::bench::MemcpyComparison comparison(tenMinutesAt16k().size());
  for (auto _ : state) {
    std::vector<orvid::PCMFrame> frames = orvid::AudioWAVDecoder::decode(wav, kCaptureFrameSamples);
    benchmark::DoNotOptimize(frames.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(tenMinutesAt16k().size()));
  comparison.report(state);
}

BENCHMARK(BM_Resample48kTo16k)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memcpy, ten_minutes_48k_mono, std::size_t{2} * 48000 * kSeconds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WAVEncode16k)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WAVDecode16k)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memcpy, ten_minutes_16k_mono, std::size_t{2} * 16000 * kSeconds)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
