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
  cloud.realtimeModelIDs = {"nova-2"};
  cloud.defaultRealtimeModelID = "nova-2";
  cloud.api = CloudTranscriptionProviderAPI::deepgram;
  return {"deepgram", "Deepgram", {"en", "de"}, TranscriptionProviderBackend::cloud(cloud)};
}

TranscriptionProviderDescriptor localProvider() {
  LocalTranscriptionModelDescriptor model;
  model.id = "whispercpp-base";
  model.name = "Whisper Base";
  model.fileName = "ggml-base.bin";
  model.languageCodes = {"auto", "en"};
  return {"local.whispercpp-base", "Whisper Base", {"auto", "en"}, TranscriptionProviderBackend::onDevice(model)};
}

TEST(TranscriptionProviderDescriptorTest, DecodingRejectsUnknownAPIsAndBackendsWithoutACase) {
  auto unknownAPI = nlohmann::json(cloudProvider());
  unknownAPI["backend"]["cloud"]["api"] = "whisperX";
  EXPECT_THROW(unknownAPI.get<TranscriptionProviderDescriptor>(), nlohmann::json::exception);
  auto noCase = nlohmann::json(cloudProvider());
  noCase["backend"] = nlohmann::json::object();
  EXPECT_THROW(noCase.get<TranscriptionProviderDescriptor>(), nlohmann::json::exception);
}

TEST(TranscriptionProviderDescriptorTest, BackendAccessorsAndDefaultModelsFollowTheCase) {
  const auto cloud = cloudProvider();
  const auto local = localProvider();
  EXPECT_EQ(cloud.backend.localModel(), nullptr);
  EXPECT_EQ(local.backend.cloudDescriptor(), nullptr);
  EXPECT_EQ(cloud.defaultModelID(false), "nova-3");
  EXPECT_EQ(cloud.defaultModelID(true), "nova-2");
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
