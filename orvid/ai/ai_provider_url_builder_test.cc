#include "orvid/ai/ai_provider_url_builder.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

std::optional<std::string> endpointText(const char* base, std::optional<std::string> path) {
  auto url = AIProviderURLBuilder::endpoint(base, path);
  if (!url) return std::nullopt;
  return url->absoluteString();
}

TEST(AIProviderURLBuilderTest, EndpointJoinsBaseAndPathWithExactlyOneSlash) {
  struct Case { const char* base; std::optional<std::string> path; std::optional<std::string> expected; };
  const Case cases[] = {
      {"https://api.example.com/v1/", "/models", "https://api.example.com/v1/models"},
      {"https://api.example.com/v1", "models", "https://api.example.com/v1/models"},
      {"  https://api.example.com/v1///\n", "  models  ", "https://api.example.com/v1/models"},
      {"https://api.example.com", "v2/models", "https://api.example.com/v2/models"},
      {"https://proxy.example.com/v1?team=7", "models", "https://proxy.example.com/v1/models?team=7"},
      // Further leading "/" never double the separator; blank parts give no address.
      {"https://api.example.com/v1/", "///models/", "https://api.example.com/v1/models/"},
      {"https://api.example.com/v1", "", std::nullopt},
      {"https://api.example.com/v1", std::nullopt, std::nullopt},
      {"", "models", std::nullopt},
      {"not a url", "models", std::nullopt},
      // Unicode white space counts as blank too (no-break, ideographic, line separator).
      {"\u00a0https://api.example.com/v1/\u3000", "\u2028models\u00a0", "https://api.example.com/v1/models"},
      {"https://api.example.com/v1", "\u00a0\u2029", std::nullopt},
      // Inner separators stay; other characters are escaped as path text.
      {"https://api.example.com/v1", "my models", "https://api.example.com/v1/my%20models"},
      {"https://user:pw@api.example.com/v1/#top", "models", "https://user:pw@api.example.com/v1/models#top"},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(endpointText(testCase.base, testCase.path), testCase.expected)
        << "base '" << testCase.base << "' path '" << testCase.path.value_or("<none>") << "'";
  }
}

TEST(AIProviderURLBuilderTest, ChatEndpointNeverDoublesTheChatPath) {
  struct Case { const char* base; const char* path; const char* expected; };
  const Case cases[] = {
      {"https://api.example.com/v1", "chat/completions", "https://api.example.com/v1/chat/completions"},
      {"https://api.example.com/v1/", "/chat/completions", "https://api.example.com/v1/chat/completions"},
      {"https://api.example.com/v1/chat", "chat/completions", "https://api.example.com/v1/chat/completions"},
      {"https://api.anthropic.com/v1/Messages", "messages", "https://api.anthropic.com/v1/messages"},
      {"https://api.anthropic.com/v1/messages//", "messages", "https://api.anthropic.com/v1/messages"},
      {"https://gw.example.com:8443/v1/chat/completions/?api-version=2", "chat/completions",
       "https://gw.example.com:8443/v1/chat/completions?api-version=2"},
      // A path that merely contains "chat" is left alone.
      {"https://api.example.com/chatbots/v1", "chat/completions",
       "https://api.example.com/chatbots/v1/chat/completions"},
      {"https://api.example.com/v1/chat/completions", "  ", "https://api.example.com/v1"},
      // Only a trailing chat path is removed, once.
      {"https://api.example.com/chat/completions/chat/completions", "chat/completions",
       "https://api.example.com/chat/completions/chat/completions"},
      {"https://api.example.com/v1/messages/chat", "messages", "https://api.example.com/v1/messages/messages"},
  };
  for (const auto& testCase : cases) {
    auto base = URL::parse(testCase.base);
    ASSERT_TRUE(base) << testCase.base;
    EXPECT_EQ(AIProviderURLBuilder::chatEndpoint(*base, testCase.path).absoluteString(), testCase.expected)
        << testCase.base << " + " << testCase.path;
  }
}

}  // namespace
}  // namespace orvid
