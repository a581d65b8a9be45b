#include "orvid/audio/pcm16_resampler.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

Bytes pack(const std::vector<std::int16_t>& samples) {
  Bytes bytes;
  for (std::int16_t sample : samples) {
    const auto bits = static_cast<std::uint16_t>(sample);
    bytes.push_back(static_cast<std::uint8_t>(bits & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
  }
  return bytes;
}

PCMFrame monoFrame(const std::vector<std::int16_t>& samples, double sampleRate) {
  return PCMFrame{pack(samples), sampleRate, 1, static_cast<int>(samples.size())};
}

std::vector<std::int16_t> randomSamples(std::mt19937& generator, std::size_t count) {
  std::uniform_int_distribution<int> distribution(-32768, 32767);
  std::vector<std::int16_t> samples(count);
  for (auto& sample : samples) sample = static_cast<std::int16_t>(distribution(generator));
  return samples;
}

TEST(PCM16ResamplerTest, DownsamplesByThreeKeepingEveryThirdSample) {
  std::mt19937 generator(7);
  const auto input = randomSamples(generator, 480);
  std::vector<std::int16_t> everyThird;
  for (std::size_t i = 0; i < input.size(); i += 3) everyThird.push_back(input[i]);
  EXPECT_EQ(PCM16Resampler::resample(monoFrame(input, 48000), 16000), monoFrame(everyThird, 16000));
}

TEST(PCM16ResamplerTest, InterpolatesLinearlyRoundingHalfAwayFromZeroAndHoldsTheLastSample) {
  struct Case {
    std::string name;
    std::vector<std::int16_t> input;
    double sourceRate;
    double targetRate;
    std::vector<std::int16_t> expected;
  };
  const std::vector<Case> cases = {
      // 4.5 output samples round up to 5; positions 0, 0.667, 1.333, 2.0, 2.667.
      {"upsample by 1.5", {0, 1000, -1000}, 16000, 24000, {0, 667, 333, -1000, -1000}},
      // Midpoints x.5 round away from zero, not to even.
      {"midpoints", {2, 3, -2, -3}, 8000, 16000, {2, 3, 3, 1, -2, -3, -3, -3}},
      // The midpoint of the extremes is -0.5, which rounds to -1.
      {"extremes", {-32768, 32767}, 8000, 16000, {-32768, -1, 32767, 32767}},
      // round(1 / 3) is 0, but the output keeps at least one sample.
      {"single sample downsampled", {1234}, 48000, 16000, {1234}},
      // round(2.5) is 3 samples at positions 0, 1.6 and 3.2.
      {"downsample to 5/8", {0, 100, 200, 300}, 16000, 10000, {0, 160, 300}},
  };
  for (const auto& testCase : cases) {
    const PCMFrame input = monoFrame(testCase.input, testCase.sourceRate);
    const PCMFrame output = PCM16Resampler::resample(input, testCase.targetRate);
    EXPECT_EQ(output, monoFrame(testCase.expected, testCase.targetRate)) << testCase.name;
  }
}

TEST(PCM16ResamplerTest, ReturnsFramesItCannotOrNeedNotResampleUnchanged) {
  const Bytes samples = pack({1, 2, 3, 4, 5, 6});
  struct Case { std::string name; PCMFrame frame; double targetRate; };
  const std::vector<Case> cases = {
      {"stereo", {samples, 48000, 2, 3}, 16000},
      {"rate 0", {samples, 0, 1, 6}, 16000},
      {"target equals source", {samples, 16000, 1, 6}, 16000},
      {"target 0", {samples, 16000, 1, 6}, 0},
      {"infinite target", {samples, 16000, 1, 6}, std::numeric_limits<double>::infinity()},
      {"NaN target", {samples, 16000, 1, 6}, std::nan("")},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(PCM16Resampler::resample(testCase.frame, testCase.targetRate), testCase.frame) << testCase.name;
  }
  const PCMFrame nanRate{samples, std::nan(""), 1, 6};
  EXPECT_TRUE(std::isnan(PCM16Resampler::resample(nanRate, 16000).sampleRate));
}

TEST(PCM16ResamplerTest, IgnoresATrailingOddByteAndRefusesAnUnboundedOutput) {
  PCMFrame odd = monoFrame({0, 1000, -1000}, 16000);
  odd.pcm16LittleEndian.push_back(0x7F);
  EXPECT_EQ(PCM16Resampler::resample(odd, 24000), monoFrame({0, 667, 333, -1000, -1000}, 24000));
  for (const Bytes& bytes : {Bytes{}, Bytes{0x12}}) {
    EXPECT_EQ(PCM16Resampler::resample(PCMFrame{bytes, 48000, 1, 0}, 16000), (PCMFrame{{}, 16000, 1, 0}))
        << bytes.size() << " bytes";
  }
  EXPECT_THROW(PCM16Resampler::resample(monoFrame({1, 2}, 1), 768000), std::length_error);
  EXPECT_THROW(PCM16Resampler::resample(PCMFrame{Bytes(8 << 20), 1e6, 1, 4 << 20}, 1e9), std::length_error);
  EXPECT_EQ(PCM16Resampler::resample(monoFrame({1, 2}, 1), 1024).sampleCount, 2048);
}

}  // namespace
}  // namespace orvid
