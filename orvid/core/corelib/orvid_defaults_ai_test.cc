#include <set>

#include <gtest/gtest.h>

#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/core/corelib/transcription_prompt.h"

namespace orvid {
namespace {

TEST(OrvidDefaultsAITest, ProvidersHaveUniqueIdentifiersAndUsableAddresses) {
  std::set<std::string> identifiers;
  for (const auto& descriptor : OrvidDefaults::aiProviderDescriptors()) {
    EXPECT_TRUE(identifiers.insert(descriptor.id).second) << descriptor.id;
    EXPECT_FALSE(descriptor.displayName.empty()) << descriptor.id;
    EXPECT_FALSE(descriptor.modelListPath.empty()) << descriptor.id;
    if (!descriptor.defaultBaseURL) continue;
    // Remote services are reached over TLS; only servers on this machine use plain HTTP.
    if (descriptor.isLocal) {
      EXPECT_EQ(descriptor.defaultBaseURL->host(), "localhost") << descriptor.id;
      EXPECT_EQ(descriptor.apiStyle, AIProviderAPIStyle::openAICompatibleWithoutKey) << descriptor.id;
    } else {
      EXPECT_EQ(descriptor.defaultBaseURL->scheme(), "https") << descriptor.id;
      EXPECT_NE(descriptor.apiStyle, AIProviderAPIStyle::openAICompatibleWithoutKey) << descriptor.id;
    }
    // Paths are joined by the request builder; a trailing "/" or a chat path would double up.
    const auto& path = descriptor.defaultBaseURL->path();
    EXPECT_TRUE(path.empty() || path.back() != '/') << descriptor.id;
    EXPECT_EQ(path.find("chat/completions"), std::string::npos) << descriptor.id;
  }
  EXPECT_GE(identifiers.size(), 12u);
}

TEST(OrvidDefaultsAITest, BuiltInPromptsAreSortedInTheirOrderWithTheFallbackFirst) {
  const auto& prompts = OrvidDefaults::builtInPrompts();
  ASSERT_FALSE(prompts.empty());
  for (std::size_t index = 0; index < prompts.size(); ++index) {
    EXPECT_EQ(prompts[index].sortOrder, static_cast<int>(index)) << prompts[index].id;
    EXPECT_TRUE(prompts[index].isBuiltIn) << prompts[index].id;
  }
  EXPECT_EQ(TranscriptionPrompt::fallbackPromptID, prompts.front().id);
}

}  // namespace
}  // namespace orvid
