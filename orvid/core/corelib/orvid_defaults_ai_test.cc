#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/core/corelib/transcription_prompt.h"

namespace orvid {
namespace {

const AIProviderDescriptor& provider(const std::string& id) {
  const auto& all = OrvidDefaults::aiProviderDescriptors();
  auto it = std::find_if(all.begin(), all.end(), [&](const auto& descriptor) { return descriptor.id == id; });
  if (it == all.end()) throw std::out_of_range("no built-in provider " + id);
  return *it;
}

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

TEST(OrvidDefaultsAITest, WellKnownServicesCarryTheirDocumentedEndpointsAndCapabilities) {
  EXPECT_EQ(provider("openai").defaultBaseURL->absoluteString(), "https://api.openai.com/v1");
  EXPECT_TRUE(provider("openai").supportsStructuredOutput);

  const auto& anthropic = provider("anthropic");
  EXPECT_EQ(anthropic.apiStyle, AIProviderAPIStyle::anthropicMessages);
  EXPECT_EQ(anthropic.defaultBaseURL->absoluteString(), "https://api.anthropic.com/v1");
  ASSERT_EQ(anthropic.defaultHeaders.size(), 1u);
  EXPECT_EQ(anthropic.defaultHeaders[0], (AIProviderHeader{"anthropic-version", "2023-06-01"}));

  EXPECT_TRUE(provider("openrouter").supportsReasoningObject);
  EXPECT_FALSE(provider("openrouter").supportsReasoningEffort);
  EXPECT_EQ(provider("gemini").defaultBaseURL->absoluteString(),
            "https://generativelanguage.googleapis.com/v1beta/openai");
  EXPECT_EQ(provider("ollama").defaultBaseURL->port(), 11434);
  EXPECT_EQ(provider("lmstudio").defaultBaseURL->port(), 1234);
  EXPECT_FALSE(provider("zhipu").supportsModelDiscovery);
  EXPECT_FALSE(provider("openai-compatible").defaultBaseURL);
}

TEST(OrvidDefaultsAITest, BuiltInPromptsAreTheFourDefaultsInOrderWithTheFallbackAmongThem) {
  const auto& prompts = OrvidDefaults::builtInPrompts();
  ASSERT_EQ(prompts.size(), 4u);
  const char* identifiers[] = {"default_correct", "default_improve", "default_restructure", "default_translate"};
  for (std::size_t index = 0; index < prompts.size(); ++index) {
    EXPECT_EQ(prompts[index].id, identifiers[index]);
    EXPECT_EQ(prompts[index].sortOrder, static_cast<int>(index));
    EXPECT_TRUE(prompts[index].isBuiltIn);
    EXPECT_FALSE(prompts[index].rewritesAsAlternatives);
    EXPECT_FALSE(prompts[index].modelID);
    EXPECT_FALSE(prompts[index].name.empty());
    EXPECT_GT(prompts[index].promptText.size(), 200u);
  }
  EXPECT_EQ(TranscriptionPrompt::fallbackPromptID, prompts.front().id);
}

}  // namespace
}  // namespace orvid
