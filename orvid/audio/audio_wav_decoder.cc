#include "orvid/audio/audio_wav_decoder.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace orvid {
namespace {

std::string messageFor(AudioWAVDecoderError::Case errorCase, std::int16_t bitsPerSample) {
  using Case = AudioWAVDecoderError::Case;
  switch (errorCase) {
    case Case::unsupportedBitDepth:
      return "unsupportedBitDepth(" + std::to_string(bitsPerSample) + ")";
    case Case::truncatedHeader:
      return "truncatedHeader";
    case Case::notAWAVFile:
      return "notAWAVFile";
    case Case::missingFmtChunk:
      return "missingFmtChunk";
    case Case::missingDataChunk:
      return "missingDataChunk";
    case Case::invalidSamplesPerFrame:
      return "invalidSamplesPerFrame";
  }
  return "invalidSamplesPerFrame";
}

}  // namespace

AudioWAVDecoderError::AudioWAVDecoderError(Case errorCase, std::int16_t bitsPerSample)
    : case_(errorCase), bitsPerSample_(bitsPerSample), message_(messageFor(errorCase, bitsPerSample)) {}

AudioWAVDecoderError AudioWAVDecoderError::unsupportedBitDepth(std::int16_t bitsPerSample) {
  return {Case::unsupportedBitDepth, bitsPerSample};
}
AudioWAVDecoderError AudioWAVDecoderError::truncatedHeader() { return {Case::truncatedHeader, 0}; }
AudioWAVDecoderError AudioWAVDecoderError::notAWAVFile() { return {Case::notAWAVFile, 0}; }
AudioWAVDecoderError AudioWAVDecoderError::missingFmtChunk() { return {Case::missingFmtChunk, 0}; }
AudioWAVDecoderError AudioWAVDecoderError::missingDataChunk() { return {Case::missingDataChunk, 0}; }
AudioWAVDecoderError AudioWAVDecoderError::invalidSamplesPerFrame() { return {Case::invalidSamplesPerFrame, 0}; }

