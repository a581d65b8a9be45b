#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "orvid/core/pcm_frame.h"

namespace orvid {

// What the energy-based detector measured over a recording. All numbers are 0 and
// containsSpeech is false for a recording without samples.
struct AudioSpeechActivityAnalysis {
  bool containsSpeech = false;
  double durationSeconds = 0;
  // Time covered by speech-like windows.
  double activeDurationSeconds = 0;
  // Longest run of consecutive speech-like windows.
  double longestActiveDurationSeconds = 0;
  // Largest absolute sample value; full scale is 1.
  float peakAmplitude = 0;
  // RMS over the whole recording; full scale is 1.
  float averageRMS = 0;
  // Speech-like windows ÷ all windows.
  double speechLikeFrameRatio = 0;

  bool operator==(const AudioSpeechActivityAnalysis&) const = default;
};

// Tells a recording with speech from one with only silence or room noise, from signal
// energy alone: the audio is cut into fixed windows, each window's RMS, peak and
// zero-crossing rate are measured, a noise floor is taken from the quietest windows,
// and the speech-like time is checked against the thresholds of a Configuration.
namespace AudioSpeechActivityDetector {

// Thresholds of the analysis; the caller gives every field.
struct Configuration {
  double analysisWindowDurationSeconds;
  double minimumClipDurationSeconds;
  // Total speech-like time required.
  double minimumSpeechDurationSeconds;
  // Longest uninterrupted speech-like time required.
  double minimumConsecutiveSpeechDurationSeconds;
  // Absolute floor of a speech-like window's RMS (full scale is 1).
  float minimumRMSAmplitude;
  // Required overall peak (full scale is 1).
  float minimumPeakAmplitude;
  // A speech-like window's RMS is at least the noise floor (the 20th percentile of the
  // window RMS values) times this.
  float noiseFloorMultiplier;
  // Bounds of a speech-like window's zero crossings per sample step.
  float minimumZeroCrossingRate;
  float maximumZeroCrossingRate;

  bool operator==(const Configuration&) const = default;
};

// Measures `frames` in order at the rate of the first frame with a positive rate, in
// windows of round(rate × analysisWindowDurationSeconds) samples (at least 1) that run
// across frame boundaries. Multi-channel frames are averaged to mono; a frame is read
// up to its sampleCount when that is positive and smaller than its bytes allow.
// containsSpeech is true when the duration, the peak, the speech-like time and the
// longest speech-like run all reach the configured minimums.
AudioSpeechActivityAnalysis analyze(const std::vector<PCMFrame>& frames, const Configuration& configuration);

// The containsSpeech of analyze(frames, configuration).
bool containsSpeech(const std::vector<PCMFrame>& frames, const Configuration& configuration);

}  // namespace AudioSpeechActivityDetector

}  // namespace orvid

template <>
struct std::hash<orvid::AudioSpeechActivityAnalysis> {
  std::size_t operator()(const orvid::AudioSpeechActivityAnalysis& analysis) const noexcept;
};

template <>
struct std::hash<orvid::AudioSpeechActivityDetector::Configuration> {
  std::size_t operator()(const orvid::AudioSpeechActivityDetector::Configuration& configuration) const noexcept;
};
