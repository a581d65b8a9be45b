#include "orvid/audio/audio_wav_encoder.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace orvid::AudioWAVEncoder {
namespace {

constexpr std::size_t kHeaderSize = 44;
constexpr std::uint64_t kUInt32Max = std::numeric_limits<std::uint32_t>::max();

void putUInt16(std::uint8_t* out, std::uint16_t value) {
  out[0] = static_cast<std::uint8_t>(value & 0xFF);
  out[1] = static_cast<std::uint8_t>(value >> 8);
}

void putUInt32(std::uint8_t* out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
}

void putTag(std::uint8_t* out, const char (&tag)[5]) {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<std::uint8_t>(tag[i]);
}

// Returns a buffer holding the 44-byte header for `dataSize` sample bytes, with room
// reserved for the samples that the caller appends.
Bytes headerFor(std::uint64_t dataSize, std::uint32_t sampleRate, std::uint16_t channels, std::uint16_t bitsPerSample) {
  const std::uint64_t bytesPerSample = bitsPerSample / 8;
  const std::uint64_t byteRate = static_cast<std::uint64_t>(sampleRate) * channels * bytesPerSample;
  const std::uint64_t blockAlign = channels * bytesPerSample;
  if (byteRate > kUInt32Max) {
    throw std::invalid_argument("WAV byte rate " + std::to_string(byteRate) + " does not fit in 32 bits.");
  }
  if (blockAlign > std::numeric_limits<std::uint16_t>::max()) {
    throw std::invalid_argument("WAV block align " + std::to_string(blockAlign) + " does not fit in 16 bits.");
  }
  if (dataSize > kUInt32Max - 36) {
    throw std::invalid_argument("WAV sample data of " + std::to_string(dataSize) + " bytes exceeds 4 GB.");
  }
  Bytes wav;
  wav.reserve(kHeaderSize + dataSize);
  wav.resize(kHeaderSize);
  std::uint8_t* out = wav.data();
  putTag(out, "RIFF");
  putUInt32(out + 4, static_cast<std::uint32_t>(dataSize + 36));
  putTag(out + 8, "WAVE");
  putTag(out + 12, "fmt ");
  putUInt32(out + 16, 16);
  putUInt16(out + 20, 1);
  putUInt16(out + 22, channels);
  putUInt32(out + 24, sampleRate);
  putUInt32(out + 28, static_cast<std::uint32_t>(byteRate));
  putUInt16(out + 32, static_cast<std::uint16_t>(blockAlign));
  putUInt16(out + 34, bitsPerSample);
  putTag(out + 36, "data");
  putUInt32(out + 40, static_cast<std::uint32_t>(dataSize));
  return wav;
}

}  // namespace

Bytes encodePCM16(const std::vector<PCMFrame>& frames) {
  if (frames.empty()) throw OpusOrvidError::emptyAudio();
  const PCMFrame& first = frames.front();
  // Truncation toward zero must land in 0...UInt32.max.
  if (!(first.sampleRate > -1.0 && first.sampleRate < static_cast<double>(kUInt32Max) + 1.0)) {
    throw std::invalid_argument("Sample rate " + std::to_string(first.sampleRate) + " does not fit a WAV header.");
  }
  if (first.channelCount < 0 || first.channelCount > std::numeric_limits<std::uint16_t>::max()) {
    throw std::invalid_argument("Channel count " + std::to_string(first.channelCount) +
                                " does not fit a WAV header.");
  }
  std::uint64_t dataSize = 0;
  for (const PCMFrame& frame : frames) dataSize += frame.pcm16LittleEndian.size();
  Bytes wav = headerFor(dataSize, static_cast<std::uint32_t>(first.sampleRate),
                        static_cast<std::uint16_t>(first.channelCount), 16);
  for (const PCMFrame& frame : frames) {
    wav.insert(wav.end(), frame.pcm16LittleEndian.begin(), frame.pcm16LittleEndian.end());
  }
  return wav;
}

Bytes encodePCM16(std::span<const std::uint8_t> pcm, std::uint32_t sampleRate, std::uint16_t channels,
                  std::uint16_t bitsPerSample) {
  Bytes wav = headerFor(pcm.size(), sampleRate, channels, bitsPerSample);
  wav.insert(wav.end(), pcm.begin(), pcm.end());
  return wav;
}

Bytes silentWAV(std::uint32_t sampleRate, int durationMilliseconds) {
  if (durationMilliseconds < 0) {
    throw std::invalid_argument("Silence duration " + std::to_string(durationMilliseconds) + " ms is negative.");
  }
  // At most (2^32 − 1) × (2^31 − 1), which fits in 64 unsigned bits.
  const std::uint64_t sampleCount = static_cast<std::uint64_t>(sampleRate) * durationMilliseconds / 1000;
  if (sampleCount > (kUInt32Max - 36) / 2) {
    throw std::invalid_argument("Silence of " + std::to_string(sampleCount) + " samples exceeds 4 GB.");
  }
  Bytes wav = headerFor(2 * sampleCount, sampleRate, 1, 16);
  wav.resize(kHeaderSize + 2 * sampleCount, 0);
  return wav;
}

PCMFrame silentPCMFrame(double sampleRate, int durationMilliseconds) {
  const double truncatedRate = std::trunc(sampleRate);
  // A rate whose product with any duration fits in 64 signed bits.
  constexpr double kLargestRate = 4294967295.0;
  if (!(std::fabs(truncatedRate) <= kLargestRate)) {
    throw std::invalid_argument("Sample rate " + std::to_string(sampleRate) + " is out of range for silence.");
  }
  const std::int64_t sampleCount = static_cast<std::int64_t>(truncatedRate) * durationMilliseconds / 1000;
  if (sampleCount < 0 || sampleCount > std::numeric_limits<int>::max()) {
    throw std::invalid_argument("Silence of " + std::to_string(sampleCount) + " samples cannot be held in a frame.");
  }
  return PCMFrame{Bytes(2 * static_cast<std::size_t>(sampleCount), 0), sampleRate, 1, static_cast<int>(sampleCount)};
}

}  // namespace orvid::AudioWAVEncoder
