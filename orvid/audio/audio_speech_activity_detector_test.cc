#include "orvid/audio/audio_speech_activity_detector.h"

#include <cmath>
#include <cstdint>
#include <limits>
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

// Cuts a mono signal into capture-sized frames of `frameSize` samples.
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
  for (std::size_t i = 0; i < count; ++i) {
    const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / sampleRate;
    samples[i] = static_cast<std::int16_t>(std::lround(amplitude * 32767.0 * std::sin(phase)));
  }
  return samples;
}

std::vector<std::int16_t> noise(std::mt19937& generator, int amplitude, double seconds, double sampleRate) {
  std::uniform_int_distribution<int> distribution(-amplitude, amplitude);
  std::vector<std::int16_t> samples(static_cast<std::size_t>(seconds * sampleRate));
  for (auto& sample : samples) sample = static_cast<std::int16_t>(distribution(generator));
  return samples;
}

// Every window is speech-like and every total passes.
Configuration permissive(double windowSeconds) {
  return Configuration{windowSeconds, 0, 0, 0, 0, 0, 0, 0, 1};
}

// Thresholds of the kind the host uses for a press of the microphone button: 30 ms
// windows; a clip of 0.3 s with 0.25 s of speech, 0.12 s of it in one run; RMS 0.01,
// peak 0.03, 2.5 × the noise floor, zero-crossing rate 0.01 to 0.35.
Configuration buttonPress() { return Configuration{0.03, 0.3, 0.25, 0.12, 0.01f, 0.03f, 2.5f, 0.01f, 0.35f}; }

TEST(AudioSpeechActivityDetectorTest, GivesTheEmptyAnalysisWhenThereIsNoRateOrNoSample) {
  for (const auto& input : std::vector<std::vector<PCMFrame>>{
           {mono({1000, -1000}, 0), mono({500}, 0)},
           {mono({1000, -1000}, -16000), mono({1000}, std::nan(""))},
           {PCMFrame{{0x7F}, 16000, 1, 1}},  // one odd byte
       }) {
    EXPECT_EQ(analyze(input, permissive(0.02)), AudioSpeechActivityAnalysis{}) << input.front().sampleRate;
  }
}

TEST(AudioSpeechActivityDetectorTest, ReadsFramesAtTheFirstRateUpToTheirSampleCountAndAveragesChannels) {
  // 100 quiet samples, then 100 loud ones: the peak shows whether the loud half was read.
  std::vector<std::int16_t> quietThenLoud = alternating(1000, 100);
  append(quietThenLoud, alternating(8000, 100));
  auto declaring = [&](int channels, int sampleCount) {
    return std::vector<PCMFrame>{{pack(quietThenLoud), 100, channels, sampleCount}};
  };
  auto interleaved = [](int channels, const std::vector<std::int16_t>& samples) {
    return std::vector<PCMFrame>{{pack(samples), 100, channels, 0}};
  };
  struct Case {
    std::string name;
    std::vector<PCMFrame> frames;
    double duration;
    float peak;
  };
  const std::vector<Case> cases = {
      {"timed at the first positive rate",
       {mono(alternating(100, 100), 0), mono(alternating(100, 100), 100), mono(alternating(100, 100), 50)},
       3.0, 100.0f / 32768},
      {"smaller count", declaring(1, 100), 1.0, 1000.0f / 32768},
      {"larger count", declaring(1, 300), 2.0, 8000.0f / 32768},
      {"negative count", declaring(1, -5), 2.0, 8000.0f / 32768},
      {"stereo, smaller count", declaring(2, 50), 0.5, 0},
      {"signal in one channel is halved", interleaved(2, {16384, 0, -16384, 0}), 0.02, 0.25f},
      {"no channels reads as mono", interleaved(0, {-32768, 16384}), 0.02, 1.0f},
      {"incomplete sample frame ignored", interleaved(2, {100, 100, 32767}), 0.01, 100.0f / 32768},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const auto analysis = analyze(testCase.frames, permissive(0.1));
    EXPECT_DOUBLE_EQ(analysis.durationSeconds, testCase.duration);
    EXPECT_EQ(analysis.peakAmplitude, testCase.peak);
  }
}

// Whether every window's zero-crossing rate is exactly `rate`: the windows must pass with
// the bounds set to `rate` and fail with the bounds just above and just below it.
testing::AssertionResult everyWindowCrossesAt(const std::vector<PCMFrame>& input, float rate) {
  auto ratioWithBounds = [&](float bound) {
    Configuration configuration = permissive(1.0);
    configuration.minimumZeroCrossingRate = configuration.maximumZeroCrossingRate = bound;
    return analyze(input, configuration).speechLikeFrameRatio;
  };
  const double at = ratioWithBounds(rate);
  const double above = ratioWithBounds(std::nextafter(rate, 2.0f));
  const double below = ratioWithBounds(std::nextafter(rate, -1.0f));
  if (at == 1 && above == 0 && below == 0) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "ratio at " << rate << ": " << at << ", above: " << above
                                     << ", below: " << below;
}

