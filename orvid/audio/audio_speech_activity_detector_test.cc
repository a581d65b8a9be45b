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
  bytes.reserve(samples.size() * 2);
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
    const std::size_t end = std::min(samples.size(), start + frameSize);
    result.push_back(mono(std::vector<std::int16_t>(samples.begin() + static_cast<std::ptrdiff_t>(start),
                                                    samples.begin() + static_cast<std::ptrdiff_t>(end)),
                          sampleRate));
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

// Thresholds of the kind the host uses for a press of the microphone button.
Configuration buttonPress() {
  return Configuration{
      .analysisWindowDurationSeconds = 0.03,
      .minimumClipDurationSeconds = 0.3,
      .minimumSpeechDurationSeconds = 0.25,
      .minimumConsecutiveSpeechDurationSeconds = 0.12,
      .minimumRMSAmplitude = 0.01f,
      .minimumPeakAmplitude = 0.03f,
      .noiseFloorMultiplier = 2.5f,
      .minimumZeroCrossingRate = 0.01f,
      .maximumZeroCrossingRate = 0.35f,
  };
}

TEST(AudioSpeechActivityDetectorTest, GivesTheEmptyAnalysisWhenThereIsNoRateOrNoSample) {
  struct Case {
    std::string name;
    std::vector<PCMFrame> frames;
  };
  const std::vector<Case> cases = {
      {"no frames", {}},
      {"all rates 0", {mono({1000, -1000}, 0), mono({500}, 0)}},
      {"negative and NaN rates", {mono({1000, -1000}, -16000), mono({1000}, std::nan(""))}},
      {"no bytes", {PCMFrame{{}, 16000, 1, 10}}},
      {"one odd byte", {PCMFrame{{0x7F}, 16000, 1, 1}}},
      {"fewer bytes than one stereo sample frame", {PCMFrame{{0x10, 0x20}, 16000, 2, 1}}},
  };
  for (const auto& testCase : cases) {
    const auto analysis = analyze(testCase.frames, permissive(0.02));
    EXPECT_EQ(analysis, AudioSpeechActivityAnalysis{}) << testCase.name;
    EXPECT_FALSE(AudioSpeechActivityDetector::containsSpeech(testCase.frames, permissive(0.02))) << testCase.name;
  }
}

TEST(AudioSpeechActivityDetectorTest, TimesEveryFrameAtTheRateOfTheFirstFrameWithAPositiveRate) {
  const std::vector<PCMFrame> input = {mono(alternating(100, 100), 0), mono(alternating(100, 100), 100),
                                       mono(alternating(100, 100), 50)};
  const auto analysis = analyze(input, permissive(0.1));
  EXPECT_DOUBLE_EQ(analysis.durationSeconds, 3.0);
  EXPECT_DOUBLE_EQ(analysis.activeDurationSeconds, 3.0);
  EXPECT_TRUE(analysis.containsSpeech);
}

TEST(AudioSpeechActivityDetectorTest, ReadsAFrameUpToItsDeclaredSampleCountOnlyWhenThatIsSmaller) {
  // 100 quiet samples, then 100 loud ones: the peak shows whether the loud half was read.
  std::vector<std::int16_t> samples = alternating(1000, 100);
  append(samples, alternating(8000, 100));
  struct Case {
    std::string name;
    int channelCount;
    int sampleCount;
    double expectedDuration;
    float expectedPeak;
  };
  const std::vector<Case> cases = {
      {"smaller count", 1, 100, 1.0, 1000.0f / 32768},
      {"exact count", 1, 200, 2.0, 8000.0f / 32768},
      {"larger count", 1, 300, 2.0, 8000.0f / 32768},
      {"count 0", 1, 0, 2.0, 8000.0f / 32768},
      {"negative count", 1, -5, 2.0, 8000.0f / 32768},
      {"stereo, smaller count", 2, 50, 0.5, 0},
      {"stereo, larger count", 2, 500, 1.0, 0},
  };
  for (const auto& testCase : cases) {
    const PCMFrame frame{pack(samples), 100, testCase.channelCount, testCase.sampleCount};
    const auto analysis = analyze({frame}, permissive(0.1));
    EXPECT_DOUBLE_EQ(analysis.durationSeconds, testCase.expectedDuration) << testCase.name;
    EXPECT_EQ(analysis.peakAmplitude, testCase.expectedPeak) << testCase.name;
  }
}

