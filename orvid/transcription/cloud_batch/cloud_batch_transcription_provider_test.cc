#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/in_memory_orvid_http_client.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_provider.h"

namespace orvid {
namespace {

using testing::thrown;

URL url(const char* text) { return URL::parse(text).value(); }

TranscriptionRequest recording(std::optional<std::string> language = std::nullopt) {
  TranscriptionRequest request;
  request.audioFrames = {PCMFrame{Bytes(320, 0x01), 16000, 1, 160}};
  request.languageRoute.providerID = "groq";
  request.languageRoute.providerLanguage = std::move(language);
  return request;
}

class CloudBatchTranscriptionProviderTest : public ::testing::Test {
 protected:
  std::shared_ptr<InMemoryOrvidCredentialStore> store = std::make_shared<InMemoryOrvidCredentialStore>(
      std::map<std::string, std::string>{{"provider.groq-main.api-key", "gsk-secret"}});

  std::shared_ptr<InMemoryOrvidHTTPClient> answering(int status, std::string body) {
    return InMemoryOrvidHTTPClient::answering(status, bytesFromString(body));
  }

  CloudBatchTranscriptionProvider provider(
      std::shared_ptr<OrvidHTTPClient> http,
      CloudTranscriptionProviderAPI api = CloudTranscriptionProviderAPI::openAICompatible) {
    return CloudBatchTranscriptionProvider("groq", url("https://api.groq.com/openai/v1"), api, "groq-main",
                                           "whisper-large-v3", store, std::move(http));
  }
};

TEST_F(CloudBatchTranscriptionProviderTest, StatusesOutsideTheTwoHundredsFailWithTheirBodyIfItIsText) {
  struct Case { int status; Bytes body; std::string message; };
  const Case cases[] = {
      {500, Bytes{0xFF, 0xFE, 'o', 'k'}, "ASR request failed with HTTP 500: "},
      {199, Bytes{}, "ASR request failed with HTTP 199: "},
  };
  for (const Case& c : cases) {
    auto groq = provider(InMemoryOrvidHTTPClient::answering(c.status, c.body));
    EXPECT_EQ(thrown<OrvidProviderError>([&] { groq.transcribe(recording()); }),
              OrvidProviderError::unsupportedProvider(c.message))
        << c.status;
  }
  EXPECT_EQ(provider(answering(299, "edge of success")).transcribe(recording()).text, "edge of success");
}

TEST_F(CloudBatchTranscriptionProviderTest, EmptyAudioFailsBeforeAnythingElse) {
  auto http = answering(200, "{}");
  store->deleteCredential("provider.groq-main.api-key");
  std::stop_source stopped;
  stopped.request_stop();
  for (auto api : allCloudTranscriptionProviderAPIs()) {
    auto any = provider(http, api);
    TranscriptionRequest empty = recording();
    empty.audioFrames.clear();
    EXPECT_EQ(thrown<OrvidError>([&] { any.transcribe(empty, stopped.get_token()); }), OrvidError::emptyAudio())
        << rawValue(api);
  }
  EXPECT_TRUE(http->requests().empty());
}

TEST_F(CloudBatchTranscriptionProviderTest, DoubaoAndStreamingFailWithoutTraffic) {
  auto http = answering(200, "{}");
  auto doubao = testing::thrown<OrvidProviderError>(
      [&] { provider(http, CloudTranscriptionProviderAPI::doubao).transcribe(recording()); });
  ASSERT_TRUE(doubao);
  EXPECT_EQ(doubao->payload(), "Doubao batch transcription is not wired yet.");
  EXPECT_EQ(thrown<OrvidError>([&] { provider(http).stream(recording()); }), OrvidError::unsupportedStreaming());
  EXPECT_TRUE(http->requests().empty());
}

TEST_F(CloudBatchTranscriptionProviderTest, TransportErrorsCancellationAndMissingKeysPropagateUnchanged) {
  auto failing =
      std::make_shared<InMemoryOrvidHTTPClient>([](const OrvidHTTPRequest&, std::stop_token) -> OrvidHTTPResponse {
        throw OrvidHTTPError::timedOut("no data for 60000 ms");
      });
  auto broken = provider(failing);
  EXPECT_EQ(thrown<OrvidHTTPError>([&] { broken.transcribe(recording()); }),
            OrvidHTTPError::timedOut("no data for 60000 ms"));
  EXPECT_EQ(failing->requests().size(), 1u) << "nothing is retried";

  auto http = answering(200, "{}");
  auto groq = provider(http);
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(groq.transcribe(recording(), stopped.get_token()), CancellationError);

  store->writeCredential("", "provider.groq-main.api-key");
  EXPECT_EQ(thrown<OrvidProviderError>([&] { groq.transcribe(recording()); }),
            OrvidProviderError::missingCredential());
  EXPECT_TRUE(http->requests().empty());
}

TEST_F(CloudBatchTranscriptionProviderTest, OpenAICompatibleWrapperForwardsWithItsOwnIdentifier) {
  auto http = answering(200, R"({"text":"forwarded"})");
  OpenAICompatibleBatchTranscriptionProvider wrapper("my-openai", url("https://api.openai.com/v1"), "groq-main",
                                                     "whisper-1", store, http);
  EXPECT_EQ(wrapper.id(), "my-openai");
  EXPECT_EQ(wrapper.transcribe(recording("en")).text, "forwarded");
  EXPECT_EQ(http->requests().at(0).url.absoluteString(), "https://api.openai.com/v1/audio/transcriptions");
  EXPECT_EQ(thrown<OrvidError>([&] { wrapper.stream(recording()); }), OrvidError::unsupportedStreaming());
}

}  // namespace
}  // namespace orvid
