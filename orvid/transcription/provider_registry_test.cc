#include <gtest/gtest.h>

#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/transcription/ai_provider_registry.h"
#include "orvid/transcription/transcription_provider_registry.h"

namespace orvid {
namespace {

TEST(TranscriptionProviderRegistryTest, ListsTheCatalogueAndFindsEntriesByExactIdentifier) {
  const auto& all = TranscriptionProviderRegistry::descriptors();
  EXPECT_EQ(all, OrvidDefaults::transcriptionProviders());
  ASSERT_FALSE(all.empty());
  for (const auto& provider : all) {
    EXPECT_EQ(TranscriptionProviderRegistry::descriptor(provider.id), provider);
  }
  EXPECT_FALSE(TranscriptionProviderRegistry::descriptor("OpenAI"));
  EXPECT_FALSE(TranscriptionProviderRegistry::descriptor("openai "));
  EXPECT_FALSE(TranscriptionProviderRegistry::descriptor(""));
  EXPECT_TRUE(TranscriptionProviderRegistry::descriptor("openai"));
}

TEST(TranscriptionProviderRegistryTest, LocalModelsAreThoseOfTheOnDeviceEntriesInOrder) {
  const auto models = TranscriptionProviderRegistry::localModelDescriptors();
  std::size_t onDevice = 0;
  for (const auto& provider : TranscriptionProviderRegistry::descriptors()) {
    if (provider.backend.kind() == TranscriptionProviderBackend::Kind::onDevice) {
      ASSERT_LT(onDevice, models.size());
      EXPECT_EQ(models[onDevice], *provider.backend.localModel());
      ++onDevice;
    }
  }
  EXPECT_EQ(onDevice, models.size());
  EXPECT_GT(onDevice, 0u);
}

TEST(AIProviderRegistryTest, ListsTheCatalogueAndFindsEntriesByExactIdentifier) {
  const auto& all = AIProviderRegistry::descriptors();
  EXPECT_EQ(all, OrvidDefaults::aiProviderDescriptors());
  ASSERT_FALSE(all.empty());
  for (const auto& provider : all) {
    ASSERT_TRUE(AIProviderRegistry::descriptor(provider.id)) << provider.id;
    EXPECT_EQ(AIProviderRegistry::descriptor(provider.id)->id, provider.id);
  }
  std::string upper = all.front().id;
  for (auto& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (upper != all.front().id) {
    EXPECT_FALSE(AIProviderRegistry::descriptor(upper));
  }
  EXPECT_FALSE(AIProviderRegistry::descriptor("no-such-provider"));
}

}  // namespace
}  // namespace orvid
