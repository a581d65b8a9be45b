#include "orvid/transcription/transcription_language_resolver.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

TranscriptionProviderDescriptor providerSupporting(std::vector<std::string> codes) {
  CloudTranscriptionProviderDescriptor cloud;
  cloud.defaultModelID = "m";
  return {"p", "P", std::move(codes), TranscriptionProviderBackend::cloud(cloud)};
}

TEST(TranscriptionLanguageResolverTest, PicksTheValueToShowForEveryKindOfRequest) {
  struct Row { std::optional<std::string> requested; std::vector<std::string> supported; std::string expected; };
  const Row rows[] = {
      {"zh-Hant", {"auto", "zh", "en"}, "zh"},
      {"fr", {"auto", "zh", "en"}, "auto"},
      {"EN", {"en", "de"}, "en"},
      {std::nullopt, {"auto", "de"}, "auto"},
      {std::nullopt, {"de", "en"}, "de"},
      {"", {"de", "en"}, "de"},
      {"zh-Hans", {"en", "zh-Hant", "zh-Hans"}, "zh-Hans"},
      {"zh-Hans", {"en", "zh-Hant"}, "zh-Hant"},
      {"zh-Hant", {"zh-Hans", "en"}, "zh-Hans"},
      {"zh-Hant", {"en", "de"}, "en"},
      {"de", {}, "auto"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(TranscriptionLanguageResolver::language(row.requested, providerSupporting(row.supported)), row.expected)
        << row.requested.value_or("(absent)");
  }
}

}  // namespace
}  // namespace orvid