TEST(AudioSpeechActivityDetectorTest, AveragesChannelsToMonoBeforeMeasuring) {
  struct Case {
    std::string name;
    int channelCount;
    std::vector<std::int16_t> interleaved;
    float expectedPeak;
  };
  const std::vector<Case> cases = {
      {"signal in one channel is halved", 2, {16384, 0, -16384, 0}, 0.25f},
      {"opposite channels cancel", 2, {16384, -16384, 8000, -8000}, 0.0f},
      {"three channels", 3, {32767, 32767, -32768, 0, 0, 0}, static_cast<float>(32766.0 / 3 / 32768)},
      {"no channels reads as mono", 0, {-32768, 16384}, 1.0f},
      {"incomplete sample frame ignored", 2, {100, 100, 32767}, 100.0f / 32768},
  };
  for (const auto& testCase : cases) {
    const PCMFrame frame{pack(testCase.interleaved), 16000, testCase.channelCount, 0};
    const auto analysis = analyze({frame}, permissive(0.01));
    EXPECT_EQ(analysis.peakAmplitude, testCase.expectedPeak) << testCase.name;
  }

  // A full-scale square wave in the left channel only: half scale in mono.
  std::vector<std::int16_t> stereo;
  for (std::int16_t left : alternating(32767, 1600)) append(stereo, {left, 0});
  const auto analysis = analyze({PCMFrame{pack(stereo), 16000, 2, 1600}}, permissive(0.01));
  EXPECT_DOUBLE_EQ(analysis.durationSeconds, 0.1);
  EXPECT_NEAR(analysis.averageRMS, 0.5f, 1e-4);
  EXPECT_NEAR(analysis.peakAmplitude, 0.5f, 1e-4);
}

TEST(AudioSpeechActivityDetectorTest, AConstantSignalHasNoZeroCrossings) {
  const std::vector<std::int16_t> constant(16000, 5000);
  Configuration configuration = permissive(0.02);
  configuration.minimumZeroCrossingRate = 0.001f;
  configuration.minimumSpeechDurationSeconds = 0.1;
  const auto analysis = analyze(frames(constant, 16000), configuration);
  EXPECT_FALSE(analysis.containsSpeech);
  EXPECT_EQ(analysis.speechLikeFrameRatio, 0);
  EXPECT_EQ(analysis.activeDurationSeconds, 0);

  configuration.minimumZeroCrossingRate = 0;
  configuration.maximumZeroCrossingRate = 0;
  EXPECT_EQ(analyze(frames(constant, 16000), configuration).speechLikeFrameRatio, 1);
}

// Whether every window's zero-crossing rate is exactly `rate`: the window must pass with
// the bounds set to `rate` and fail with the bounds just above and just below it.
testing::AssertionResult everyWindowCrossesAt(const std::vector<PCMFrame>& input, double windowSeconds, float rate) {
  Configuration configuration = permissive(windowSeconds);
  configuration.minimumZeroCrossingRate = configuration.maximumZeroCrossingRate = rate;
  const double atRate = analyze(input, configuration).speechLikeFrameRatio;
  configuration.minimumZeroCrossingRate = configuration.maximumZeroCrossingRate =
      std::nextafter(rate, std::numeric_limits<float>::infinity());
  const double above = analyze(input, configuration).speechLikeFrameRatio;
  configuration.minimumZeroCrossingRate = configuration.maximumZeroCrossingRate = std::nextafter(rate, -1.0f);
  const double below = analyze(input, configuration).speechLikeFrameRatio;
  if (atRate == 1 && above == 0 && below == 0) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "ratio at " << rate << ": " << atRate << ", above: " << above
                                     << ", below: " << below;
}