namespace AudioWAVDecoder {
namespace {

constexpr std::size_t kHeaderSize = 44;

struct WAVHeader {
  std::int32_t sampleRate = 0;
  std::int16_t channels = 0;
  std::int16_t bitsPerSample = 0;
  std::size_t dataOffset = 0;
  std::size_t dataSize = 0;
};

std::uint16_t readUInt16(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

std::uint32_t readUInt32(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(bytes[offset]) | (static_cast<std::uint32_t>(bytes[offset + 1]) << 8) |
         (static_cast<std::uint32_t>(bytes[offset + 2]) << 16) | (static_cast<std::uint32_t>(bytes[offset + 3]) << 24);
}

bool hasTag(const Bytes& bytes, std::size_t offset, const char (&tag)[5]) {
  return std::memcmp(bytes.data() + offset, tag, 4) == 0;
}

WAVHeader parseHeader(const Bytes& wav) {
  if (wav.size() < kHeaderSize) throw AudioWAVDecoderError::truncatedHeader();
  if (!hasTag(wav, 0, "RIFF") || !hasTag(wav, 8, "WAVE")) throw AudioWAVDecoderError::notAWAVFile();
  if (!hasTag(wav, 12, "fmt ")) throw AudioWAVDecoderError::missingFmtChunk();
  WAVHeader header;
  header.channels = static_cast<std::int16_t>(readUInt16(wav, 22));
  header.sampleRate = static_cast<std::int32_t>(readUInt32(wav, 24));
  header.bitsPerSample = static_cast<std::int16_t>(readUInt16(wav, 34));
  // Every step advances by at least 8 bytes, and offsets stay below size + 2^32 + 9.
  std::size_t offset = 36;
  while (wav.size() - offset >= 8) {
    const std::uint32_t length = readUInt32(wav, offset + 4);
    if (hasTag(wav, offset, "data")) {
      header.dataOffset = offset + 8;
      header.dataSize = length;
      return header;
    }
    const std::size_t advance = std::size_t{8} + length + (length & 1u);
    if (advance > wav.size() - offset) break;
    offset += advance;
  }
  throw AudioWAVDecoderError::missingDataChunk();
}

void putInt16(std::uint8_t* out, std::int16_t value) {
  const auto bits = static_cast<std::uint16_t>(value);
  out[0] = static_cast<std::uint8_t>(bits & 0xFF);
  out[1] = static_cast<std::uint8_t>(bits >> 8);
}

void putInt32(std::uint8_t* out, std::int32_t value) {
  const auto bits = static_cast<std::uint32_t>(value);
  for (int i = 0; i < 4; ++i) out[i] = static_cast<std::uint8_t>((bits >> (8 * i)) & 0xFF);
}

void putTag(std::uint8_t* out, const char (&tag)[5]) { std::memcpy(out, tag, 4); }

template <typename Field>
bool fits(std::int64_t value) {
  return value >= std::numeric_limits<Field>::min() && value <= std::numeric_limits<Field>::max();
}

}  // namespace

std::vector<PCMFrame> decode(const Bytes& wav, int samplesPerFrame) {
  const WAVHeader header = parseHeader(wav);
  if (header.bitsPerSample != 16) throw AudioWAVDecoderError::unsupportedBitDepth(header.bitsPerSample);
  if (samplesPerFrame < 1) throw AudioWAVDecoderError::invalidSamplesPerFrame();
  if (header.channels == 0) throw AudioWAVDecoderError::missingFmtChunk();
  // A negative channel count declares no whole sample frame.
  if (header.channels < 0) return {};

  const std::size_t bytesPerFrame = static_cast<std::size_t>(header.channels) * 2;
  const std::size_t declaredFrames = header.dataSize / bytesPerFrame;
  if (declaredFrames < 1) return {};

  // Reserve for what the file can hold, not for what the header claims.
  const std::size_t storedFrames = std::min(declaredFrames, (wav.size() - header.dataOffset) / bytesPerFrame);
  const auto perFrame = static_cast<std::size_t>(samplesPerFrame);
  std::vector<PCMFrame> frames;
  frames.reserve(storedFrames / perFrame + 1);

  std::size_t offset = header.dataOffset;
  std::size_t remaining = declaredFrames;
  while (remaining > 0) {
    const std::size_t count = std::min(remaining, perFrame);
    const std::size_t length = count * bytesPerFrame;
    if (length > wav.size() - offset) break;
    const auto begin = wav.begin() + static_cast<std::ptrdiff_t>(offset);
    frames.push_back(PCMFrame{Bytes(begin, begin + static_cast<std::ptrdiff_t>(length)),
                              static_cast<double>(header.sampleRate), header.channels, static_cast<int>(count)});
    offset += length;
    remaining -= count;
  }
  return frames;
}

std::optional<Bytes> encodeWAV(const std::vector<PCMFrame>& frames) {
  if (frames.empty()) return std::nullopt;
  const PCMFrame& first = frames.front();
  const double rate = std::trunc(first.sampleRate);
  if (!(rate >= std::numeric_limits<std::int32_t>::min() && rate <= std::numeric_limits<std::int32_t>::max())) {
    throw std::invalid_argument("Sample rate " + std::to_string(first.sampleRate) + " does not fit a WAV header.");
  }
  if (!fits<std::int16_t>(first.channelCount)) {
    throw std::invalid_argument("Channel count " + std::to_string(first.channelCount) +
                                " does not fit a WAV header.");
  }
  const auto sampleRate = static_cast<std::int64_t>(rate);
  const std::int64_t channels = first.channelCount;
  const std::int64_t byteRate = channels * sampleRate * 2;
  const std::int64_t blockAlign = channels * 2;
  if (!fits<std::int32_t>(byteRate)) {
    throw std::invalid_argument("WAV byte rate " + std::to_string(byteRate) + " does not fit in 32 bits.");
  }
  if (!fits<std::int16_t>(blockAlign)) {
    throw std::invalid_argument("WAV block align " + std::to_string(blockAlign) + " does not fit in 16 bits.");
  }
  std::uint64_t dataSize = 0;
  for (const PCMFrame& frame : frames) dataSize += frame.pcm16LittleEndian.size();
  if (dataSize > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()) - 36) {
    throw std::invalid_argument("WAV sample data of " + std::to_string(dataSize) + " bytes exceeds 2 GB.");
  }

  Bytes wav;
  wav.reserve(kHeaderSize + dataSize);
  wav.resize(kHeaderSize);
  std::uint8_t* out = wav.data();
  putTag(out, "RIFF");
  putInt32(out + 4, static_cast<std::int32_t>(dataSize + 36));
  putTag(out + 8, "WAVE");
  putTag(out + 12, "fmt ");
  putInt32(out + 16, 16);
  putInt16(out + 20, 1);
  putInt16(out + 22, static_cast<std::int16_t>(channels));
  putInt32(out + 24, static_cast<std::int32_t>(sampleRate));
  putInt32(out + 28, static_cast<std::int32_t>(byteRate));
  putInt16(out + 32, static_cast<std::int16_t>(blockAlign));
  putInt16(out + 34, 16);
  putTag(out + 36, "data");
  putInt32(out + 40, static_cast<std::int32_t>(dataSize));
  for (const PCMFrame& frame : frames) {
    wav.insert(wav.end(), frame.pcm16LittleEndian.begin(), frame.pcm16LittleEndian.end());
  }
  return wav;
}

}  // namespace AudioWAVDecoder
}  // namespace orvid
