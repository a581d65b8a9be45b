#include "orvid/core/corelib/asr_language.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/core/corelib/orvid_defaults.h"

namespace orvid {
namespace {

using Capability = ASRLanguageInputCapability;
using Behavior = ASRUnspecifiedLanguageBehavior;
using Codes = std::vector<std::string>;

const TranscriptionProviderDescriptor& catalogued(const std::string& id) {
  for (const auto& provider : OrvidDefaults::transcriptionProviders()) {
    if (provider.id == id) return provider;
  }
  throw std::runtime_error("no catalogue entry " + id);
}

TEST(ASRLanguageSelectionTest, LimitedKeepsSupportedCodesInTheUsersOrderAndSpelling) {
  struct Row { Codes selection; Codes supported; Codes expected; };
  const Row rows[] = {
      {{"en", "xx"}, {"en", "de"}, {"en"}},
      {{"DE", "en"}, {"auto", "en", "de"}, {"DE", "en"}},
      {{"zh-Hans", "zh"}, {"auto", "zh-hans"}, {"zh-Hans"}},
      {{"en", "EN", "de", "en"}, {"en", "de"}, {"en", "de"}},
      {{"", " ", "fr"}, {"fr", ""}, {"fr"}},
      {{"en"}, {"auto"}, {}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ASRLanguageSelection{row.selection}.limited(row.supported).languageCodes, row.expected)
        << nlohmann::json(row.selection).dump() << " against " << nlohmann::json(row.supported).dump();
  }
}

TEST(ASRLanguageCapabilityResolverTest, CloudProvidersOfTheCatalogueOnBothTransports) {
  struct Row { const char* provider; std::optional<std::string> model; Capability batch; Capability realtime; };
  const auto detect = Capability::singleLanguage(Behavior::detectAutomatically);
  const auto omit = Capability::singleLanguage(Behavior::omitLanguage);
  const auto firstSupported = Capability::singleLanguage(Behavior::fallbackToFirstSupported);
  const auto noAdapter = Capability::noLanguageAwareAdapter();
  const Row rows[] = {
      {"openai", std::nullopt, detect, detect},
      {"deepgram", "nova-2", omit, omit},
      {"deepgram", " Nova-3-medical ", Capability::broadMultilingual("multi"), Capability::broadMultilingual("multi")},
      {"cartesia", std::nullopt, Capability::singleLanguageWithFixedValue("en"), noAdapter},
      {"soniox", std::nullopt, Capability::languageHints(), Capability::languageHints()},
      {"assemblyai", std::nullopt, Capability::candidateDetection(), noAdapter},
      {"doubao", std::nullopt, noAdapter, noAdapter},
      {"stepfun", std::nullopt, firstSupported, firstSupported},
      {"aliyun-bailian", "Paraformer-Realtime-v2", Capability::noLanguageInput(), Capability::languageHints()},
  };
  for (const auto& row : rows) {
    const auto& provider = catalogued(row.provider);
    EXPECT_EQ(ASRLanguageCapabilityResolver::capability(provider, ASRTranscriptionTransport::batch, row.model),
              row.batch)
        << row.provider << " batch " << row.model.value_or("(default)");
    EXPECT_EQ(ASRLanguageCapabilityResolver::capability(provider, ASRTranscriptionTransport::realtime, row.model),
              row.realtime)
        << row.provider << " realtime " << row.model.value_or("(default)");
  }
}

TEST(ASRLanguageCapabilityResolverTest, OnDeviceModelsFollowTheirEngineAndLanguageList) {
  struct Row { const char* provider; Capability expected; };
  const Row rows[] = {
      {"local.whispercpp-base", Capability::singleLanguage(Behavior::detectAutomatically)},
      {"local.whispercpp-base-en", Capability::singleLanguage(Behavior::fallbackToFirstSupported)},
      {"local.mlx-cohere-transcribe", Capability::singleLanguage(Behavior::fallbackToFirstSupported)},
      {"local.mlx-parakeet-tdt-0.6b-v3", Capability::noLanguageInput()},
      {"local.apple-speech", Capability::singleLanguage(Behavior::omitLanguage)},
  };
  for (const auto& row : rows) {
    const auto& provider = catalogued(row.provider);
    for (auto transport : {ASRTranscriptionTransport::batch, ASRTranscriptionTransport::realtime}) {
      EXPECT_EQ(ASRLanguageCapabilityResolver::capability(provider, transport), row.expected)
          << row.provider << " " << rawValue(transport);
    }
  }
}

TEST(ASRLanguageCapabilityResolverTest, ModelsOfRetiredFormatsAndEmptyLanguageListsGetNoLanguage) {
  LocalTranscriptionModelDescriptor retired;
  retired.id = "sense-voice-int8";
  retired.engineType = LocalTranscriptionEngineType::sherpaOnnxSenseVoice;
  retired.artifactFormat = LocalTranscriptionArtifactFormat::onnxRuntimeBundle;
  retired.languageCodes = {"auto", "zh"};
  TranscriptionProviderDescriptor provider{"local.x", "x", {"auto"}, TranscriptionProviderBackend::onDevice(retired)};
  EXPECT_EQ(ASRLanguageCapabilityResolver::capability(provider, ASRTranscriptionTransport::batch),
            Capability::noLanguageAwareAdapter());

  auto silent = retired;
  silent.engineType = LocalTranscriptionEngineType::whisperCpp;
  silent.languageCodes.clear();
  provider.backend = TranscriptionProviderBackend::onDevice(silent);
  EXPECT_EQ(ASRLanguageCapabilityResolver::capability(provider, ASRTranscriptionTransport::batch),
            Capability::noLanguageInput());
}

}  // namespace
}  // namespace orvid