TEST(AudioSpeechActivityDetectorTest, CountsZeroCrossingsBetweenNonZeroSamplesOfOppositeSign) {
  struct Case {
    std::string name;
    std::vector<std::int16_t> window;
    float rate;
  };
  const std::vector<Case> cases = {
      {"every step crosses", {100, -100, 100, -100}, 1.0f},
      {"passing through zero is no crossing", {100, 0, -100, 0}, 0.0f},
      {"one crossing", {100, 100, -100, -100}, static_cast<float>(1.0 / 3)},
      {"smallest values", {-1, 1, 1, 1}, static_cast<float>(1.0 / 3)},
      {"two crossings", {-7, 9, -3, -3}, static_cast<float>(2.0 / 3)},
      {"silence", {0, 0, 0, 0}, 0.0f},
  };
  for (const auto& testCase : cases) {
    EXPECT_TRUE(everyWindowCrossesAt({mono(testCase.window, 4)}, 1.0, testCase.rate)) << testCase.name;
  }
  // The first sample of a window never crosses with the last of the previous one, also
  // when the boundary falls inside a frame or between frames.
  EXPECT_TRUE(everyWindowCrossesAt({mono(alternating(100, 12), 4)}, 1.0, 1.0f));
  EXPECT_TRUE(everyWindowCrossesAt(frames(alternating(100, 12), 4, 5), 1.0, 1.0f));
  // A window of one sample has rate 0.
  EXPECT_TRUE(everyWindowCrossesAt({mono({100}, 4)}, 1.0, 0.0f));
}

TEST(AudioSpeechActivityDetectorTest, AClipOfOneSampleMoreThanAWindowHasASecondWindowOfOneSample) {
  // Windows of 4 samples at 4 Hz; speech-like windows need crossings.
  Configuration configuration = permissive(1.0);
  configuration.minimumZeroCrossingRate = 0.5f;

  const auto exact = analyze({mono(alternating(1000, 4), 4)}, configuration);
  EXPECT_EQ(exact.speechLikeFrameRatio, 1.0);
  EXPECT_DOUBLE_EQ(exact.activeDurationSeconds, 1.0);

  const auto oneMore = analyze({mono(alternating(1000, 5), 4)}, configuration);
  EXPECT_EQ(oneMore.speechLikeFrameRatio, 0.5);
  EXPECT_DOUBLE_EQ(oneMore.durationSeconds, 1.25);
  EXPECT_DOUBLE_EQ(oneMore.activeDurationSeconds, 1.0);
  EXPECT_DOUBLE_EQ(oneMore.longestActiveDurationSeconds, 1.0);
}

TEST(AudioSpeechActivityDetectorTest, RoundsTheWindowSizeHalfAwayFromZeroToAtLeastOneSample) {
  const std::int16_t loud = 10000;
  struct Case {
    std::string name;
    double sampleRate;
    double windowSeconds;
    std::vector<std::int16_t> samples;
    double expectedRatio;
  };
  const std::vector<Case> cases = {
      // 2.5 samples round to 3: windows [L L L] [0 0 0]; with 2 it would be one in three.
      {"2.5 rounds up", 10, 0.25, {loud, loud, loud, 0, 0, 0}, 0.5},
      // 3.5 samples round to 4: windows [L L L L] [0 0 0 0]; with 3 it would be one in three.
      {"3.5 rounds up", 8, 0.4375, {loud, loud, loud, loud, 0, 0, 0, 0}, 0.5},
      {"0.1 samples become 1", 10, 0.01, {loud, 0, 0}, 1.0 / 3},
      {"0 samples become 1", 10, 0.0, {loud, 0, 0}, 1.0 / 3},
      {"negative duration becomes 1", 10, -1.0, {loud, 0, 0}, 1.0 / 3},
      {"NaN duration becomes 1", 10, std::nan(""), {loud, 0, 0}, 1.0 / 3},
  };
  for (const auto& testCase : cases) {
    Configuration configuration = permissive(testCase.windowSeconds);
    configuration.minimumRMSAmplitude = 0.9f * loud / 32768;
    const auto analysis = analyze({mono(testCase.samples, testCase.sampleRate)}, configuration);
    EXPECT_DOUBLE_EQ(analysis.speechLikeFrameRatio, testCase.expectedRatio) << testCase.name;
  }
}

