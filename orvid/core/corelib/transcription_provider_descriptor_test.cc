#include "orvid/core/corelib/transcription_provider_descriptor.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TranscriptionProviderDescriptor cloudProvider() {
  CloudTranscriptionProviderDescriptor cloud;
  cloud.baseURL = URL::parse("https://api.deepgram.com/v1");
  cloud.modelIDs = {"nova-3", "nova-2"};
  cloud.defaultModelID = "nova-3";
  cloud.realtimeBaseURL = URL::parse("wss://api.deepgram.com/v1/listen");
  cloud.realtimeModelIDs = {"nova-3"};
  cloud.defaultRealtimeModelID = "nova-3";
  cloud.api = CloudTranscriptionProviderAPI::deepgram;
  return {"deepgram", "Deepgram", {"en", "de"}, TranscriptionProviderBackend::cloud(cloud)};
}

TranscriptionProviderDescriptor localProvider() {
  LocalTranscriptionModelDescriptor model;
  model.id = "whispercpp-base";
  model.name = "Whisper Base";
  model.fileName = "ggml-base.bin";
  model.downloadURL = URL::parse("https://huggingface.co/ggerganov/whisper.cpp/resolve/main/ggml-base.bin");
  model.approximateSizeMB = 148;
  model.downloadSizeBytes = 147951465;
  model.languageCodes = {"auto", "en"};
  return {"local.whispercpp-base", "Whisper Base", {"auto", "en"}, TranscriptionProviderBackend::onDevice(model)};
}

TEST(TranscriptionProviderDescriptorTest, BothBackendsSurviveAJSONRoundTrip) {
  for (const auto& provider : {cloudProvider(), localProvider()}) {
    const nlohmann::json json = provider;
    EXPECT_EQ(json.get<TranscriptionProviderDescriptor>(), provider) << json.dump();
  }
  const nlohmann::json cloud = cloudProvider();
  EXPECT_EQ(cloud.at("backend").at("cloud").at("api"), "deepgram");
  EXPECT_EQ(cloud.at("backend").at("cloud").at("realtimeBaseURL"), "wss://api.deepgram.com/v1/listen");
  const nlohmann::json local = localProvider();
  EXPECT_EQ(local.at("backend").at("onDevice").at("id"), "whispercpp-base");
}

TEST(TranscriptionProviderDescriptorTest, CloudDescriptorWithoutBaseURLOrRealtimeOmitsThoseKeys) {
  CloudTranscriptionProviderDescriptor cloud;
  cloud.defaultModelID = "whisper-1";
  cloud.modelIDs = {"whisper-1"};
  const nlohmann::json json = cloud;
  EXPECT_FALSE(json.contains("baseURL"));
  EXPECT_FALSE(json.contains("realtimeBaseURL"));
  EXPECT_FALSE(json.contains("defaultRealtimeModelID"));
  EXPECT_EQ(json.get<CloudTranscriptionProviderDescriptor>(), cloud);
}

TEST(TranscriptionProviderDescriptorTest, DecodingRejectsUnknownAPIsAndBackendsWithoutACase) {
  auto unknownAPI = nlohmann::json(cloudProvider());
  unknownAPI["backend"]["cloud"]["api"] = "whisperX";
  EXPECT_THROW(unknownAPI.get<TranscriptionProviderDescriptor>(), nlohmann::json::exception);
  auto noCase = nlohmann::json(cloudProvider());
  noCase["backend"] = nlohmann::json::object();
  EXPECT_THROW(noCase.get<TranscriptionProviderDescriptor>(), nlohmann::json::exception);
}

TEST(TranscriptionProviderDescriptorTest, APIHasElevenCasesInTheirFixedOrder) {
  const char* names[] = {"openAICompatible", "deepgram", "elevenLabs", "cartesia", "mistral", "soniox",
                         "assemblyAI",       "doubao",   "glm",        "stepFun",  "aliyunCompatible"};
  const auto& all = allCloudTranscriptionProviderAPIs();
  ASSERT_EQ(all.size(), 11u);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(static_cast<std::size_t>(all[i]), i);
    EXPECT_EQ(rawValue(all[i]), names[i]);
    EXPECT_EQ(cloudTranscriptionProviderAPI(names[i]), all[i]);
  }
  EXPECT_FALSE(cloudTranscriptionProviderAPI("OpenAICompatible"));
}

TEST(TranscriptionProviderDescriptorTest, BackendAccessorsAndDefaultModelsFollowTheCase) {
  const auto cloud = cloudProvider();
  const auto local = localProvider();
  EXPECT_TRUE(cloud.backend.isCloud());
  EXPECT_EQ(cloud.backend.localModel(), nullptr);
  EXPECT_EQ(local.backend.kind(), TranscriptionProviderBackend::Kind::onDevice);
  EXPECT_EQ(local.backend.cloudDescriptor(), nullptr);
  EXPECT_EQ(cloud.defaultModelID(false), "nova-3");
  EXPECT_EQ(local.defaultModelID(true), "whispercpp-base");
  EXPECT_TRUE(cloud.supportsRealtime());
  EXPECT_TRUE(local.supportsRealtime());

  auto batchOnly = cloudProvider();
  auto descriptor = *batchOnly.backend.cloudDescriptor();
  descriptor.realtimeBaseURL.reset();
  descriptor.defaultRealtimeModelID.reset();
  batchOnly.backend = TranscriptionProviderBackend::cloud(descriptor);
  EXPECT_FALSE(batchOnly.supportsRealtime());
  EXPECT_EQ(batchOnly.defaultModelID(true), std::nullopt);
}

}  // namespace
}  // namespace orvid
