#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_request_builder.h"

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/uuid.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;

PCMFrame frame(Bytes samples) {
  int count = static_cast<int>(samples.size() / 2);
  return PCMFrame{std::move(samples), 16000, 1, count};
}

URL url(const char* text) { return URL::parse(text).value(); }

// The field names of a multipart body, in order.
std::vector<std::string> partNames(const OrvidHTTPRequest& request) {
  const std::string body = stringFromBytes(request.body.value());
  const std::string marker = "\r\nContent-Disposition: form-data; name=\"";
  std::vector<std::string> names;
  for (auto at = body.find(marker); at != std::string::npos; at = body.find(marker, at)) {
    at += marker.size();
    names.push_back(body.substr(at, body.find('"', at) - at));
  }
  return names;
}

// The 44-byte header of a 16000 Hz mono 16-bit WAV file with the given two low
// bytes of its RIFF and data sizes.
std::string wavHeader(char riffSizeLow, char riffSizeHigh, char dataSizeLow, char dataSizeHigh) {
  return std::string("RIFF") + riffSizeLow + riffSizeHigh +
         std::string("\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\x3E\0\0\0\x7D\0\0\x02\0\x10\0data", 34) + dataSizeLow +
         dataSizeHigh + std::string("\0\0", 2);
}

class OpenAICompatibleRequestBuilderTest : public ::testing::Test {
 protected:
  std::shared_ptr<InMemoryOrvidCredentialStore> store = std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.groq-main.api-key", "gsk-secret"}});
  OpenAICompatibleBatchTranscriptionRequestBuilder builder{store};
};

TEST_F(OpenAICompatibleRequestBuilderTest, WritesTheExactMultipartUploadWithItsOwnBoundary) {
  std::vector<PCMFrame> frames = {frame({0x01, 0x00, 0xFF, 0x7F}), frame({0x00, 0x80})};
  OrvidHTTPRequest request = builder.request(url("https://api.groq.com/openai/v1"), "groq-main", "whisper-large-v3",
                                             frames, "de", "Orvid, \"Brindle\"\nzweite Zeile", 0.2);

  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url.absoluteString(), "https://api.groq.com/openai/v1/audio/transcriptions");
  EXPECT_EQ(request.timeout, 60s);
  EXPECT_EQ(request.headerValue("Authorization"), "Bearer gsk-secret");
  ASSERT_EQ(request.headers.size(), 2u);
  const std::string contentType = request.headerValue("Content-Type").value_or("");
  const std::string prefix = "multipart/form-data; boundary=Brindle-";
  ASSERT_TRUE(contentType.starts_with(prefix)) << contentType;
  const std::string uuid = contentType.substr(prefix.size());
  ASSERT_TRUE(UUID::parse(uuid)) << uuid;
  EXPECT_EQ(UUID::parse(uuid)->uuidString(), uuid) << "the UUID is in upper case";
  const std::string delimiter = "--Brindle-" + uuid + "\r\n";

  // Both frames' samples after a 44-byte header for 6 sample bytes.
  const std::string wav = wavHeader('\x2A', '\0', '\x06', '\0') + std::string("\x01\x00\xFF\x7F\x00\x80", 6);
  const std::string expected =
      delimiter + "Content-Disposition: form-data; name=\"model\"\r\n\r\nwhisper-large-v3\r\n" + delimiter +
      "Content-Disposition: form-data; name=\"language\"\r\n\r\nde\r\n" + delimiter +
      "Content-Disposition: form-data; name=\"prompt\"\r\n\r\nOrvid, \"Brindle\"\nzweite Zeile\r\n" + delimiter +
      "Content-Disposition: form-data; name=\"temperature\"\r\n\r\n0.2\r\n" + delimiter +
      "Content-Disposition: form-data; name=\"file\"; filename=\"tesselhost.wav\"\r\n"
      "Content-Type: audio/wav\r\n\r\n" +
      wav + "\r\n--Brindle-" + uuid + "--\r\n";
  EXPECT_EQ(stringFromBytes(request.body.value()), expected);

  auto again =
      builder.request(url("https://api.groq.com/openai/v1"), "groq-main", "m", frames, "de", std::nullopt, 0.2);
  EXPECT_NE(again.headerValue("Content-Type"), contentType);
}

