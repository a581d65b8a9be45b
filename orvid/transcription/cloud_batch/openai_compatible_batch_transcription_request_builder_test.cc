#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_request_builder.h"

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/uuid.h"
#include "orvid/transcription/cloud_batch/multipart_test_support.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;

PCMFrame frame(Bytes samples, double rate = 16000) {
  int count = static_cast<int>(samples.size() / 2);
  return PCMFrame{std::move(samples), rate, 1, count};
}

URL url(const char* text) { return URL::parse(text).value(); }

class OpenAICompatibleRequestBuilderTest : public ::testing::Test {
 protected:
  std::shared_ptr<InMemoryOrvidCredentialStore> store = std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.groq-main.api-key", "gsk-secret"}});
  OpenAICompatibleBatchTranscriptionRequestBuilder builder{store};
};

TEST_F(OpenAICompatibleRequestBuilderTest, WritesTheExactMultipartUpload) {
  std::vector<PCMFrame> frames = {frame({0x01, 0x00, 0xFF, 0x7F}), frame({0x00, 0x80})};
  OrvidHTTPRequest request = builder.request(url("https://api.groq.com/openai/v1"), "groq-main", "whisper-large-v3",
                                             frames, "de", "Orvid, \"Brindle\"\nzweite Zeile", 0.2);

  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url.absoluteString(), "https://api.groq.com/openai/v1/audio/transcriptions");
  EXPECT_EQ(request.timeout, 60s);
  EXPECT_EQ(request.headerValue("Authorization"), "Bearer gsk-secret");
  ASSERT_EQ(request.headers.size(), 2u);

  const std::string boundary = testing::multipartBoundary(request);
  ASSERT_TRUE(boundary.starts_with("Brindle-")) << boundary;
  auto uuid = UUID::parse(boundary.substr(8));
  ASSERT_TRUE(uuid) << boundary;
  EXPECT_EQ(uuid->uuidString(), boundary.substr(8)) << "the UUID is in upper case";

  // 44-byte header for 6 sample bytes at 16000 Hz mono, then the samples of both frames.
  const std::string wav = std::string("RIFF\x2A\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\x3E\0\0\0\x7D\0\0\x02\0\x10\0data\x06\0\0\0",
                                      44) +
                          std::string("\x01\x00\xFF\x7F\x00\x80", 6);
  const std::string expected = "--" + boundary + "\r\n" +
                               "Content-Disposition: form-data; name=\"model\"\r\n\r\nwhisper-large-v3\r\n"
                               "--" + boundary + "\r\n" +
                               "Content-Disposition: form-data; name=\"language\"\r\n\r\nde\r\n"
                               "--" + boundary + "\r\n" +
                               "Content-Disposition: form-data; name=\"prompt\"\r\n\r\n"
                               "Orvid, \"Brindle\"\nzweite Zeile\r\n"
                               "--" + boundary + "\r\n" +
                               "Content-Disposition: form-data; name=\"temperature\"\r\n\r\n0.2\r\n"
                               "--" + boundary + "\r\n" +
                               "Content-Disposition: form-data; name=\"file\"; filename=\"tesselhost.wav\"\r\n"
                               "Content-Type: audio/wav\r\n\r\n" +
                               wav + "\r\n--" + boundary + "--\r\n";
  ASSERT_TRUE(request.body);
  EXPECT_EQ(stringFromBytes(*request.body), expected);
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
    std::vector<std::string> names;
    for (const auto& part : testing::multipartParts(request)) names.push_back(part.name);
    EXPECT_EQ(names, c.names) << c.model << " " << c.language.value_or("-");
  }
}

TEST_F(OpenAICompatibleRequestBuilderTest, WritesTemperaturesInTheShortestFormThatReadsBack) {
  struct Case {
    double value;
    const char* text;
  };
  const Case cases[] = {
      {0.2, "0.2"},  {0.0, "0.0"},   {1.0, "1.0"},    {-0.0, "-0.0"}, {0.35, "0.35"},
      {1e-7, "1e-07"}, {0.1 + 0.2, "0.30000000000000004"}, {1e22, "1e+22"}, {12345.0, "12345.0"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(OpenAICompatibleBatchTranscriptionRequestBuilder::decimalText(c.value), c.text) << c.text;
    auto request =
        builder.request(url("https://x.test/v1"), "groq-main", "m", {frame({0, 0})}, std::nullopt, std::nullopt, c.value);
    EXPECT_EQ(testing::partContent(testing::multipartParts(request), "temperature"), c.text);
  }
}

TEST_F(OpenAICompatibleRequestBuilderTest, EveryRequestHasItsOwnBoundary) {
  auto first = builder.validationRequest(url("https://x.test/v1"), "groq-main", "m");
  auto second = builder.validationRequest(url("https://x.test/v1"), "groq-main", "m");
  EXPECT_NE(testing::multipartBoundary(first), testing::multipartBoundary(second));
}

TEST_F(OpenAICompatibleRequestBuilderTest, ValidationRequestCarriesEightyMillisecondsOfSilenceAndOnlyTheModel) {
  auto request = builder.validationRequest(url("https://api.openai.com/v1/"), "groq-main", "whisper-1");
  EXPECT_EQ(request.url.absoluteString(), "https://api.openai.com/v1/audio/transcriptions");
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.timeout, 60s);
  EXPECT_EQ(request.headerValue("Authorization"), "Bearer gsk-secret");
  auto parts = testing::multipartParts(request);
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(parts[0], (testing::SentPart{"model", std::nullopt, std::nullopt, "whisper-1"}));
  EXPECT_EQ(parts[1].name, "file");
  EXPECT_EQ(parts[1].filename, "tesselhost.wav");
  EXPECT_EQ(parts[1].contentType, "audio/wav");
  ASSERT_EQ(parts[1].content.size(), 2604u);
  // RIFF size 2596, PCM, mono, 16000 Hz, 32000 bytes a second, 2-byte blocks, 16 bits, 2560 data bytes.
  EXPECT_EQ(parts[1].content.substr(0, 44),
            std::string("RIFF\x24\x0A\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\x3E\0\0\0\x7D\0\0\x02\0\x10\0data\0\x0A\0\0",
                        44));
  EXPECT_EQ(parts[1].content.substr(44), std::string(2560, '\0'));
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
    try {
      builder.request(url("https://x.test/v1"), configuration, "m", {frame({0, 0})}, std::nullopt, std::nullopt,
                      std::nullopt);
      ADD_FAILURE() << configuration << " built a request";
    } catch (const OrvidProviderError& error) {
      EXPECT_EQ(error, OrvidProviderError::missingCredential()) << configuration;
    }
    EXPECT_THROW(builder.validationRequest(url("https://x.test/v1"), configuration, "m"), OrvidProviderError);
  }
  OpenAICompatibleBatchTranscriptionRequestBuilder broken(std::make_shared<ThrowingCredentialStore>());
  try {
    broken.validationRequest(url("https://x.test/v1"), "groq-main", "m");
    ADD_FAILURE() << "built a request";
  } catch (const OrvidCredentialStoreError& error) {
    EXPECT_EQ(error, OrvidCredentialStoreError::fileFailure("locked"));
  }
}

}  // namespace
}  // namespace orvid
