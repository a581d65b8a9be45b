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

std::uint32_t readUInt32(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(bytes.at(offset)) | (static_cast<std::uint32_t>(bytes.at(offset + 1)) << 8) |
         (static_cast<std::uint32_t>(bytes.at(offset + 2)) << 16) |
         (static_cast<std::uint32_t>(bytes.at(offset + 3)) << 24);
}

std::uint16_t readUInt16(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes.at(offset) | (bytes.at(offset + 1) << 8));
}

std::string tagAt(const Bytes& bytes, std::size_t offset) {
  return std::string(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                     bytes.begin() + static_cast<std::ptrdiff_t>(offset + 4));
}

Bytes samplesFrom(const Bytes& wav) { return Bytes(wav.begin() + 44, wav.end()); }

TEST(AudioWAVEncoderTest, WritesTheCanonicalHeaderFollowedByTheSamples) {
  const Bytes pcm = {0x01, 0x02, 0x03, 0x04, 0xFE, 0xFF};
  const Bytes wav = AudioWAVEncoder::encodePCM16(pcm, 22050, 2, 16);

  const Bytes expectedHeader = {
      'R', 'I', 'F', 'F', 42, 0, 0, 0,                  // RIFF, 6 + 36
      'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',           // WAVE, "fmt "
      16, 0, 0, 0, 1, 0, 2, 0,                          // chunk length 16, PCM, 2 channels
      0x22, 0x56, 0, 0,                                 // 22050 Hz
      0x88, 0x58, 0x01, 0,                              // 22050 × 2 × 2 = 88200
      4, 0, 16, 0,                                      // block align 4, 16 bits
      'd', 'a', 't', 'a', 6, 0, 0, 0,                   // data, 6 bytes
  };
  ASSERT_EQ(wav.size(), 44u + pcm.size());
  EXPECT_EQ(Bytes(wav.begin(), wav.begin() + 44), expectedHeader);
  EXPECT_EQ(samplesFrom(wav), pcm);
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
      {16000, 1, 16, 32000, 2},
      {44100, 2, 24, 264600, 6},
      {8000, 1, 8, 8000, 1},
      // 12 bits are one whole byte per sample.
      {8000, 3, 12, 24000, 3},
      {48000, 6, 32, 1152000, 24},
      {0, 0, 16, 0, 0},
  };
  for (const auto& testCase : cases) {
    const Bytes wav = AudioWAVEncoder::encodePCM16(Bytes{}, testCase.sampleRate, testCase.channels,
                                                   testCase.bitsPerSample);
    EXPECT_EQ(readUInt16(wav, 22), testCase.channels);
    EXPECT_EQ(readUInt32(wav, 24), testCase.sampleRate);
    EXPECT_EQ(readUInt32(wav, 28), testCase.byteRate) << testCase.bitsPerSample << " bits";
    EXPECT_EQ(readUInt16(wav, 32), testCase.blockAlign) << testCase.bitsPerSample << " bits";
    EXPECT_EQ(readUInt16(wav, 34), testCase.bitsPerSample);
    EXPECT_EQ(readUInt32(wav, 4), 36u);
    EXPECT_EQ(readUInt32(wav, 40), 0u);
  }
}

TEST(AudioWAVEncoderTest, TakesTheFormatFromTheFirstFrameAndConcatenatesAllFrames) {
  const PCMFrame first{{0x01, 0x00, 0x02, 0x00}, 16000, 1, 2};
  const PCMFrame second{{0x03, 0x00, 0x04, 0x00, 0x05, 0x00}, 48000, 1, 3};
  const Bytes wav = AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{first, second});

  EXPECT_EQ(readUInt32(wav, 24), 16000u);
  EXPECT_EQ(readUInt32(wav, 28), 32000u);
  EXPECT_EQ(readUInt32(wav, 40), 10u);
  EXPECT_EQ(readUInt32(wav, 4), 46u);
  EXPECT_EQ(samplesFrom(wav), (Bytes{0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0x00, 0x05, 0x00}));
}

TEST(AudioWAVEncoderTest, TruncatesTheFrameRateTowardZero) {
  struct Case {
    double sampleRate;
    std::uint32_t written;
  };
  for (const Case& testCase : std::vector<Case>{{44100.9, 44100}, {0.5, 0}, {-0.5, 0}, {4294967295.5, 4294967295u}}) {
    const Bytes wav = AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{{{}, testCase.sampleRate, 0, 0}});
    EXPECT_EQ(readUInt32(wav, 24), testCase.written) << testCase.sampleRate;
  }
}

TEST(AudioWAVEncoderTest, ThrowsEmptyAudioForNoFrames) {
  try {
    AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{});
    FAIL() << "expected OpusOrvidError";
  } catch (const OpusOrvidError& error) {
    EXPECT_EQ(error, OpusOrvidError::emptyAudio());
    EXPECT_EQ(error.errorCase(), OpusOrvidError::Case::emptyAudio);
    // No message text of its own: the case name.
    EXPECT_STREQ(error.what(), "emptyAudio");
  }
}

