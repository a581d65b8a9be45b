#include "orvid/audio/audio_wav_decoder.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/audio/audio_wav_encoder.h"

namespace orvid {
namespace {

void putUInt16(Bytes& bytes, std::size_t offset, std::uint16_t value) {
  bytes.at(offset) = static_cast<std::uint8_t>(value & 0xFF);
  bytes.at(offset + 1) = static_cast<std::uint8_t>(value >> 8);
}

void putUInt32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) bytes.at(offset + i) = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
}

void appendUInt32(Bytes& bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF));
}

void appendText(Bytes& bytes, const std::string& text) { bytes.insert(bytes.end(), text.begin(), text.end()); }

// The first 36 bytes of a canonical header: RIFF, WAVE and a 16-byte "fmt " chunk.
Bytes formatPrefix(std::uint16_t channels, std::uint32_t sampleRate, std::uint16_t bitsPerSample) {
  Bytes bytes;
  appendText(bytes, "RIFF");
  appendUInt32(bytes, 0);
  appendText(bytes, "WAVEfmt ");
  appendUInt32(bytes, 16);
  bytes.resize(36, 0);
  putUInt16(bytes, 20, 1);
  putUInt16(bytes, 22, channels);
  putUInt32(bytes, 24, sampleRate);
  putUInt32(bytes, 28, sampleRate * channels * (bitsPerSample / 8u));
  putUInt16(bytes, 32, static_cast<std::uint16_t>(channels * (bitsPerSample / 8u)));
  putUInt16(bytes, 34, bitsPerSample);
  return bytes;
}

void appendChunk(Bytes& bytes, const std::string& identifier, std::uint32_t declaredLength, const Bytes& body) {
  appendText(bytes, identifier);
  appendUInt32(bytes, declaredLength);
  bytes.insert(bytes.end(), body.begin(), body.end());
}

Bytes wavWithData(std::uint16_t channels, std::uint32_t sampleRate, std::uint16_t bitsPerSample, const Bytes& data) {
  Bytes wav = formatPrefix(channels, sampleRate, bitsPerSample);
  appendChunk(wav, "data", static_cast<std::uint32_t>(data.size()), data);
  return wav;
}

