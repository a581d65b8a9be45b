#pragma once

#include "orvid/core/pcm_frame.h"

// Sample-rate conversion of 16-bit mono audio, as the real-time services want it.
namespace orvid::PCM16Resampler {

// Resamples one mono frame to `targetSampleRate` by linear interpolation (no filtering
// before decimation; the last sample is held at the end). The output has
// round(N × target ÷ source) samples, at least 1, rounding half away from zero; each
// value is rounded half away from zero. A trailing odd byte of the input is ignored.
// Comes back unchanged: frames that are not mono, frames or targets whose rate is not
// a positive finite number, and targets equal to the frame's rate. A mono frame with
// no whole sample becomes an empty frame at the target rate.
// Rates come from untrusted headers, so the output is bounded by the input: throws
// std::length_error when the target rate exceeds kMaximumUpsamplingRatio times the
// frame's rate (no pair of real audio rates comes near it: 8 kHz to 768 kHz is 96),
// or when the output would hold more samples than a PCMFrame can count (INT_MAX).
PCMFrame resample(const PCMFrame& frame, double targetSampleRate);

inline constexpr double kMaximumUpsamplingRatio = 1024;

}  // namespace orvid::PCM16Resampler
