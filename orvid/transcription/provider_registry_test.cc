#include <gtest/gtest.h>

#include "orvid/transcription/ai_provider_registry.h"
#include "orvid/transcription/transcription_provider_registry.h"

namespace orvid {
namespace {

TEST(TranscriptionProviderRegistryTest, FindsEntriesByExactIdentifierAndListsTheOnDeviceModelsInOrder) {
  std::vector<LocalTranscriptionModelDescriptor> onDevice;
  for (const auto& provider : TranscriptionProviderRegistry::descriptors()) {
    EXPECT_EQ(TranscriptionProviderRegistry::descriptor(provider.id), provider);
    if (auto model = provider.backend.localModel()) onDevice.push_back(*model);
  }
  for (const char* unknown : {"OpenAI", "openai ", ""})
    EXPECT_FALSE(TranscriptionProviderRegistry::descriptor(unknown));
  EXPECT_FALSE(onDevice.empty());
  EXPECT_EQ(TranscriptionProviderRegistry::localModelDescriptors(), onDevice);
}

TEST(AIProviderRegistryTest, FindsEntriesByExactIdentifier) {
  ASSERT_FALSE(AIProviderRegistry::descriptors().empty());
  for (const auto& provider : AIProviderRegistry::descriptors()) {
    ASSERT_TRUE(AIProviderRegistry::descriptor(provider.id)) << provider.id;
    EXPECT_EQ(AIProviderRegistry::descriptor(provider.id)->id, provider.id);
  }
  EXPECT_FALSE(AIProviderRegistry::descriptor("OpenAI"));
  EXPECT_FALSE(AIProviderRegistry::descriptor("no-such-provider"));
}

}  // namespace
}  // namespace orvid