// Distinct bytes, so that misplaced or reordered samples show.
Bytes countingBytes(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>((i * 7 + i / 256) & 0xFF);
  return bytes;
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

std::optional<AudioWAVDecoderError> decodeError(const Bytes& wav, int samplesPerFrame) {
  try {
    AudioWAVDecoder::decode(wav, samplesPerFrame);
  } catch (const AudioWAVDecoderError& error) {
    return error;
  }
  return std::nullopt;
}

TEST(AudioWAVDecoderTest, CutsTheSamplesIntoFramesOfTheRequestedSize) {
  struct Case {
    std::uint16_t channels;
    std::size_t sampleFrames;
    int samplesPerFrame;
    std::vector<int> expectedCounts;
  };
  const std::vector<Case> cases = {
      {1, 1000, 320, {320, 320, 320, 40}},
      {1, 1000, 1000, {1000}},
      {1, 1000, 5000, {1000}},
      {1, 1000, 999, {999, 1}},
      {1, 3, 1, {1, 1, 1}},
      {2, 5, 2, {2, 2, 1}},
      {3, 7, 4, {4, 3}},
  };
  for (const auto& testCase : cases) {
    const Bytes data = countingBytes(testCase.sampleFrames * testCase.channels * 2);
    const auto frames =
        AudioWAVDecoder::decode(wavWithData(testCase.channels, 22050, 16, data), testCase.samplesPerFrame);

    EXPECT_EQ(sampleCounts(frames), testCase.expectedCounts) << testCase.channels << " channels";
    EXPECT_EQ(concatenated(frames), data);
    for (const PCMFrame& frame : frames) {
      EXPECT_EQ(frame.sampleRate, 22050);
      EXPECT_EQ(frame.channelCount, testCase.channels);
      EXPECT_EQ(frame.pcm16LittleEndian.size(), static_cast<std::size_t>(frame.sampleCount) * testCase.channels * 2);
    }
  }
}

TEST(AudioWAVDecoderTest, SkipsChunksBeforeTheDataIncludingThePadByteOfOddLengths) {
  const Bytes samples = {0x11, 0x22, 0x33, 0x44};
  struct Chunk {
    std::string identifier;
    std::uint32_t declaredLength;
    Bytes body;  // with the pad byte after an odd length
  };
  struct Case {
    std::string name;
    std::vector<Chunk> chunksBefore;
  };
  const std::vector<Case> cases = {
      {"odd LIST", {{"LIST", 3, {'a', 'b', 'c', 0}}}},
      {"even LIST", {{"LIST", 4, {'a', 'b', 'c', 'd'}}}},
      {"empty fact then odd LIST", {{"fact", 0, {}}, {"LIST", 1, {'x', 0}}}},
  };
  for (const auto& testCase : cases) {
    Bytes wav = formatPrefix(1, 16000, 16);
    for (const Chunk& chunk : testCase.chunksBefore) {
      appendChunk(wav, chunk.identifier, chunk.declaredLength, chunk.body);
    }
    appendChunk(wav, "data", 4, samples);

    const auto frames = AudioWAVDecoder::decode(wav, 160);
    ASSERT_EQ(frames.size(), 1u) << testCase.name;
    EXPECT_EQ(frames[0], (PCMFrame{samples, 16000, 1, 2})) << testCase.name;
  }
}

TEST(AudioWAVDecoderTest, ReturnsNoFramesWhenTheDataHoldsNoWholeSampleFrame) {
  struct Case {
    std::string name;
    Bytes wav;
  };
  const std::vector<Case> cases = {
      {"44 bytes with an empty data chunk", wavWithData(1, 16000, 16, {})},
      {"one byte of mono data", wavWithData(1, 16000, 16, {0x01})},
      {"three bytes of stereo data", wavWithData(2, 16000, 16, {0x01, 0x02, 0x03})},
      // A negative channel count (0xFFFF) declares no whole sample frame.
      {"negative channel count", wavWithData(0xFFFF, 16000, 16, countingBytes(64))},
  };
  for (const auto& testCase : cases) {
    EXPECT_TRUE(AudioWAVDecoder::decode(testCase.wav, 320).empty()) << testCase.name;
  }
  EXPECT_EQ(cases[0].wav.size(), 44u);
}

TEST(AudioWAVDecoderTest, StopsAtTheLastWholeFrameWhenTheDataChunkClaimsMoreThanTheFileHolds) {
  Bytes wav = formatPrefix(1, 16000, 16);
  const Bytes data = countingBytes(2000);
  appendChunk(wav, "data", 4000, data);

  const auto frames = AudioWAVDecoder::decode(wav, 320);
  EXPECT_EQ(sampleCounts(frames), (std::vector<int>{320, 320, 320}));
  EXPECT_EQ(concatenated(frames), Bytes(data.begin(), data.begin() + 1920));

  // A declared length beyond the file by less than a frame still yields every whole frame.
  putUInt32(wav, 40, 2001);
  EXPECT_EQ(sampleCounts(AudioWAVDecoder::decode(wav, 320)), (std::vector<int>{320, 320, 320, 40}));
  // With the last frame one byte short, that frame is dropped.
  wav.pop_back();
  putUInt32(wav, 40, 2000);
  EXPECT_EQ(sampleCounts(AudioWAVDecoder::decode(wav, 320)), (std::vector<int>{320, 320, 320}));
}

TEST(AudioWAVDecoderTest, ReadsOnlyTheDeclaredDataAndIgnoresTheRIFFLength) {
  Bytes wav = wavWithData(1, 8000, 16, countingBytes(10));
  putUInt32(wav, 4, 0xFFFFFFFF);
  appendChunk(wav, "LIST", 2, {0xAA, 0xBB});

  const auto frames = AudioWAVDecoder::decode(wav, 100);
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(frames[0], (PCMFrame{countingBytes(10), 8000, 1, 5}));
}

TEST(AudioWAVDecoderTest, ReportsMalformedFilesInTheOrderTheyAreChecked) {
  const Bytes valid = wavWithData(1, 16000, 16, countingBytes(8));
  auto with = [&](auto change) {
    Bytes wav = valid;
    change(wav);
    return wav;
  };
  struct Case {
    std::string name;
    Bytes wav;
    int samplesPerFrame;
    AudioWAVDecoderError expected;
  };
  const std::vector<Case> cases = {
      {"empty file", {}, 320, AudioWAVDecoderError::truncatedHeader()},
      {"43 bytes", Bytes(valid.begin(), valid.begin() + 43), 320, AudioWAVDecoderError::truncatedHeader()},
      {"43 bytes and invalid frame size", Bytes(valid.begin(), valid.begin() + 43), 0,
       AudioWAVDecoderError::truncatedHeader()},
      {"no RIFF", with([](Bytes& b) { b[0] = 'r'; }), 320, AudioWAVDecoderError::notAWAVFile()},
      {"no WAVE", with([](Bytes& b) { b[11] = 'X'; }), 320, AudioWAVDecoderError::notAWAVFile()},
      {"no WAVE and no fmt", with([](Bytes& b) { b[8] = b[12] = 0; }), 320, AudioWAVDecoderError::notAWAVFile()},
      {"no fmt", with([](Bytes& b) { b[14] = 'x'; }), 320, AudioWAVDecoderError::missingFmtChunk()},
      {"no data chunk", with([](Bytes& b) { b[36] = 'D'; }), 320, AudioWAVDecoderError::missingDataChunk()},
      {"no data chunk and 8 bits", with([](Bytes& b) {
         b[36] = 'D';
         putUInt16(b, 34, 8);
       }), 320,
       AudioWAVDecoderError::missingDataChunk()},
      {"chunk of length 0xFFFFFFFF before data",
       with([](Bytes& b) {
         std::copy_n("JUNK", 4, b.begin() + 36);
         putUInt32(b, 40, 0xFFFFFFFF);
       }), 320,
       AudioWAVDecoderError::missingDataChunk()},
      {"8 bits", with([](Bytes& b) { putUInt16(b, 34, 8); }), 320, AudioWAVDecoderError::unsupportedBitDepth(8)},
      {"24 bits and invalid frame size", with([](Bytes& b) { putUInt16(b, 34, 24); }), 0,
       AudioWAVDecoderError::unsupportedBitDepth(24)},
      {"negative bits", with([](Bytes& b) { putUInt16(b, 34, 0xFFF0); }), 320,
       AudioWAVDecoderError::unsupportedBitDepth(-16)},
      {"0 samples per frame", valid, 0, AudioWAVDecoderError::invalidSamplesPerFrame()},
      {"negative samples per frame", valid, -320, AudioWAVDecoderError::invalidSamplesPerFrame()},
      {"zero channels", with([](Bytes& b) { putUInt16(b, 22, 0); }), 320, AudioWAVDecoderError::missingFmtChunk()},
      {"zero channels and empty data", with([](Bytes& b) {
         putUInt16(b, 22, 0);
         putUInt32(b, 40, 0);
       }), 320,
       AudioWAVDecoderError::missingFmtChunk()},
      {"zero channels and invalid frame size", with([](Bytes& b) { putUInt16(b, 22, 0); }), 0,
       AudioWAVDecoderError::invalidSamplesPerFrame()},
  };
  for (const auto& testCase : cases) {
    const auto error = decodeError(testCase.wav, testCase.samplesPerFrame);
    ASSERT_TRUE(error.has_value()) << testCase.name;
    EXPECT_EQ(*error, testCase.expected) << testCase.name << ": " << error->what();
  }
}

TEST(AudioWAVDecoderTest, ErrorsDescribeThemselvesAsTheirCaseAndCompareByPayload) {
  using Error = AudioWAVDecoderError;
  struct Case {
    Error error;
    Error::Case errorCase;
    std::string message;
  };
  // The errors carry no message text of their own: they describe themselves as values.
  const std::vector<Case> cases = {
      {Error::unsupportedBitDepth(8), Error::Case::unsupportedBitDepth, "unsupportedBitDepth(8)"},
      {Error::unsupportedBitDepth(-16), Error::Case::unsupportedBitDepth, "unsupportedBitDepth(-16)"},
      {Error::truncatedHeader(), Error::Case::truncatedHeader, "truncatedHeader"},
      {Error::notAWAVFile(), Error::Case::notAWAVFile, "notAWAVFile"},
      {Error::missingFmtChunk(), Error::Case::missingFmtChunk, "missingFmtChunk"},
      {Error::missingDataChunk(), Error::Case::missingDataChunk, "missingDataChunk"},
      {Error::invalidSamplesPerFrame(), Error::Case::invalidSamplesPerFrame, "invalidSamplesPerFrame"},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(testCase.error.errorCase(), testCase.errorCase);
    EXPECT_EQ(testCase.error.what(), testCase.message);
  }
  EXPECT_EQ(Error::unsupportedBitDepth(24).bitsPerSample(), 24);
  EXPECT_EQ(Error::unsupportedBitDepth(8), Error::unsupportedBitDepth(8));
  EXPECT_FALSE(Error::unsupportedBitDepth(8) == Error::unsupportedBitDepth(24));
  EXPECT_FALSE(Error::truncatedHeader() == Error::notAWAVFile());
}

TEST(AudioWAVDecoderTest, EncodeWAVMatchesTheEncoderAndIsAbsentForNoFrames) {
  EXPECT_EQ(AudioWAVDecoder::encodeWAV({}), std::nullopt);

  const std::vector<std::vector<PCMFrame>> inputs = {
      {{countingBytes(640), 16000, 1, 320}, {countingBytes(100), 16000, 1, 50}},
      {{countingBytes(12), 44100.7, 2, 3}},
      {{{}, 8000, 1, 0}},
      {{countingBytes(4), 48000, 0, 0}},
      {{countingBytes(4), 0.5, 16383, 0}},
  };
  for (const auto& frames : inputs) {
    const auto wav = AudioWAVDecoder::encodeWAV(frames);
    ASSERT_TRUE(wav.has_value());
    EXPECT_EQ(*wav, AudioWAVEncoder::encodePCM16(frames)) << frames[0].sampleRate;
  }
}

TEST(AudioWAVDecoderTest, EncodeWAVRejectsFormatsThatDoNotFitItsSignedFields) {
  const std::vector<PCMFrame> cases = {
      {{}, 2147483648.0, 1, 0},
      {{}, std::nan(""), 1, 0},
      {{}, 16000, 32768, 0},
      // Block align 2 × 16384 does not fit in signed 16 bits.
      {{}, 1, 16384, 0},
      // Byte rate 2 × 2 × 536870912 does not fit in signed 32 bits.
      {{}, 536870912.0, 2, 0},
  };
  for (const PCMFrame& frame : cases) {
    EXPECT_THROW(AudioWAVDecoder::encodeWAV({frame}), std::invalid_argument)
        << frame.sampleRate << " Hz " << frame.channelCount << " channels";
  }
}

TEST(AudioWAVDecoderTest, DecodingAnEncodedRecordingGivesBackItsSamples) {
  std::mt19937 generator(20240517);
  const std::vector<double> rates = {8000, 11025, 16000, 22050, 24000, 44100, 48000, 96000};
  std::uniform_int_distribution<int> byteValue(0, 255);
  for (int iteration = 0; iteration < 300; ++iteration) {
    const double rate = rates[generator() % rates.size()];
    const int channels = 1 + static_cast<int>(generator() % 3);
    const int frameCount = 1 + static_cast<int>(generator() % 8);
    std::vector<PCMFrame> frames;
    Bytes all;
    for (int f = 0; f < frameCount; ++f) {
      const int sampleCount = static_cast<int>(generator() % 700);
      Bytes bytes(static_cast<std::size_t>(sampleCount * channels * 2));
      for (auto& byte : bytes) byte = static_cast<std::uint8_t>(byteValue(generator));
      all.insert(all.end(), bytes.begin(), bytes.end());
      frames.push_back(PCMFrame{std::move(bytes), rate, channels, sampleCount});
    }
    const int samplesPerFrame = 1 + static_cast<int>(generator() % 1200);

    const Bytes wav = AudioWAVEncoder::encodePCM16(frames);
    const auto decoded = AudioWAVDecoder::decode(wav, samplesPerFrame);

    ASSERT_EQ(concatenated(decoded), all) << "iteration " << iteration;
    const std::size_t total = all.size() / static_cast<std::size_t>(channels * 2);
    const auto perFrame = static_cast<std::size_t>(samplesPerFrame);
    ASSERT_EQ(decoded.size(), (total + perFrame - 1) / perFrame) << "iteration " << iteration;
    for (std::size_t i = 0; i < decoded.size(); ++i) {
      const auto expectedCount = static_cast<int>(i + 1 < decoded.size() ? perFrame : total - i * perFrame);
      EXPECT_EQ(decoded[i].sampleCount, expectedCount);
      EXPECT_EQ(decoded[i].sampleRate, rate);
      EXPECT_EQ(decoded[i].channelCount, channels);
    }
  }
}

// What the malformed corpus led to, so the test can tell that it reached every path.
struct Outcomes {
  std::map<AudioWAVDecoderError::Case, int> errors;
  int noFrames = 0;
  int frames = 0;
};

// Checks what the decoder may return for any input: a typed error, or frames whose
// bytes are one contiguous run of the input after the 44-byte header, each frame
// holding whole sample frames at the header's channel count.
void expectSafeDecode(const Bytes& input, int samplesPerFrame, const std::string& label, Outcomes& outcomes) {
  std::vector<PCMFrame> frames;
  try {
    frames = AudioWAVDecoder::decode(input, samplesPerFrame);
  } catch (const AudioWAVDecoderError& error) {
    ++outcomes.errors[error.errorCase()];
    return;
  }
  if (frames.empty()) {
    ++outcomes.noFrames;
    return;
  }
  ++outcomes.frames;
  const Bytes run = concatenated(frames);
  ASSERT_LE(run.size() + 44, input.size()) << label;
  ASSERT_NE(std::search(input.begin() + 44, input.end(), run.begin(), run.end()), input.end()) << label;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const PCMFrame& frame = frames[i];
    ASSERT_GE(frame.channelCount, 1) << label;
    ASSERT_GE(frame.sampleCount, 1) << label;
    ASSERT_LE(frame.sampleCount, samplesPerFrame) << label;
    if (i + 1 < frames.size()) {
      ASSERT_EQ(frame.sampleCount, samplesPerFrame) << label;
    }
    ASSERT_EQ(frame.pcm16LittleEndian.size(), static_cast<std::size_t>(frame.sampleCount) * frame.channelCount * 2)
        << label;
  }
}