TEST_F(OpenAICompatibleRequestBuilderTest, LeavesOutAbsentAndEmptyFieldsAndKeepsTheFileLast) {
  struct Case {
    std::string model;
    std::optional<std::string> language;
    std::optional<std::string> prompt;
    std::optional<double> temperature;
    std::vector<std::string> names;
  };
  const Case cases[] = {
      {"m", std::nullopt, std::nullopt, std::nullopt, {"model", "file"}},
      {"m", "", "", std::nullopt, {"model", "file"}},
      {"m", std::nullopt, " ", 0.0, {"model", "prompt", "temperature", "file"}},
      {"", "en", std::nullopt, std::nullopt, {"language", "file"}},
  };
  for (const Case& c : cases) {
    auto request = builder.request(url("https://x.test/v1"), "groq-main", c.model, {frame({0, 0})}, c.language,
                                   c.prompt, c.temperature);
    EXPECT_EQ(partNames(request), c.names) << c.model << " " << c.language.value_or("-");
  }
}

TEST(OpenAICompatibleRequestBuilderTemperatureTest, WritesTheShortestFormThatReadsBack) {
  const std::vector<std::pair<double, std::string>> cases = {
      {0.2, "0.2"},   {0.0, "0.0"},   {-0.0, "-0.0"}, {1e-7, "1e-07"}, {0.1 + 0.2, "0.30000000000000004"},
      {1e22, "1e+22"}, {12345.0, "12345.0"},
  };
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(OpenAICompatibleBatchTranscriptionRequestBuilder::decimalText(value), text);
  }
}

TEST_F(OpenAICompatibleRequestBuilderTest, ValidationRequestCarriesEightyMillisecondsOfSilenceAndOnlyTheModel) {
  auto request = builder.validationRequest(url("https://api.openai.com/v1/"), "groq-main", "whisper-1");
  EXPECT_EQ(request.url.absoluteString(), "https://api.openai.com/v1/audio/transcriptions");
  EXPECT_EQ(request.headerValue("Authorization"), "Bearer gsk-secret");
  EXPECT_EQ(partNames(request), (std::vector<std::string>{"model", "file"}));
  const std::string body = stringFromBytes(request.body.value());
  EXPECT_NE(body.find("name=\"model\"\r\n\r\nwhisper-1\r\n"), std::string::npos);
  // RIFF size 2596 and 2560 data bytes of silence.
  const std::string wav = wavHeader('\x24', '\x0A', '\0', '\x0A') + std::string(2560, '\0');
  EXPECT_NE(body.find("Content-Type: audio/wav\r\n\r\n" + wav + "\r\n--Brindle-"), std::string::npos);
}

class ThrowingCredentialStore : public OrvidCredentialStore {
 public:
  std::optional<std::string> readCredential(const std::string&) const override {
    throw OrvidCredentialStoreError::fileFailure("locked");
  }
  void writeCredential(const std::string&, const std::string&) override {}
  void deleteCredential(const std::string&) override {}
};

TEST_F(OpenAICompatibleRequestBuilderTest, MissingOrEmptyKeysAndStoreFailuresStopTheBuild) {
  store->writeCredential("", "provider.empty.api-key");
  for (const char* configuration : {"absent", "empty"}) {
    SCOPED_TRACE(configuration);
    EXPECT_EQ(testing::thrown<OrvidProviderError>([&] {
                builder.request(url("https://x.test/v1"), configuration, "m", {frame({0, 0})}, std::nullopt,
                                std::nullopt, std::nullopt);
              }),
              OrvidProviderError::missingCredential());
    EXPECT_THROW(builder.validationRequest(url("https://x.test/v1"), configuration, "m"), OrvidProviderError);
  }
  OpenAICompatibleBatchTranscriptionRequestBuilder broken(std::make_shared<ThrowingCredentialStore>());
  EXPECT_THROW(broken.validationRequest(url("https://x.test/v1"), "groq-main", "m"), OrvidCredentialStoreError);
}

}  // namespace
}  // namespace orvid
