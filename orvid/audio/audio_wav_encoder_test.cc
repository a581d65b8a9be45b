#include "orvid/audio/audio_wav_encoder.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

std::uint32_t readLittleEndian(const Bytes& bytes, std::size_t offset, int size) {
  std::uint32_t value = 0;
  for (int i = size - 1; i >= 0; --i) value = (value << 8) | bytes.at(offset + static_cast<std::size_t>(i));
  return value;
}

TEST(AudioWAVEncoderTest, WritesTheCanonicalHeaderFollowedByTheSamples) {
  const Bytes pcm = {0x01, 0x02, 0x03, 0x04, 0xFE, 0xFF};
  const Bytes wav = AudioWAVEncoder::encodePCM16(pcm, 22050, 2, 16);

  const Bytes expectedHeader = {
      'R', 'I', 'F', 'F', 42, 0, 0, 0,         // RIFF, 6 + 36
      'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',  // WAVE, "fmt "
      16, 0, 0, 0, 1, 0, 2, 0,                 // chunk length 16, PCM, 2 channels
      0x22, 0x56, 0, 0,                        // 22050 Hz
      0x88, 0x58, 0x01, 0,                     // 22050 × 2 × 2 = 88200
      4, 0, 16, 0,                             // block align 4, 16 bits
      'd', 'a', 't', 'a', 6, 0, 0, 0,          // data, 6 bytes
  };
  ASSERT_EQ(wav.size(), 44u + pcm.size());
  EXPECT_EQ(Bytes(wav.begin(), wav.begin() + 44), expectedHeader);
  EXPECT_EQ(Bytes(wav.begin() + 44, wav.end()), pcm);
}

TEST(AudioWAVEncoderTest, DerivesByteRateAndBlockAlignFromWholeBytesPerSample) {
  struct Case {
    std::uint32_t sampleRate;
    std::uint16_t channels;
    std::uint16_t bitsPerSample;
    std::uint32_t byteRate;
    std::uint16_t blockAlign;
  };
  const std::vector<Case> cases = {
      {44100, 2, 24, 264600, 6},
      {8000, 1, 8, 8000, 1},
      // 12 bits are one whole byte per sample.
      {8000, 3, 12, 24000, 3},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(std::to_string(testCase.bitsPerSample) + " bits");
    const Bytes wav =
        AudioWAVEncoder::encodePCM16(Bytes{}, testCase.sampleRate, testCase.channels, testCase.bitsPerSample);
    EXPECT_EQ(readLittleEndian(wav, 28, 4), testCase.byteRate);
    EXPECT_EQ(readLittleEndian(wav, 32, 2), testCase.blockAlign);
  }
}

TEST(AudioWAVEncoderTest, TakesTheFormatFromTheFirstFrameTruncatedAndConcatenatesAllFrames) {
  const PCMFrame first{{0x01, 0x00, 0x02, 0x00}, 16000.9, 1, 2};
  const PCMFrame second{{0x03, 0x00, 0x04, 0x00, 0x05, 0x00}, 48000, 1, 3};
  const Bytes wav = AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{first, second});

  EXPECT_EQ(readLittleEndian(wav, 24, 4), 16000u);
  EXPECT_EQ(readLittleEndian(wav, 40, 4), 10u);
  EXPECT_EQ(readLittleEndian(wav, 4, 4), 46u);
  EXPECT_EQ(Bytes(wav.begin() + 44, wav.end()), (Bytes{1, 0, 2, 0, 3, 0, 4, 0, 5, 0}));
  EXPECT_THROW(AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{}), OpusOrvidError);
}

TEST(AudioWAVEncoderTest, RejectsFormatsThatDoNotFitTheHeader) {
  struct Case { std::string name; PCMFrame frame; };
  const std::vector<Case> cases = {
      {"rate beyond 32 bits", {{}, 4294967296.0, 1, 0}},
      {"rate at or below -1", {{}, -1.0, 1, 0}},
      {"NaN rate", {{}, std::nan(""), 1, 0}},
      {"negative channels", {{}, 16000, -1, 0}},
      // Block align 2 × 32768 does not fit in 16 bits.
      {"32768 channels", {{}, 8000, 32768, 0}},
      // Byte rate 2^31 × 1 × 2 does not fit in 32 bits.
      {"byte rate beyond 32 bits", {{}, 2147483648.0, 1, 0}},
  };
  for (const auto& testCase : cases) {
    EXPECT_THROW(AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{testCase.frame}), std::invalid_argument)
        << testCase.name;
  }
  EXPECT_NO_THROW(AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{{{}, 8000, 32767, 0}}));
  EXPECT_NO_THROW(AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{{{}, 4294967295.5, 0, 0}}));
  EXPECT_THROW(AudioWAVEncoder::encodePCM16(Bytes{}, 4294967295u, 2, 16), std::invalid_argument);
  EXPECT_NO_THROW(AudioWAVEncoder::encodePCM16(Bytes{}, 4294967295u, 1, 8));
}

TEST(AudioWAVEncoderTest, SilenceHoldsTheTruncatedDurationOfZeroSamples) {
  struct Case { double sampleRate; int durationMilliseconds; std::size_t samples; };
  const std::vector<Case> cases = {
      // 44.1 samples truncate to 44.
      {44100, 1, 44},
      {8000, 0, 0},
      {1, 999, 0},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(std::to_string(testCase.sampleRate) + " Hz, " + std::to_string(testCase.durationMilliseconds));
    const auto rate = static_cast<std::uint32_t>(testCase.sampleRate);
    const Bytes wav = AudioWAVEncoder::silentWAV(rate, testCase.durationMilliseconds);
    EXPECT_EQ(wav, AudioWAVEncoder::encodePCM16(Bytes(2 * testCase.samples, 0), rate, 1, 16));

    const PCMFrame frame = AudioWAVEncoder::silentPCMFrame(testCase.sampleRate + 0.9, testCase.durationMilliseconds);
    EXPECT_EQ(frame, (PCMFrame{Bytes(2 * testCase.samples, 0), testCase.sampleRate + 0.9, 1,
                               static_cast<int>(testCase.samples)}));
  }
}

TEST(AudioWAVEncoderTest, SilenceRejectsNegativeDurationsAndCountsThatDoNotFit) {
  EXPECT_THROW(AudioWAVEncoder::silentWAV(16000, -1), std::invalid_argument);
  // 4294967295 Hz for 1001 ms is far beyond 4 GB of samples.
  EXPECT_THROW(AudioWAVEncoder::silentWAV(4294967295u, 1001), std::invalid_argument);
  const std::vector<std::pair<double, int>> frames = {
      {16000, -1}, {-16000, 1000}, {std::nan(""), 10}, {std::numeric_limits<double>::infinity(), 10},
      // 4294967295 × 1000 ÷ 1000 samples exceed INT_MAX.
      {4294967295.0, 1000},
  };
  for (const auto& [sampleRate, duration] : frames) {
    EXPECT_THROW(AudioWAVEncoder::silentPCMFrame(sampleRate, duration), std::invalid_argument)
        << sampleRate << " Hz " << duration << " ms";
  }
}

}  // namespace
}  // namespace orvid