TEST(AudioWAVDecoderTest, NeverReadsOutsideMalformedInput) {
  std::mt19937 generator(99);
  auto randomBytes = [&](std::size_t count) {
    Bytes bytes(count);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(generator());
    return bytes;
  };
  const std::vector<int> framings = {1, 3, 320, std::numeric_limits<int>::max(), 0, -1};
  Outcomes outcomes;

  // Every truncation of a valid file with a chunk before the data.
  Bytes valid = formatPrefix(2, 16000, 16);
  appendChunk(valid, "LIST", 5, {'I', 'N', 'F', 'O', '!', 0});
  appendChunk(valid, "data", 84, randomBytes(84));
  for (std::size_t length = 0; length <= valid.size(); ++length) {
    for (int framing : framings) {
      expectSafeDecode(Bytes(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(length)), framing,
                       "truncated to " + std::to_string(length), outcomes);
    }
  }

  // Random bytes, bare and behind a valid RIFF/WAVE/fmt prefix.
  for (int i = 0; i < 3000; ++i) {
    Bytes bytes = randomBytes(generator() % 160);
    if (i % 2 == 1 && bytes.size() >= 16) std::copy_n(formatPrefix(1, 8000, 16).begin(), 16, bytes.begin());
    expectSafeDecode(bytes, framings[generator() % framings.size()], "random " + std::to_string(i), outcomes);
  }

  // Valid headers with hostile chunk lengths, channel counts and data sizes.
  const std::vector<std::uint32_t> lengths = {0, 1, 2, 3, 7, 8, 9, 63, 64, 65, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF7,
                                              0xFFFFFFF8, 0xFFFFFFFE, 0xFFFFFFFF};
  const std::vector<std::uint16_t> channelCounts = {0, 1, 2, 3, 255, 32767, 0x8000, 0xFFFF};
  int sample = 0;
  for (std::uint32_t skipLength : lengths) {
    for (std::uint32_t dataLength : lengths) {
      for (std::uint16_t channels : channelCounts) {
        const Bytes body = randomBytes(generator() % 96);
        const std::uint16_t bits = sample % 7 == 0 ? 8 : 16;
        // A skipped chunk whose declared length may or may not match its body, then data.
        const auto middle = body.begin() + static_cast<std::ptrdiff_t>(body.size() / 2);
        Bytes wav = formatPrefix(channels, 16000, bits);
        appendChunk(wav, "JUNK", skipLength, Bytes(body.begin(), middle));
        appendChunk(wav, "data", dataLength, Bytes(middle, body.end()));
        expectSafeDecode(wav, framings[sample % framings.size()], "chunks " + std::to_string(sample), outcomes);
        // The data chunk first, declaring more or less than follows.
        expectSafeDecode(wavWithData(channels, 16000, bits, body), framings[(sample + 1) % framings.size()],
                         "data " + std::to_string(sample), outcomes);
        Bytes lying = wavWithData(channels, 16000, 16, body);
        putUInt32(lying, 40, dataLength);
        expectSafeDecode(lying, framings[(sample + 2) % framings.size()], "declared " + std::to_string(sample),
                         outcomes);
        ++sample;
      }
    }
  }

  for (auto errorCase : {AudioWAVDecoderError::Case::unsupportedBitDepth, AudioWAVDecoderError::Case::truncatedHeader,
                         AudioWAVDecoderError::Case::notAWAVFile, AudioWAVDecoderError::Case::missingFmtChunk,
                         AudioWAVDecoderError::Case::missingDataChunk,
                         AudioWAVDecoderError::Case::invalidSamplesPerFrame}) {
    EXPECT_GT(outcomes.errors[errorCase], 20) << static_cast<int>(errorCase);
  }
  EXPECT_GT(outcomes.noFrames, 200);
  EXPECT_GT(outcomes.frames, 500);
}

}  // namespace
}  // namespace orvid
