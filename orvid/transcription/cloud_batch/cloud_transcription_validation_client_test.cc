#include "orvid/transcription/cloud_batch/cloud_transcription_validation_client.h"

#include <gtest/gtest.h>

#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/platform/in_memory_orvid_http_client.h"
#include "orvid/transcription/cloud_batch/loopback_batch_speech_services.h"

namespace orvid {
namespace {

using testing::LoopbackBatchSpeechServices;
using testing::ReplicaScenario;

TranscriptionProviderDescriptor cloudProvider(std::string id, CloudTranscriptionProviderAPI api,
                                              std::optional<std::string> baseURL, std::string model) {
  CloudTranscriptionProviderDescriptor cloud;
  if (baseURL) cloud.baseURL = URL::parse(*baseURL).value();
  cloud.defaultModelID = std::move(model);
  cloud.api = api;
  return {std::move(id), id, {"auto"}, TranscriptionProviderBackend::cloud(cloud)};
}

TEST(CloudTranscriptionValidationClientTest, ValidatesThroughTheServiceAndReportsRedactedFailures) {
  LoopbackBatchSpeechServices replicas;
  auto http = std::make_shared<CurlOrvidHTTPClient>();
  auto store = std::make_shared<InMemoryOrvidCredentialStore>(std::map<std::string, std::string>{
      {"provider.deepgram.api-key", LoopbackBatchSpeechServices::kKey},
      {"provider.team.api-key", LoopbackBatchSpeechServices::kKey}});
  CloudTranscriptionValidationClient client(store, http, [](auto, std::stop_token) {});
  const auto now = std::chrono::system_clock::time_point(std::chrono::seconds(1'800'000'000));
  using API = CloudTranscriptionProviderAPI;
  struct Case {
    const char* name;
    TranscriptionProviderDescriptor provider;
    std::optional<std::string> configurationID;
    std::optional<std::string> modelID;
    ReplicaScenario scenario;
    std::optional<std::string> failure;
  };
  const std::vector<Case> cases = {
      {"blank model falls back to the default", cloudProvider("deepgram", API::deepgram, replicas.baseURL("deepgram"), "nova-3"),
       std::nullopt, "  ", ReplicaScenario::answer, std::nullopt},
      {"empty transcript validates", cloudProvider("deepgram", API::deepgram, replicas.baseURL("deepgram"), "nova-3"),
       std::nullopt, std::nullopt, ReplicaScenario::wordsWithoutTranscript, std::nullopt},
      {"a job service under another configuration", cloudProvider("assemblyai", API::assemblyAI, replicas.baseURL("assemblyai"), "universal-2"),
       "team", std::nullopt, ReplicaScenario::answer, std::nullopt},
      {"no base URL", cloudProvider("x", API::deepgram, std::nullopt, "m"), std::nullopt, std::nullopt,
       ReplicaScenario::answer, "Missing transcription provider base URL."},
      {"no key", cloudProvider("cartesia", API::cartesia, replicas.baseURL("cartesia"), "ink-whisper"), std::nullopt,
       std::nullopt, ReplicaScenario::answer, "Missing credential."},
      {"echoed key", cloudProvider("soniox", API::soniox, replicas.baseURL("soniox"), "stt-async-v5"), "team",
       std::nullopt, ReplicaScenario::failEchoingKey,
       "Soniox file upload failed with HTTP 500: upstream failed\nAuthorization: Bearer [REDACTED]\n"},
      {"doubao", cloudProvider("doubao", API::doubao, "https://example.com", "bigmodel"), "team", std::nullopt,
       ReplicaScenario::answer, "Doubao batch transcription is not wired yet."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    replicas.setScenario(c.scenario);
    auto state = client.validate(c.provider, c.configurationID, c.modelID, now);
    if (c.failure) {
      EXPECT_EQ(state.kind, AIProviderValidationState::Kind::failed);
      EXPECT_EQ(state.message, c.failure);
    } else {
      EXPECT_EQ(state, AIProviderValidationState::validated(now)) << state.message.value_or("");
    }
  }
  const auto sent = replicas.requests();
  ASSERT_FALSE(sent.empty());
  EXPECT_EQ(sent[0].query.at(0).second, "nova-3");
  EXPECT_EQ(sent[0].body.size(), 2604u) << "a 44-byte header and 80 ms of silence";
}

TEST(CloudTranscriptionValidationClientTest, AnOnDeviceProviderIsValidatedWithoutTraffic) {
  auto http = InMemoryOrvidHTTPClient::answering(500, {});
  CloudTranscriptionValidationClient client(std::make_shared<InMemoryOrvidCredentialStore>(), http);
  TranscriptionProviderDescriptor local{"whisper", "Whisper", {"auto"},
                                        TranscriptionProviderBackend::onDevice(LocalTranscriptionModelDescriptor{})};
  const auto now = std::chrono::system_clock::now();
  EXPECT_EQ(client.validate(local, std::nullopt, std::nullopt, now), AIProviderValidationState::validated(now));
  EXPECT_TRUE(http->requests().empty());
}

}  // namespace
}  // namespace orvid
