#include "orvid/audio/audio_speech_activity_detector.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>

#include "orvid/platform/internal/hash.h"

namespace orvid {
namespace AudioSpeechActivityDetector {
namespace {

struct WindowMetrics {
  std::size_t sampleCount = 0;
  float rms = 0;
  float peak = 0;
  float zeroCrossingRate = 0;
};

// The window being filled.
struct OpenWindow {
  std::size_t sampleCount = 0;
  double sumOfSquares = 0;
  float peak = 0;
  std::size_t zeroCrossings = 0;
  float previous = 0;

  WindowMetrics close() const {
    WindowMetrics metrics;
    metrics.sampleCount = sampleCount;
    metrics.rms = static_cast<float>(std::sqrt(sumOfSquares / static_cast<double>(sampleCount)));
    metrics.peak = peak;
    if (sampleCount >= 2) {
      metrics.zeroCrossingRate =
          static_cast<float>(static_cast<double>(zeroCrossings) / static_cast<double>(sampleCount - 1));
    }
    return metrics;
  }
};

// Window length in samples: round(rate × duration), at least 1; a length beyond any
// recording is kept as the largest count.
std::size_t windowSize(double rate, double durationSeconds) {
  const double rounded = std::round(rate * durationSeconds);
  if (!(rounded >= 1)) return 1;
  constexpr double kLargest = 9.0e18;
  if (rounded >= kLargest) return static_cast<std::size_t>(kLargest);
  return static_cast<std::size_t>(rounded);
}

// Sample frames of `frame` that the analysis reads.
std::size_t usableSampleFrames(const PCMFrame& frame) {
  const std::size_t channels = static_cast<std::size_t>(std::max(frame.channelCount, 1));
  std::size_t count = frame.pcm16LittleEndian.size() / 2 / channels;
  if (frame.sampleCount >= 1 && static_cast<std::size_t>(frame.sampleCount) < count) {
    count = static_cast<std::size_t>(frame.sampleCount);
  }
  return count;
}

std::int32_t sampleAt(const std::uint8_t* bytes, std::size_t index) {
  return static_cast<std::int16_t>(
      static_cast<std::uint16_t>(bytes[2 * index] | (static_cast<std::uint16_t>(bytes[2 * index + 1]) << 8)));
}

}  // namespace

AudioSpeechActivityAnalysis analyze(const std::vector<PCMFrame>& frames, const Configuration& configuration) {
  const auto rated = std::find_if(frames.begin(), frames.end(), [](const PCMFrame& frame) {
    return frame.sampleRate > 0;
  });
  if (rated == frames.end()) return {};
  const double rate = rated->sampleRate;
  const std::size_t window = windowSize(rate, configuration.analysisWindowDurationSeconds);

  std::size_t expectedSamples = 0;
  for (const PCMFrame& frame : frames) expectedSamples += usableSampleFrames(frame);
  std::vector<WindowMetrics> windows;
  windows.reserve(expectedSamples / window + 1);

  std::size_t totalSamples = 0;
  double totalSumOfSquares = 0;
  float totalPeak = 0;
  OpenWindow current;
  for (const PCMFrame& frame : frames) {
    const std::size_t count = usableSampleFrames(frame);
    if (count < 1) continue;
    const std::size_t channels = static_cast<std::size_t>(std::max(frame.channelCount, 1));
    const double channelScale = static_cast<double>(channels);
    const std::uint8_t* bytes = frame.pcm16LittleEndian.data();
    for (std::size_t index = 0; index < count; ++index) {
      std::int64_t sum = 0;
      const std::size_t base = index * channels;
      for (std::size_t channel = 0; channel < channels; ++channel) sum += sampleAt(bytes, base + channel);
      const auto m = static_cast<float>(static_cast<double>(sum) / channelScale * (1.0 / 32768.0));
      const double square = static_cast<double>(m) * static_cast<double>(m);
      const float magnitude = std::fabs(m);

      ++totalSamples;
      totalSumOfSquares += square;
      totalPeak = std::max(totalPeak, magnitude);

      if (current.sampleCount > 0 && current.previous != 0 && m != 0 && (current.previous < 0) != (m < 0)) {
        ++current.zeroCrossings;
      }
      ++current.sampleCount;
      current.sumOfSquares += square;
      current.peak = std::max(current.peak, magnitude);
      current.previous = m;
      if (current.sampleCount == window) {
        windows.push_back(current.close());
        current = OpenWindow{};
      }
    }
  }
  if (current.sampleCount > 0) windows.push_back(current.close());
  if (totalSamples == 0 || windows.empty()) return {};

  std::vector<float> levels;
  levels.reserve(windows.size());
  for (const WindowMetrics& metrics : windows) levels.push_back(metrics.rms);
  const std::size_t last = levels.size() - 1;
  const std::size_t floorIndex = std::min(static_cast<std::size_t>(static_cast<double>(last) * 0.2), last);
  std::nth_element(levels.begin(), levels.begin() + static_cast<std::ptrdiff_t>(floorIndex), levels.end());
  const float noiseFloor = levels[floorIndex];
  const float threshold = std::max(configuration.minimumRMSAmplitude, noiseFloor * configuration.noiseFloorMultiplier);

  std::size_t speechLikeWindows = 0;
  std::size_t activeSamples = 0;
  std::size_t runSamples = 0;
  std::size_t longestRunSamples = 0;
  for (const WindowMetrics& metrics : windows) {
    const bool speechLike = metrics.rms >= threshold &&
                            configuration.minimumZeroCrossingRate <= metrics.zeroCrossingRate &&
                            metrics.zeroCrossingRate <= configuration.maximumZeroCrossingRate;
    if (speechLike) {
      ++speechLikeWindows;
      activeSamples += metrics.sampleCount;
      runSamples += metrics.sampleCount;
      longestRunSamples = std::max(longestRunSamples, runSamples);
    } else {
      runSamples = 0;
    }
  }

  AudioSpeechActivityAnalysis analysis;
  analysis.durationSeconds = static_cast<double>(totalSamples) / rate;
  analysis.activeDurationSeconds = static_cast<double>(activeSamples) / rate;
  analysis.longestActiveDurationSeconds = static_cast<double>(longestRunSamples) / rate;
  analysis.peakAmplitude = totalPeak;
  analysis.averageRMS = static_cast<float>(std::sqrt(totalSumOfSquares / static_cast<double>(totalSamples)));
  analysis.speechLikeFrameRatio = static_cast<double>(speechLikeWindows) / static_cast<double>(windows.size());
  analysis.containsSpeech =
      analysis.durationSeconds >= configuration.minimumClipDurationSeconds &&
      analysis.peakAmplitude >= configuration.minimumPeakAmplitude &&
      analysis.activeDurationSeconds >= configuration.minimumSpeechDurationSeconds &&
      analysis.longestActiveDurationSeconds >= configuration.minimumConsecutiveSpeechDurationSeconds;
  return analysis;
}

bool containsSpeech(const std::vector<PCMFrame>& frames, const Configuration& configuration) {
  return analyze(frames, configuration).containsSpeech;
}

}  // namespace AudioSpeechActivityDetector
}  // namespace orvid

std::size_t std::hash<orvid::AudioSpeechActivityAnalysis>::operator()(
    const orvid::AudioSpeechActivityAnalysis& analysis) const noexcept {
  return orvid::internal::hashCombinedValues(0, analysis.containsSpeech, analysis.durationSeconds,
                                             analysis.activeDurationSeconds, analysis.longestActiveDurationSeconds,
                                             analysis.peakAmplitude, analysis.averageRMS,
                                             analysis.speechLikeFrameRatio);
}

std::size_t std::hash<orvid::AudioSpeechActivityDetector::Configuration>::operator()(
    const orvid::AudioSpeechActivityDetector::Configuration& configuration) const noexcept {
  return orvid::internal::hashCombinedValues(
      0, configuration.analysisWindowDurationSeconds, configuration.minimumClipDurationSeconds,
      configuration.minimumSpeechDurationSeconds, configuration.minimumConsecutiveSpeechDurationSeconds,
      configuration.minimumRMSAmplitude, configuration.minimumPeakAmplitude, configuration.noiseFloorMultiplier,
      configuration.minimumZeroCrossingRate, configuration.maximumZeroCrossingRate);
}
