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

std::vector<std::int16_t> unpack(const Bytes& bytes) {
  std::vector<std::int16_t> samples;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    samples.push_back(static_cast<std::int16_t>(static_cast<std::uint16_t>(bytes[i] | (bytes[i + 1] << 8))));
  }
  return samples;
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
  const PCMFrame output = PCM16Resampler::resample(monoFrame(input, 48000), 16000);

  EXPECT_EQ(output.sampleRate, 16000);
  EXPECT_EQ(output.channelCount, 1);
  ASSERT_EQ(output.sampleCount, 160);
  const auto samples = unpack(output.pcm16LittleEndian);
  ASSERT_EQ(samples.size(), 160u);
  for (std::size_t i = 0; i < samples.size(); ++i) EXPECT_EQ(samples[i], input[3 * i]) << "output sample " << i;
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
      {"single sample upsampled", {-5}, 8000, 24000, {-5, -5, -5}},
      // round(2.5) is 3 samples at positions 0, 1.6 and 3.2.
      {"downsample to 5/8", {0, 100, 200, 300}, 16000, 10000, {0, 160, 300}},
  };
  for (const auto& testCase : cases) {
    const PCMFrame input = monoFrame(testCase.input, testCase.sourceRate);
    const PCMFrame output = PCM16Resampler::resample(input, testCase.targetRate);
    EXPECT_EQ(unpack(output.pcm16LittleEndian), testCase.expected) << testCase.name;
    EXPECT_EQ(output.sampleCount, static_cast<int>(testCase.expected.size())) << testCase.name;
    EXPECT_EQ(output.sampleRate, testCase.targetRate) << testCase.name;
    EXPECT_EQ(output.channelCount, 1) << testCase.name;
  }
}

TEST(PCM16ResamplerTest, ReturnsFramesItCannotOrNeedNotResampleUnchanged) {
  const Bytes samples = pack({1, 2, 3, 4, 5, 6});
  struct Case {
    std::string name;
    PCMFrame frame;
    double targetRate;
  };
  const std::vector<Case> cases = {
      {"stereo", {samples, 48000, 2, 3}, 16000},
      {"no channels", {samples, 48000, 0, 6}, 16000},
      {"rate 0", {samples, 0, 1, 6}, 16000},
      {"negative rate", {samples, -48000, 1, 6}, 16000},
      {"NaN rate", {samples, std::nan(""), 1, 6}, 16000},
      {"target equals source", {samples, 16000, 1, 6}, 16000},
      {"target 0", {samples, 16000, 1, 6}, 0},
      {"negative target", {samples, 16000, 1, 6}, -8000},
      {"infinite target", {samples, 16000, 1, 6}, std::numeric_limits<double>::infinity()},
      {"NaN target", {samples, 16000, 1, 6}, std::nan("")},
  };
  for (const auto& testCase : cases) {
    const PCMFrame output = PCM16Resampler::resample(testCase.frame, testCase.targetRate);
    EXPECT_EQ(output.pcm16LittleEndian, testCase.frame.pcm16LittleEndian) << testCase.name;
    EXPECT_EQ(output.channelCount, testCase.frame.channelCount) << testCase.name;
    EXPECT_EQ(output.sampleCount, testCase.frame.sampleCount) << testCase.name;
    if (std::isnan(testCase.frame.sampleRate)) {
      EXPECT_TRUE(std::isnan(output.sampleRate)) << testCase.name;
    } else {
      EXPECT_EQ(output.sampleRate, testCase.frame.sampleRate) << testCase.name;
    }
  }
}

TEST(PCM16ResamplerTest, IgnoresATrailingOddByte) {
  const PCMFrame even = monoFrame({0, 1000, -1000}, 16000);
  PCMFrame odd = even;
  odd.pcm16LittleEndian.push_back(0x7F);

  EXPECT_EQ(PCM16Resampler::resample(odd, 24000), PCM16Resampler::resample(even, 24000));
}

TEST(PCM16ResamplerTest, FramesWithoutAWholeSampleBecomeEmptyAtTheTargetRate) {
  for (const Bytes& bytes : {Bytes{}, Bytes{0x12}}) {
    const PCMFrame output = PCM16Resampler::resample(PCMFrame{bytes, 48000, 1, 0}, 16000);
    EXPECT_EQ(output, (PCMFrame{{}, 16000, 1, 0})) << bytes.size() << " bytes";
  }
}

TEST(PCM16ResamplerTest, ThrowsWhenTheOutputWouldHoldMoreSamplesThanAFrameCounts) {
  EXPECT_THROW(PCM16Resampler::resample(monoFrame({1, 2}, 1), 2e9), std::length_error);
}

TEST(PCM16ResamplerTest, UpsamplingByTwoKeepsEveryInputSampleAndAveragesNeighbours) {
  std::mt19937 generator(11);
  for (std::size_t count : {1u, 2u, 17u, 320u, 4801u}) {
    const auto input = randomSamples(generator, count);
    const auto output = unpack(PCM16Resampler::resample(monoFrame(input, 16000), 32000).pcm16LittleEndian);
    ASSERT_EQ(output.size(), 2 * count);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(output[2 * i], input[i]);
      const double next = i + 1 < count ? input[i + 1] : input[i];
      EXPECT_EQ(output[2 * i + 1], static_cast<std::int16_t>(std::round((input[i] + next) / 2.0))) << i;
    }
  }
}

}  // namespace
}  // namespace orvid
