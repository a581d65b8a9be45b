#include "orvid/audio/pcm16_resampler.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace orvid::PCM16Resampler {
namespace {

bool isPositiveRate(double rate) { return std::isfinite(rate) && rate > 0; }

// Sample `index` of little-endian 16-bit data, low byte first.
double sampleAt(const std::uint8_t* bytes, std::size_t index) {
  auto low = static_cast<std::uint16_t>(bytes[2 * index]);
  auto high = static_cast<std::uint16_t>(bytes[2 * index + 1]);
  return static_cast<std::int16_t>(static_cast<std::uint16_t>(low | (high << 8)));
}

}  // namespace

PCMFrame resample(const PCMFrame& frame, double targetSampleRate) {
  if (frame.channelCount != 1 || !isPositiveRate(frame.sampleRate) || !isPositiveRate(targetSampleRate) ||
      frame.sampleRate == targetSampleRate) {
    return frame;
  }
  const std::size_t inputCount = frame.pcm16LittleEndian.size() / 2;
  if (inputCount == 0) return PCMFrame{{}, targetSampleRate, 1, 0};

  const double ratio = targetSampleRate / frame.sampleRate;
  if (!(ratio <= kMaximumUpsamplingRatio)) {
    throw std::length_error("Resampling would multiply the number of samples by more than 1024.");
  }
  const double roundedCount = std::round(ratio * static_cast<double>(inputCount));
  if (!(roundedCount <= static_cast<double>(std::numeric_limits<int>::max()))) {
    throw std::length_error("Resampled audio would hold more samples than a PCM frame can count.");
  }
  const std::size_t outputCount = std::max<std::size_t>(static_cast<std::size_t>(roundedCount), 1);

  const std::uint8_t* input = frame.pcm16LittleEndian.data();
  const std::size_t lastIndex = inputCount - 1;
  const double lastPosition = static_cast<double>(lastIndex);
  Bytes output(2 * outputCount);
  std::uint8_t* out = output.data();
  for (std::size_t i = 0; i < outputCount; ++i) {
    const double position = static_cast<double>(i) / ratio;
    const double floored = std::floor(position);
    const std::size_t i0 = floored <= 0 ? 0 : (floored >= lastPosition ? lastIndex : static_cast<std::size_t>(floored));
    const std::size_t i1 = std::min(i0 + 1, lastIndex);
    const double s0 = sampleAt(input, i0);
    const double value = std::round((position - static_cast<double>(i0)) * (sampleAt(input, i1) - s0) + s0);
    const auto sample = static_cast<std::uint16_t>(static_cast<std::int16_t>(std::clamp(value, -32768.0, 32767.0)));
    out[2 * i] = static_cast<std::uint8_t>(sample & 0xFF);
    out[2 * i + 1] = static_cast<std::uint8_t>(sample >> 8);
  }
  return PCMFrame{std::move(output), targetSampleRate, 1, static_cast<int>(outputCount)};
}

}  // namespace orvid::PCM16Resampler
