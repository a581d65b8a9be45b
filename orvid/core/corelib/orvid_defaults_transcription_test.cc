#include <set>
#include <string>

#include <gtest/gtest.h>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"

namespace orvid {
namespace {

using API = CloudTranscriptionProviderAPI;

TEST(OrvidDefaultsTranscriptionTest, ProviderIdentifiersAreUniqueAndEveryAPICaseIsOffered) {
  std::set<std::string> ids;
  std::set<API> apis;
  for (const auto& provider : OrvidDefaults::transcriptionProviders()) {
    EXPECT_TRUE(ids.insert(provider.id).second) << "duplicate " << provider.id;
    EXPECT_FALSE(provider.name.empty()) << provider.id;
    if (const auto* cloud = provider.backend.cloudDescriptor()) apis.insert(cloud->api);
  }
  for (auto api : allCloudTranscriptionProviderAPIs()) EXPECT_TRUE(apis.contains(api)) << rawValue(api);
}

TEST(OrvidDefaultsTranscriptionTest, CloudEntriesHaveUsableEndpointsAndModels) {
  int realtimeServices = 0;
  for (const auto& provider : OrvidDefaults::transcriptionProviders()) {
    const auto* cloud = provider.backend.cloudDescriptor();
    if (!cloud) continue;
    EXPECT_FALSE(cloud->defaultModelID.empty()) << provider.id;
    EXPECT_FALSE(provider.supportedLanguageCodes.empty()) << provider.id;
    if (cloud->baseURL) {
      EXPECT_EQ(cloud->baseURL->scheme(), "https") << provider.id;
      EXPECT_NE(std::find(cloud->modelIDs.begin(), cloud->modelIDs.end(), cloud->defaultModelID),
                cloud->modelIDs.end())
          << provider.id;
    } else {
      EXPECT_EQ(provider.id, "openai-compatible") << "only the self-hosted entry lacks a base URL";
    }
    if (cloud->realtimeBaseURL) {
      ++realtimeServices;
      ASSERT_TRUE(cloud->defaultRealtimeModelID) << provider.id;
      EXPECT_EQ(cloud->realtimeModelIDs.front(), *cloud->defaultRealtimeModelID) << provider.id;
      EXPECT_TRUE(cloud->api == API::openAICompatible || cloud->api == API::soniox || cloud->api == API::deepgram ||
                  cloud->api == API::stepFun || cloud->api == API::aliyunCompatible)
          << provider.id << " has a real-time endpoint but no real-time session exists for " << rawValue(cloud->api);
    } else {
      EXPECT_TRUE(cloud->realtimeModelIDs.empty()) << provider.id;
    }
  }
  EXPECT_EQ(realtimeServices, 5);
}

TEST(OrvidDefaultsTranscriptionTest, LocalModelsAreDownloadableAndConsistentWithTheirFormat) {
  std::set<std::string> ids;
  std::set<std::string> fileNames;
  for (const auto& model : OrvidDefaults::localTranscriptionModels()) {
    EXPECT_TRUE(ids.insert(model.id).second) << "duplicate " << model.id;
    EXPECT_TRUE(fileNames.insert(model.fileName).second) << "shared file name " << model.fileName;
    EXPECT_FALSE(model.languageCodes.empty()) << model.id;
    EXPECT_NE(model.artifactFormat, LocalTranscriptionArtifactFormat::onnxRuntimeBundle) << model.id;
    if (model.artifactFormat == LocalTranscriptionArtifactFormat::systemSpeech) continue;
    EXPECT_GT(model.approximateSizeMB, 0) << model.id;
    switch (model.artifactFormat) {
      case LocalTranscriptionArtifactFormat::whisperCppModel: {
        ASSERT_TRUE(model.downloadURL) << model.id;
        ASSERT_TRUE(model.downloadSizeBytes) << model.id;
        EXPECT_GT(*model.downloadSizeBytes, 0);
        EXPECT_EQ(model.engineType, LocalTranscriptionEngineType::whisperCpp);
        EXPECT_FALSE(model.isDirectory);
        EXPECT_EQ(model.downloadURL->absoluteString(),
                  "https://huggingface.co/ggerganov/whisper.cpp/resolve/main/" + model.fileName);
        // The rounded megabytes agree with the exact size.
        EXPECT_LE(std::llabs(static_cast<long long>(model.approximateSizeMB) * 1'000'000 - *model.downloadSizeBytes),
                  500'000)
            << model.id;
        break;
      }
      case LocalTranscriptionArtifactFormat::whisperKitManaged:
        EXPECT_EQ(model.engineType, LocalTranscriptionEngineType::whisperKit);
        EXPECT_TRUE(model.whisperKitVariant) << model.id;
        EXPECT_TRUE(model.isDirectory);
        break;
      case LocalTranscriptionArtifactFormat::mlxCheckpointDirectory:
      case LocalTranscriptionArtifactFormat::speechSwiftModule:
        ASSERT_TRUE(model.repositoryID) << model.id;
        EXPECT_NE(model.repositoryID->find('/'), std::string::npos) << model.id;
        EXPECT_TRUE(model.isDirectory);
        break;
      default:
        ADD_FAILURE() << model.id;
    }
  }
}

TEST(OrvidDefaultsTranscriptionTest, EveryLocalModelIsOfferedAsAnOnDeviceProviderInOrder) {
  std::vector<LocalTranscriptionModelDescriptor> offered;
  for (const auto& provider : OrvidDefaults::transcriptionProviders()) {
    if (const auto* model = provider.backend.localModel()) {
      offered.push_back(*model);
      EXPECT_EQ(provider.id, "local." + model->id);
      EXPECT_EQ(provider.supportedLanguageCodes, model->languageCodes);
    }
  }
  EXPECT_EQ(offered, OrvidDefaults::localTranscriptionModels());
}

}  // namespace
}  // namespace orvid
