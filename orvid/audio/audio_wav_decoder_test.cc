#include "orvid/audio/audio_wav_decoder.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

void putLittleEndian(Bytes& bytes, std::size_t offset, std::uint32_t value, int size) {
  for (int i = 0; i < size; ++i) bytes.at(offset + i) = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
}

void appendChunk(Bytes& bytes, const std::string& identifier, std::uint32_t declaredLength, const Bytes& body) {
  bytes.insert(bytes.end(), identifier.begin(), identifier.end());
  bytes.resize(bytes.size() + 4);
  putLittleEndian(bytes, bytes.size() - 4, declaredLength, 4);
  bytes.insert(bytes.end(), body.begin(), body.end());
}

Bytes formatPrefix(std::uint16_t channels, std::uint32_t sampleRate, std::uint16_t bitsPerSample) {
  Bytes bytes = bytesFromString(std::string_view("RIFF\0\0\0\0WAVE", 12));
  appendChunk(bytes, "fmt ", 16, Bytes(16, 0));
  putLittleEndian(bytes, 20, 1, 2);
  putLittleEndian(bytes, 22, channels, 2);
  putLittleEndian(bytes, 24, sampleRate, 4);
  putLittleEndian(bytes, 28, sampleRate * channels * 2, 4);
  putLittleEndian(bytes, 32, channels * 2u, 2);
  putLittleEndian(bytes, 34, bitsPerSample, 2);
  return bytes;
}

Bytes countingBytes(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>((i * 7 + i / 256) & 0xFF);
  return bytes;
}

Bytes wavWithData(std::uint16_t channels, const Bytes& data) {
  Bytes wav = formatPrefix(channels, 22050, 16);
  appendChunk(wav, "data", static_cast<std::uint32_t>(data.size()), data);
  return wav;
}

Bytes concatenated(const std::vector<PCMFrame>& frames) {
  Bytes bytes;
  for (const PCMFrame& frame : frames) {
    bytes.insert(bytes.end(), frame.pcm16LittleEndian.begin(), frame.pcm16LittleEndian.end());
  }
  return bytes;
}

std::vector<int> sampleCounts(const std::vector<PCMFrame>& frames) {
  std::vector<int> counts;
  for (const PCMFrame& frame : frames) counts.push_back(frame.sampleCount);
  return counts;
}

TEST(AudioWAVDecoderTest, CutsTheSamplesIntoFramesOfTheRequestedSize) {
  for (const auto& [channels, sampleFrames, samplesPerFrame, expectedCounts] :
       std::vector<std::tuple<std::uint16_t, std::size_t, int, std::vector<int>>>{
           {1, 1000, 320, {320, 320, 320, 40}}, {3, 7, 4, {4, 3}}}) {
    const Bytes data = countingBytes(sampleFrames * channels * 2);
    const auto frames = AudioWAVDecoder::decode(wavWithData(channels, data), samplesPerFrame);
    EXPECT_EQ(sampleCounts(frames), expectedCounts) << channels << " channels";
    EXPECT_EQ(concatenated(frames), data);
  }
}

TEST(AudioWAVDecoderTest, FindsTheDataAfterOtherChunksAndTheirPadBytes) {
  const Bytes samples = {0x11, 0x22, 0x33, 0x44};
  Bytes wav = formatPrefix(1, 16000, 16);
  appendChunk(wav, "LIST", 3, {'a', 'b', 'c', 0});
  appendChunk(wav, "data", 4, samples);
  putLittleEndian(wav, 4, 0xFFFFFFFF, 4);  // the RIFF length is not read

  EXPECT_EQ(AudioWAVDecoder::decode(wav, 160), (std::vector<PCMFrame>{{samples, 16000, 1, 2}}));
}

TEST(AudioWAVDecoderTest, RejectsMalformedHeadersInTheOrderTheyAreChecked) {
  using Error = AudioWAVDecoderError;
  const Bytes valid = wavWithData(1, countingBytes(8));
  auto with = [&](auto change) {
    Bytes wav = valid;
    change(wav);
    return wav;
  };
  struct Case { std::string name; Bytes wav; int samplesPerFrame; Error expected; };
  const std::vector<Case> cases = {
      {"43 bytes", Bytes(valid.begin(), valid.begin() + 43), 0, Error::truncatedHeader()},
      {"no RIFF", with([](Bytes& b) { b[0] = 'r'; }), 320, Error::notAWAVFile()},
      {"no fmt", with([](Bytes& b) { b[14] = 'x'; }), 320, Error::missingFmtChunk()},
      {"no data chunk, 8 bits", with([](Bytes& b) {
         b[36] = 'D';
         putLittleEndian(b, 34, 8, 2);
       }), 320, Error::missingDataChunk()},
      {"chunk of length 0xFFFFFFFF before the data", with([](Bytes& b) {
         b[36] = 'J';
         putLittleEndian(b, 40, 0xFFFFFFFF, 4);
       }), 320, Error::missingDataChunk()},
      {"8 bits", with([](Bytes& b) { putLittleEndian(b, 34, 8, 2); }), 320, Error::unsupportedBitDepth(8)},
      {"0 samples per frame", valid, 0, Error::invalidSamplesPerFrame()},
      {"zero channels", with([](Bytes& b) { putLittleEndian(b, 22, 0, 2); }), 320, Error::missingFmtChunk()},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    try {
      AudioWAVDecoder::decode(testCase.wav, testCase.samplesPerFrame);
      ADD_FAILURE() << "no error";
    } catch (const AudioWAVDecoderError& error) {
      EXPECT_EQ(error, testCase.expected) << error.what();
    }
  }
}

TEST(AudioWAVDecoderTest, DecodesOnlyTheWholeFramesTheFileHolds) {
  const Bytes data = countingBytes(2000);
  auto declaring = [&](std::uint32_t declared, std::size_t stored) {
    Bytes wav = formatPrefix(1, 16000, 16);
    appendChunk(wav, "data", declared, Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(stored)));
    return wav;
  };
  const std::vector<std::tuple<std::string, Bytes, std::vector<int>>> cases = {
      {"data size one byte beyond the file", declaring(2001, 2000), {320, 320, 320, 40}},
      {"last frame one byte short", declaring(2000, 1999), {320, 320, 320}},
      {"less than one stereo sample", wavWithData(2, {1, 2, 3}), {}},
      {"negative channel count", wavWithData(0xFFFF, data), {}},
  };
  for (const auto& [name, wav, expectedCounts] : cases) {
    EXPECT_EQ(sampleCounts(AudioWAVDecoder::decode(wav, 320)), expectedCounts) << name;
  }
}

}  // namespace
}  // namespace orvid