TEST(AudioSpeechActivityDetectorTest, TakesTheNoiseFloorAtTheTwentiethPercentileOfWindowRMS) {
  struct Case {
    std::string name;
    std::vector<std::int16_t> windowAmplitudes;
    float multiplier;
    double expectedRatio;
  };
  const std::vector<Case> cases = {
      // Index 0: floor 100, threshold 250.
      {"four windows", {400, 100, 300, 200}, 2.5f, 0.5},
      // Index 1: floor 200, threshold 400.
      {"six windows", {600, 100, 500, 200, 400, 300}, 2.0f, 0.5},
      // Index trunc(10 × 0.2) = 2: floor 300, threshold 750.
      {"eleven windows", {1100, 100, 1000, 200, 900, 300, 800, 400, 700, 500, 600}, 2.5f, 4.0 / 11},
      {"one window", {500}, 1.0f, 1.0},
      {"one window above its own floor", {500}, 1.01f, 0.0},
  };
  for (const auto& testCase : cases) {
    std::vector<std::int16_t> samples;
    for (std::int16_t amplitude : testCase.windowAmplitudes) append(samples, alternating(amplitude, 8));
    Configuration configuration = permissive(1.0);
    configuration.noiseFloorMultiplier = testCase.multiplier;
    const auto analysis = analyze(frames(samples, 8, 3), configuration);
    EXPECT_DOUBLE_EQ(analysis.speechLikeFrameRatio, testCase.expectedRatio) << testCase.name;
  }

  // The absolute minimum wins over a lower floor threshold.
  std::vector<std::int16_t> samples;
  for (std::int16_t amplitude : {400, 100, 300, 200}) append(samples, alternating(amplitude, 8));
  Configuration configuration = permissive(1.0);
  configuration.noiseFloorMultiplier = 1.0f;
  configuration.minimumRMSAmplitude = 350.0f / 32768;
  EXPECT_DOUBLE_EQ(analyze({mono(samples, 8)}, configuration).speechLikeFrameRatio, 0.25);
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

TEST(AudioSpeechActivityDetectorTest, RequiresEveryMinimumToBeReachedForSpeech) {
  std::mt19937 generator(5);
  std::vector<std::int16_t> samples = noise(generator, 100, 0.5, 16000);
  append(samples, tone(220, 0.3, 0.6, 16000));
  append(samples, noise(generator, 100, 0.5, 16000));
  const auto input = frames(samples, 16000);
  const auto reference = analyze(input, buttonPress());
  ASSERT_TRUE(reference.containsSpeech);

  struct Case {
    std::string name;
    float Configuration::*floatField;
    double Configuration::*doubleField;
    double measured;
  };
  const std::vector<Case> cases = {
      {"clip duration", nullptr, &Configuration::minimumClipDurationSeconds, reference.durationSeconds},
      {"peak", &Configuration::minimumPeakAmplitude, nullptr, reference.peakAmplitude},
      {"speech duration", nullptr, &Configuration::minimumSpeechDurationSeconds, reference.activeDurationSeconds},
      {"consecutive speech", nullptr, &Configuration::minimumConsecutiveSpeechDurationSeconds,
       reference.longestActiveDurationSeconds},
  };
  for (const auto& testCase : cases) {
    Configuration atMeasured = buttonPress();
    Configuration aboveMeasured = buttonPress();
    if (testCase.floatField != nullptr) {
      atMeasured.*testCase.floatField = static_cast<float>(testCase.measured);
      aboveMeasured.*testCase.floatField =
          std::nextafter(static_cast<float>(testCase.measured), std::numeric_limits<float>::infinity());
    } else {
      atMeasured.*testCase.doubleField = testCase.measured;
      aboveMeasured.*testCase.doubleField = std::nextafter(testCase.measured, std::numeric_limits<double>::infinity());
    }
    EXPECT_TRUE(AudioSpeechActivityDetector::containsSpeech(input, atMeasured)) << testCase.name;
    EXPECT_FALSE(AudioSpeechActivityDetector::containsSpeech(input, aboveMeasured)) << testCase.name;
  }
}

TEST(AudioSpeechActivityDetectorTest, TellsSpeechLikeSignalsFromSilenceAndNoise) {
  const double rate = 16000;
  std::mt19937 generator(42);

  const auto silence = analyze(frames(std::vector<std::int16_t>(32000, 0), rate), buttonPress());
  EXPECT_FALSE(silence.containsSpeech);
  EXPECT_DOUBLE_EQ(silence.durationSeconds, 2.0);
  EXPECT_EQ(silence.peakAmplitude, 0);
  EXPECT_EQ(silence.averageRMS, 0);
  EXPECT_EQ(silence.speechLikeFrameRatio, 0);

  const auto roomNoise = analyze(frames(noise(generator, 3000, 2.0, rate), rate), buttonPress());
  EXPECT_FALSE(roomNoise.containsSpeech);
  EXPECT_GT(roomNoise.peakAmplitude, 0.03f);
  EXPECT_LT(roomNoise.speechLikeFrameRatio, 0.05);

  std::vector<std::int16_t> burst = noise(generator, 100, 0.5, rate);
  append(burst, tone(220, 0.3, 0.6, rate));
  append(burst, noise(generator, 100, 0.5, rate));
  const auto toneBurst = analyze(frames(burst, rate), buttonPress());
  EXPECT_TRUE(toneBurst.containsSpeech);
  EXPECT_NEAR(toneBurst.activeDurationSeconds, 0.6, 0.061);
  EXPECT_NEAR(toneBurst.longestActiveDurationSeconds, 0.6, 0.061);
  EXPECT_NEAR(toneBurst.peakAmplitude, 0.3, 0.001);
  EXPECT_DOUBLE_EQ(toneBurst.durationSeconds, 1.6);

  // Five syllables of 150 ms (five windows each) separated by 150 ms pauses.
  std::vector<std::int16_t> syllables;
  for (int i = 0; i < 5; ++i) {
    append(syllables, tone(180 + 40 * i, 0.2, 0.15, rate));
    append(syllables, std::vector<std::int16_t>(2400, 0));
  }
  const auto speechLike = analyze(frames(syllables, rate), buttonPress());
  EXPECT_TRUE(speechLike.containsSpeech);
  EXPECT_DOUBLE_EQ(speechLike.activeDurationSeconds, 0.75);
  EXPECT_DOUBLE_EQ(speechLike.longestActiveDurationSeconds, 0.15);
  EXPECT_DOUBLE_EQ(speechLike.speechLikeFrameRatio, 0.5);

  Configuration longerRuns = buttonPress();
  longerRuns.minimumConsecutiveSpeechDurationSeconds = 0.2;
  EXPECT_FALSE(AudioSpeechActivityDetector::containsSpeech(frames(syllables, rate), longerRuns));
}

TEST(AudioSpeechActivityDetectorTest, ConfigurationsAndAnalysesCompareAndHashByValue) {
  const Configuration a = buttonPress();
  Configuration b = buttonPress();
  EXPECT_EQ(a, b);
  EXPECT_EQ(std::hash<Configuration>()(a), std::hash<Configuration>()(b));
  b.noiseFloorMultiplier = 3.0f;
  EXPECT_NE(a, b);

  const auto analysis = analyze({mono(alternating(1000, 100), 100)}, permissive(0.1));
  auto same = analysis;
  EXPECT_EQ(std::hash<AudioSpeechActivityAnalysis>()(analysis), std::hash<AudioSpeechActivityAnalysis>()(same));
  same.averageRMS += 0.5f;
  EXPECT_NE(analysis, same);
}

}  // namespace
}  // namespace orvid
