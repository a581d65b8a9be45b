#include "orvid/testing/loopback_cloud_services.h"

#include <gtest/gtest.h>

namespace orvid::testing {
namespace {

std::string littleEndian(std::uint32_t value, int bytes) {
  std::string out;
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
  return out;
}

std::string wav(std::uint32_t sampleRate, std::uint16_t channels, std::uint16_t bits, std::uint32_t dataBytes) {
  std::string fmt = littleEndian(1, 2) + littleEndian(channels, 2) + littleEndian(sampleRate, 4) +
                    littleEndian(sampleRate * channels * bits / 8, 4) + littleEndian(channels * bits / 8, 2) +
                    littleEndian(bits, 2);
  std::string data(dataBytes, '\0');
  std::string chunks = "fmt " + littleEndian(16, 4) + fmt + "data" + littleEndian(dataBytes, 4) + data;
  return "RIFF" + littleEndian(static_cast<std::uint32_t>(4 + chunks.size()), 4) + "WAVE" + chunks;
}

TEST(LoopbackCloudServicesTest, WAVCheckAcceptsPCM16AndNamesWhatIsWrongOtherwise) {
  EXPECT_EQ(wavProblem(wav(16000, 1, 16, 3200)), std::nullopt);
  EXPECT_EQ(wavProblem(wav(16000, 1, 8, 3200)), "the samples are not 16-bit");
  EXPECT_EQ(wavProblem("RIFF....WAVX"), "not a RIFF/WAVE file");
  std::string truncated = wav(16000, 1, 16, 3200);
  truncated.resize(truncated.size() - 10);
  EXPECT_EQ(wavProblem(truncated), "the RIFF size does not match the file size");
  EXPECT_EQ(wavProblem(wav(16000, 2, 16, 6)), "the data chunk ends mid-frame");
}

}  // namespace
}  // namespace orvid::testing
