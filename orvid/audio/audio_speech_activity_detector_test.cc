#include "orvid/audio/audio_speech_activity_detector.h"

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

using Configuration = AudioSpeechActivityDetector::Configuration;
using AudioSpeechActivityDetector::analyze;

Bytes pack(const std::vector<std::int16_t>& samples) {
  Bytes bytes;
  for (std::int16_t sample : samples) {
    const auto bits = static_cast<std::uint16_t>(sample);
    bytes.push_back(static_cast<std::uint8_t>(bits & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
  }
  return bytes;
}

PCMFrame mono(const std::vector<std::int16_t>& samples, double sampleRate) {
  return PCMFrame{pack(samples), sampleRate, 1, static_cast<int>(samples.size())};
}

std::vector<PCMFrame> frames(const std::vector<std::int16_t>& samples, double sampleRate, std::size_t frameSize = 320) {
  std::vector<PCMFrame> result;
  for (std::size_t start = 0; start < samples.size(); start += frameSize) {
    const auto first = samples.begin() + static_cast<std::ptrdiff_t>(start);
    const auto length = static_cast<std::ptrdiff_t>(std::min(frameSize, samples.size() - start));
    result.push_back(mono({first, first + length}, sampleRate));
  }
  return result;
}

// Alternating +amplitude, −amplitude: RMS amplitude ÷ 32768 and zero-crossing rate 1.
std::vector<std::int16_t> alternating(std::int16_t amplitude, std::size_t count) {
  std::vector<std::int16_t> samples(count);
  for (std::size_t i = 0; i < count; ++i) samples[i] = static_cast<std::int16_t>(i % 2 == 0 ? amplitude : -amplitude);
  return samples;
}

void append(std::vector<std::int16_t>& samples, const std::vector<std::int16_t>& more) {
  samples.insert(samples.end(), more.begin(), more.end());
}

std::vector<std::int16_t> tone(double frequency, double amplitude, double seconds, double sampleRate) {
  const auto count = static_cast<std::size_t>(seconds * sampleRate);
  std::vector<std::int16_t> samples(count);
  for (std::size_t i = 0; i < count; ++i)
    samples[i] = static_cast<std::int16_t>(
        std::lround(amplitude * 32767.0 * std::sin(2 * std::numbers::pi * frequency * double(i) / sampleRate)));
  return samples;
}

std::vector<std::int16_t> noise(std::mt19937& generator, int amplitude, double seconds, double sampleRate) {
  std::uniform_int_distribution<int> distribution(-amplitude, amplitude);
  std::vector<std::int16_t> samples(static_cast<std::size_t>(seconds * sampleRate));
  for (auto& sample : samples) sample = static_cast<std::int16_t>(distribution(generator));
  return samples;
}

Configuration permissive(double windowSeconds) { return Configuration{windowSeconds, 0, 0, 0, 0, 0, 0, 0, 1}; }

// Thresholds of the kind the host uses for a press of the microphone button.
Configuration buttonPress() { return Configuration{0.03, 0.3, 0.25, 0.12, 0.01f, 0.03f, 2.5f, 0.01f, 0.35f}; }

TEST(AudioSpeechActivityDetectorTest, GivesTheEmptyAnalysisWhenThereIsNoRateOrNoSample) {
  const std::vector<PCMFrame> noRate = {mono({1000, -1000}, -16000), mono({1000}, std::nan(""))};
  EXPECT_EQ(analyze(noRate, permissive(0.02)), AudioSpeechActivityAnalysis{});
  EXPECT_EQ(analyze({PCMFrame{{0x7F}, 16000, 1, 1}}, permissive(0.02)), AudioSpeechActivityAnalysis{});
}

TEST(AudioSpeechActivityDetectorTest, ReadsFramesAtTheFirstRateUpToTheirSampleCountAndAveragesChannels) {
  // 100 quiet samples, then 100 loud ones: the peak shows whether the loud half was read.
  std::vector<std::int16_t> quietThenLoud = alternating(1000, 100);
  append(quietThenLoud, alternating(8000, 100));
  auto declaring = [&](int channels, int sampleCount) {
    return std::vector<PCMFrame>{{pack(quietThenLoud), 100, channels, sampleCount}};
  };
  auto interleaved = [](const std::vector<std::int16_t>& samples) {
    return std::vector<PCMFrame>{{pack(samples), 100, 2, 0}};
  };
  struct Case { std::string name; std::vector<PCMFrame> frames; double duration; float peak; };
  const std::vector<Case> cases = {
      {"timed at the first positive rate",
       {mono(alternating(100, 100), 0), mono(alternating(100, 100), 100), mono(alternating(100, 100), 50)},
       3.0, 100.0f / 32768},
      {"smaller count", declaring(1, 100), 1.0, 1000.0f / 32768},
      {"larger count", declaring(1, 300), 2.0, 8000.0f / 32768},
      {"signal in one channel is halved", interleaved({16384, 0, -16384, 0}), 0.02, 0.25f},
      {"incomplete sample frame ignored", interleaved({100, 100, 32767}), 0.01, 100.0f / 32768},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const auto analysis = analyze(testCase.frames, permissive(0.1));
    EXPECT_DOUBLE_EQ(analysis.durationSeconds, testCase.duration);
    EXPECT_EQ(analysis.peakAmplitude, testCase.peak);
  }
}

// The share of windows whose zero-crossing rate is exactly `rate`.
double shareCrossingAt(const std::vector<PCMFrame>& input, float rate) {
  Configuration configuration = permissive(1.0);
  configuration.minimumZeroCrossingRate = configuration.maximumZeroCrossingRate = rate;
  return analyze(input, configuration).speechLikeFrameRatio;
}

TEST(AudioSpeechActivityDetectorTest, CountsZeroCrossingsBetweenNonZeroSamplesOfOppositeSignWithinAWindow) {
  // Windows of 4 samples at 4 Hz; passing through zero is no crossing.
  EXPECT_EQ(shareCrossingAt({mono({100, 0, -100, 0}, 4)}, 0.0f), 1);
  EXPECT_EQ(shareCrossingAt({mono({100, 100, -100, -100}, 4)}, static_cast<float>(1.0 / 3)), 1);
  // No crossing between the last sample of one window and the first of the next.
  EXPECT_EQ(shareCrossingAt(frames(alternating(100, 12), 4, 5), 1.0f), 1);
}

TEST(AudioSpeechActivityDetectorTest, RoundsTheWindowSizeHalfAwayFromZeroToAtLeastOneSample) {
  const std::int16_t loud = 10000;
  Configuration configuration = permissive(0.25);
  configuration.minimumRMSAmplitude = 0.9f * loud / 32768;
  // 2.5 samples round to 3: windows [L L L] [0 0 0]; with 2 it would be one in three.
  EXPECT_DOUBLE_EQ(analyze({mono({loud, loud, loud, 0, 0, 0}, 10)}, configuration).speechLikeFrameRatio, 0.5);
  configuration.analysisWindowDurationSeconds = 0.01;  // 0.1 samples become 1
  EXPECT_DOUBLE_EQ(analyze({mono({loud, 0, 0}, 10)}, configuration).speechLikeFrameRatio, 1.0 / 3);
}

TEST(AudioSpeechActivityDetectorTest, TakesTheNoiseFloorAtTheTwentiethPercentileOfWindowRMS) {
  // One window of 8 alternating samples per amplitude, in frames of 3; a window is
  // speech-like when its RMS reaches the floor times the multiplier and the minimum.
  auto ratio = [](std::vector<std::int16_t> amplitudes, float multiplier, float minimum = 0) {
    std::vector<std::int16_t> samples;
    for (std::int16_t amplitude : amplitudes) append(samples, alternating(amplitude, 8));
    Configuration configuration = permissive(1.0);
    configuration.noiseFloorMultiplier = multiplier;
    configuration.minimumRMSAmplitude = minimum;
    return analyze(frames(samples, 8, 3), configuration).speechLikeFrameRatio;
  };
  // Index trunc(4 × 0.2) = 0: floor 100, threshold 250, three windows pass. Index 1
  // (k × 0.2, or rounding) would pass one window, the median none.
  EXPECT_DOUBLE_EQ(ratio({500, 100, 300, 200, 400}, 2.5f), 3.0 / 5);
  // The absolute minimum wins over a lower floor threshold.
  EXPECT_DOUBLE_EQ(ratio({400, 100, 300, 200}, 1.0f, 350.0f / 32768), 0.25);
}

TEST(AudioSpeechActivityDetectorTest, SumsSpeechLikeWindowsAndTheirLongestUninterruptedRun) {
  // Windows of 4 samples at 4 Hz: speech, speech, silence, speech, speech, speech, silence, speech.
  std::vector<std::int16_t> samples;
  for (bool speech : {true, true, false, true, true, true, false, true}) {
    append(samples, speech ? alternating(2000, 4) : std::vector<std::int16_t>(4, 0));
  }
  Configuration configuration = permissive(1.0);
  configuration.minimumRMSAmplitude = 0.01f;
  const auto analysis = analyze(frames(samples, 4, 7), configuration);
  EXPECT_DOUBLE_EQ(analysis.activeDurationSeconds, 6.0);
  EXPECT_DOUBLE_EQ(analysis.longestActiveDurationSeconds, 3.0);
  EXPECT_FLOAT_EQ(analysis.averageRMS, static_cast<float>(std::sqrt(0.75) * 2000 / 32768));
}

TEST(AudioSpeechActivityDetectorTest, TellsAToneBurstFromRoomNoiseAndNeedsEveryMinimumReached) {
  std::mt19937 generator(42);
  const auto roomNoise = analyze(frames(noise(generator, 3000, 2.0, 16000), 16000), buttonPress());
  EXPECT_FALSE(roomNoise.containsSpeech);
  // Faint noise around 0.6 s of a 220 Hz tone at 0.3 of full scale.
  std::vector<std::int16_t> samples = noise(generator, 100, 0.5, 16000);
  append(samples, tone(220, 0.3, 0.6, 16000));
  append(samples, noise(generator, 100, 0.5, 16000));
  const auto input = frames(samples, 16000);
  const auto burst = analyze(input, buttonPress());
  ASSERT_TRUE(burst.containsSpeech);
  EXPECT_NEAR(burst.longestActiveDurationSeconds, 0.6, 0.061);
  // The minimum run is reached at the measured value and missed just above it.
  Configuration configuration = buttonPress();
  configuration.minimumConsecutiveSpeechDurationSeconds = burst.longestActiveDurationSeconds;
  EXPECT_TRUE(AudioSpeechActivityDetector::containsSpeech(input, configuration));
  configuration.minimumConsecutiveSpeechDurationSeconds = std::nextafter(burst.longestActiveDurationSeconds, 1.0);
  EXPECT_FALSE(AudioSpeechActivityDetector::containsSpeech(input, configuration));
}

}  // namespace
}  // namespace orvid