TEST(AudioSpeechActivityDetectorTest, CountsZeroCrossingsBetweenNonZeroSamplesOfOppositeSignWithinAWindow) {
  // Windows of 4 samples at 4 Hz.
  struct Case {
    std::string name;
    std::vector<PCMFrame> frames;
    float rate;
  };
  const std::vector<Case> cases = {
      {"every step crosses", {mono({100, -100, 100, -100}, 4)}, 1.0f},
      {"passing through zero is no crossing", {mono({100, 0, -100, 0}, 4)}, 0.0f},
      {"one crossing", {mono({100, 100, -100, -100}, 4)}, static_cast<float>(1.0 / 3)},
      // The first sample of a window never crosses with the last of the previous one,
      // also when the boundary falls inside a frame or between frames.
      {"windows inside one frame", {mono(alternating(100, 12), 4)}, 1.0f},
      {"windows across frames", frames(alternating(100, 12), 4, 5), 1.0f},
      {"a window of one sample", {mono({100}, 4)}, 0.0f},
  };
  for (const auto& testCase : cases) {
    EXPECT_TRUE(everyWindowCrossesAt(testCase.frames, testCase.rate)) << testCase.name;
  }
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
  // Index trunc(10 × 0.2) = 2: floor 300, threshold 750.
  EXPECT_DOUBLE_EQ(ratio({1100, 100, 1000, 200, 900, 300, 800, 400, 700, 500, 600}, 2.5f), 4.0 / 11);
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
  EXPECT_DOUBLE_EQ(analysis.durationSeconds, 8.0);
  EXPECT_DOUBLE_EQ(analysis.activeDurationSeconds, 6.0);
  EXPECT_DOUBLE_EQ(analysis.longestActiveDurationSeconds, 3.0);
  EXPECT_DOUBLE_EQ(analysis.speechLikeFrameRatio, 0.75);
  EXPECT_FLOAT_EQ(analysis.peakAmplitude, 2000.0f / 32768);
  EXPECT_FLOAT_EQ(analysis.averageRMS, static_cast<float>(std::sqrt(0.75) * 2000 / 32768));
}

// Half a second of faint noise, 0.6 s of a 220 Hz tone at 0.3 of full scale, then noise again.
std::vector<PCMFrame> toneBurst(std::mt19937& generator) {
  std::vector<std::int16_t> samples = noise(generator, 100, 0.5, 16000);
  append(samples, tone(220, 0.3, 0.6, 16000));
  append(samples, noise(generator, 100, 0.5, 16000));
  return frames(samples, 16000);
}

TEST(AudioSpeechActivityDetectorTest, TellsAToneBurstFromRoomNoiseAndNeedsEveryMinimumReached) {
  std::mt19937 generator(42);
  const auto roomNoise = analyze(frames(noise(generator, 3000, 2.0, 16000), 16000), buttonPress());
  EXPECT_FALSE(roomNoise.containsSpeech);
  EXPECT_GT(roomNoise.peakAmplitude, 0.03f);
  EXPECT_LT(roomNoise.speechLikeFrameRatio, 0.05);

  const auto input = toneBurst(generator);
  const auto burst = analyze(input, buttonPress());
  ASSERT_TRUE(burst.containsSpeech);
  EXPECT_NEAR(burst.activeDurationSeconds, 0.6, 0.061);
  EXPECT_NEAR(burst.longestActiveDurationSeconds, 0.6, 0.061);
  EXPECT_NEAR(burst.peakAmplitude, 0.3, 0.001);

  // Each minimum is reached at the measured value and missed just above it.
  auto speechWith = [&](auto field, auto minimum) {
    Configuration configuration = buttonPress();
    configuration.*field = minimum;
    return AudioSpeechActivityDetector::containsSpeech(input, configuration);
  };
  using Seconds = double Configuration::*;
  for (const auto& [field, measured] : std::vector<std::pair<Seconds, double>>{
           {&Configuration::minimumClipDurationSeconds, burst.durationSeconds},
           {&Configuration::minimumSpeechDurationSeconds, burst.activeDurationSeconds},
           {&Configuration::minimumConsecutiveSpeechDurationSeconds, burst.longestActiveDurationSeconds}}) {
    EXPECT_TRUE(speechWith(field, measured)) << measured;
    EXPECT_FALSE(speechWith(field, std::nextafter(measured, 100.0))) << measured;
  }
  EXPECT_TRUE(speechWith(&Configuration::minimumPeakAmplitude, burst.peakAmplitude));
  EXPECT_FALSE(speechWith(&Configuration::minimumPeakAmplitude, std::nextafter(burst.peakAmplitude, 2.0f)));
}

}  // namespace
}  // namespace orvid
