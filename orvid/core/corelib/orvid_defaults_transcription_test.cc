#include <algorithm>
#include <cstdlib>
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
    if (const auto* cloud = provider.backend.cloudDescriptor()) apis.insert(cloud->api);
  }
  for (auto api : allCloudTranscriptionProviderAPIs()) EXPECT_TRUE(apis.contains(api)) << rawValue(api);
}

TEST(OrvidDefaultsTranscriptionTest, CloudEntriesOfferTheirDefaultModelsAndRealtimeOnlyWhereASessionExists) {
  for (const auto& provider : OrvidDefaults::transcriptionProviders()) {
    const auto* cloud = provider.backend.cloudDescriptor();
    if (!cloud) continue;
    SCOPED_TRACE(provider.id);
    if (cloud->baseURL) {
      EXPECT_EQ(cloud->baseURL->scheme(), "https");
      EXPECT_NE(std::find(cloud->modelIDs.begin(), cloud->modelIDs.end(), cloud->defaultModelID),
                cloud->modelIDs.end());
    }
    if (cloud->realtimeBaseURL) {
      ASSERT_TRUE(cloud->defaultRealtimeModelID);
      EXPECT_EQ(cloud->realtimeModelIDs.front(), *cloud->defaultRealtimeModelID);
      EXPECT_TRUE(cloud->api == API::openAICompatible || cloud->api == API::soniox || cloud->api == API::deepgram ||
                  cloud->api == API::stepFun || cloud->api == API::aliyunCompatible)
          << "no real-time session exists for " << rawValue(cloud->api);
    } else {
      EXPECT_TRUE(cloud->realtimeModelIDs.empty());
    }
  }
}

TEST(OrvidDefaultsTranscriptionTest, WhisperCppModelsDownloadTheirOwnFileAtItsStatedSize) {
  std::set<std::string> fileNames;
  for (const auto& model : OrvidDefaults::localTranscriptionModels()) {
    SCOPED_TRACE(model.id);
    EXPECT_TRUE(fileNames.insert(model.fileName).second) << "shared file name " << model.fileName;
    if (model.artifactFormat != LocalTranscriptionArtifactFormat::whisperCppModel) continue;
    ASSERT_TRUE(model.downloadURL);
    ASSERT_TRUE(model.downloadSizeBytes);
    EXPECT_EQ(model.downloadURL->absoluteString(),
              "https://huggingface.co/ggerganov/whisper.cpp/resolve/main/" + model.fileName);
    // The rounded megabytes agree with the exact size.
    EXPECT_LE(std::llabs(static_cast<long long>(model.approximateSizeMB) * 1'000'000 - *model.downloadSizeBytes),
              500'000);
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
