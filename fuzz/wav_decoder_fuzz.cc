// Feeds arbitrary bytes to AudioWAVDecoder::decode. The first byte picks the frame
// size; the rest is the file. The decoder may only throw AudioWAVDecoderError, and
// the frames it returns must be whole sample frames copied from the file that
// decode back to themselves once written out again.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "orvid/audio/audio_wav_decoder.h"

namespace {

using orvid::fuzz::require;

using orvid::AudioWAVDecoderError;
using orvid::Bytes;
using orvid::PCMFrame;
namespace AudioWAVDecoder = orvid::AudioWAVDecoder;

constexpr std::array<int, 9> kFrameSizes = {1, 2, 3, 160, 320, 4096, INT_MAX, 0, -1};

void putLittleEndian(Bytes& bytes, std::size_t offset, std::uint32_t value, int size) {
  for (int i = 0; i < size; ++i) bytes[offset + i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
}

// A 16-bit WAV file of `sampleFrames` distinct samples.
Bytes wav(double sampleRate, int channels, int sampleFrames) {
  Bytes samples(static_cast<std::size_t>(sampleFrames * channels * 2));
  for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<std::uint8_t>(i * 37);
  return *AudioWAVDecoder::encodeWAV({PCMFrame{samples, sampleRate, channels, sampleFrames}});
}

Bytes withFrameSize(std::uint8_t choice, const Bytes& file) {
  Bytes input = {choice};
  input.insert(input.end(), file.begin(), file.end());
  return input;
}

orvid::fuzz::Seeds seeds() {
  Bytes listFirst = wav(44100, 2, 30);
  const Bytes list = {'L', 'I', 'S', 'T', 3, 0, 0, 0, 'a', 'b', 'c', 0};
  listFirst.insert(listFirst.begin() + 36, list.begin(), list.end());
  Bytes claimsMore = wav(16000, 1, 100);
  putLittleEndian(claimsMore, 40, 4000, 4);
  Bytes eightBit = wav(8000, 1, 10);
  putLittleEndian(eightBit, 34, 8, 2);
  return {
      {"mono", withFrameSize(4, wav(16000, 1, 1000))},
      {"stereo-after-list", withFrameSize(2, listFirst)},
      {"data-beyond-file", withFrameSize(3, claimsMore)},
      {"eight-bit", withFrameSize(0, eightBit)},
      {"empty-data", withFrameSize(1, wav(16000, 1, 0))},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int samplesPerFrame = kFrameSizes[data[0] % kFrameSizes.size()];
  const Bytes file(data + 1, data + size);

  std::vector<PCMFrame> frames;
  try {
    frames = AudioWAVDecoder::decode(file, samplesPerFrame);
  } catch (const AudioWAVDecoderError&) {
    return 0;
  }
  if (frames.empty()) return 0;

  Bytes run;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const PCMFrame& frame = frames[i];
    require(frame.channelCount >= 1, "frames have at least one channel");
    require(frame.channelCount == frames[0].channelCount && frame.sampleRate == frames[0].sampleRate,
            "frames share the header's format");
    require(frame.sampleCount >= 1 && frame.sampleCount <= samplesPerFrame, "frames hold 1 to samplesPerFrame");
    require(i + 1 == frames.size() || frame.sampleCount == samplesPerFrame, "only the last frame is short");
    require(frame.pcm16LittleEndian.size() == static_cast<std::size_t>(frame.sampleCount) * frame.channelCount * 2,
            "frame bytes are whole sample frames");
    run.insert(run.end(), frame.pcm16LittleEndian.begin(), frame.pcm16LittleEndian.end());
  }
  require(run.size() + 44 <= file.size(), "samples come from after the header");
  require(std::search(file.begin() + 44, file.end(), run.begin(), run.end()) != file.end(),
          "samples are one run of the file");

  std::optional<Bytes> rewritten;
  try {
    rewritten = AudioWAVDecoder::encodeWAV(frames);
  } catch (const std::invalid_argument&) {
    return 0;  // a format the writer cannot hold
  }
  require(rewritten.has_value() && AudioWAVDecoder::decode(*rewritten, samplesPerFrame) == frames,
          "written frames decode back to themselves");
  return 0;
}