TEST(AudioWAVEncoderTest, RejectsFormatsThatDoNotFitTheHeader) {
  struct Case {
    std::string name;
    PCMFrame frame;
  };
  const std::vector<Case> frameCases = {
      {"rate beyond 32 bits", {{}, 4294967296.0, 1, 0}},
      {"rate at or below -1", {{}, -1.0, 1, 0}},
      {"NaN rate", {{}, std::nan(""), 1, 0}},
      {"infinite rate", {{}, std::numeric_limits<double>::infinity(), 1, 0}},
      {"negative channels", {{}, 16000, -1, 0}},
      {"channels beyond 16 bits", {{}, 16000, 65536, 0}},
      // Block align 2 × 32768 does not fit in 16 bits.
      {"32768 channels", {{}, 8000, 32768, 0}},
      // Byte rate 2^31 × 1 × 2 does not fit in 32 bits.
      {"byte rate beyond 32 bits", {{}, 2147483648.0, 1, 0}},
  };
  for (const auto& testCase : frameCases) {
    EXPECT_THROW(AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{testCase.frame}), std::invalid_argument)
        << testCase.name;
  }
  EXPECT_NO_THROW(AudioWAVEncoder::encodePCM16(std::vector<PCMFrame>{{{}, 8000, 32767, 0}}));
  EXPECT_THROW(AudioWAVEncoder::encodePCM16(Bytes{}, 4294967295u, 2, 16), std::invalid_argument);
  EXPECT_THROW(AudioWAVEncoder::encodePCM16(Bytes{}, 8000, 65535, 32), std::invalid_argument);
  EXPECT_NO_THROW(AudioWAVEncoder::encodePCM16(Bytes{}, 4294967295u, 1, 8));
}

TEST(AudioWAVEncoderTest, SilentWAVHoldsTruncatedDurationOfZeroSamples) {
  struct Case {
    std::uint32_t sampleRate;
    int durationMilliseconds;
    std::size_t sampleBytes;
  };
  const std::vector<Case> cases = {
      {16000, 250, 8000},
      {16000, 80, 2560},
      // 44.1 samples truncate to 44.
      {44100, 1, 88},
      {8000, 0, 0},
      {0, 1000, 0},
      {1, 999, 0},
  };
  for (const auto& testCase : cases) {
    const Bytes wav = AudioWAVEncoder::silentWAV(testCase.sampleRate, testCase.durationMilliseconds);
    ASSERT_EQ(wav.size(), 44 + testCase.sampleBytes) << testCase.sampleRate << " Hz " << testCase.durationMilliseconds;
    EXPECT_EQ(readUInt32(wav, 4), testCase.sampleBytes + 36);
    EXPECT_EQ(readUInt32(wav, 40), testCase.sampleBytes);
    EXPECT_EQ(readUInt16(wav, 22), 1);
    EXPECT_EQ(readUInt32(wav, 24), testCase.sampleRate);
    EXPECT_EQ(readUInt16(wav, 34), 16);
    EXPECT_EQ(tagAt(wav, 36), "data");
    EXPECT_EQ(samplesFrom(wav), Bytes(testCase.sampleBytes, 0));
  }
}

TEST(AudioWAVEncoderTest, SilentWAVRejectsNegativeDurationsAndFilesBeyondFourGigabytes) {
  EXPECT_THROW(AudioWAVEncoder::silentWAV(16000, -1), std::invalid_argument);
  // 4294967295 Hz for 1001 ms is far beyond 4 GB of samples.
  EXPECT_THROW(AudioWAVEncoder::silentWAV(4294967295u, 1001), std::invalid_argument);
}

TEST(AudioWAVEncoderTest, SilentPCMFrameTruncatesTheRateButKeepsItInTheFrame) {
  struct Case {
    double sampleRate;
    int durationMilliseconds;
    int sampleCount;
  };
  const std::vector<Case> cases = {
      {16000, 80, 1280},
      {44100.9, 10, 441},
      {22050, 1, 22},
      {0.9, 1000, 0},
      {48000, 0, 0},
  };
  for (const auto& testCase : cases) {
    const PCMFrame frame = AudioWAVEncoder::silentPCMFrame(testCase.sampleRate, testCase.durationMilliseconds);
    EXPECT_EQ(frame.sampleCount, testCase.sampleCount) << testCase.sampleRate;
    EXPECT_EQ(frame.pcm16LittleEndian, Bytes(2 * static_cast<std::size_t>(testCase.sampleCount), 0));
    EXPECT_EQ(frame.sampleRate, testCase.sampleRate);
    EXPECT_EQ(frame.channelCount, 1);
  }
}

TEST(AudioWAVEncoderTest, SilentPCMFrameRejectsCountsAFrameCannotHold) {
  const std::vector<std::pair<double, int>> cases = {
      {16000, -1},
      {-16000, 1000},
      {std::nan(""), 10},
      {std::numeric_limits<double>::infinity(), 10},
      {1e12, 10},
      // 4294967295 × 1000 ÷ 1000 samples exceed INT_MAX.
      {4294967295.0, 1000},
  };
  for (const auto& [sampleRate, duration] : cases) {
    EXPECT_THROW(AudioWAVEncoder::silentPCMFrame(sampleRate, duration), std::invalid_argument)
        << sampleRate << " Hz " << duration << " ms";
  }
}

}  // namespace
}  // namespace orvid
