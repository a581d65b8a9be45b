#include "orvid/transcription/asr_language_routing_resolver.h"

#include <gtest/gtest.h>

namespace orvid {
namespace {

using API = CloudTranscriptionProviderAPI;
using Strategy = ASRLanguageRoutingStrategy;
using Codes = std::vector<std::string>;
constexpr auto batch = ASRTranscriptionTransport::batch;
constexpr auto realtime = ASRTranscriptionTransport::realtime;

const Codes kLanguages{"auto", "en", "de", "fr", "zh-Hans", "zh-Hant", "yue-Hant"};

TranscriptionProviderDescriptor cloudProvider(std::string id, API api, Codes languages, std::string model,
                                              bool withRealtime = false) {
  CloudTranscriptionProviderDescriptor cloud;
  cloud.baseURL = URL::parse("https://speech.example.com/v1");
  cloud.modelIDs = {model};
  cloud.defaultModelID = model;
  if (withRealtime) {
    cloud.realtimeBaseURL = URL::parse("wss://speech.example.com/v1/realtime");
    cloud.realtimeModelIDs = {model};
    cloud.defaultRealtimeModelID = model;
  }
  cloud.api = api;
  return {std::move(id), "Example", std::move(languages), TranscriptionProviderBackend::cloud(cloud)};
}

TranscriptionProviderDescriptor onDeviceModel(std::string id, LocalTranscriptionEngineType engine, Codes languages) {
  LocalTranscriptionModelDescriptor model;
  model.id = id;
  model.fileName = "model.bin";
  model.engineType = engine;
  model.languageCodes = languages;
  return {std::move(id), "Model", std::move(languages), TranscriptionProviderBackend::onDevice(model)};
}

using Capability = ASRLanguageInputCapability;
using Behavior = ASRUnspecifiedLanguageBehavior;

// The inputs, the capability they must mean, and the route fields not copied from the inputs.
struct Row {
  const char* name;
  TranscriptionProviderDescriptor provider;
  ASRTranscriptionTransport transport;
  std::optional<std::string> model;
  Codes selection;
  Capability capability;
  Strategy strategy;
  std::optional<std::string> language = std::nullopt;
  Codes hints = {};
  Codes expectedLanguages = {};
  std::optional<std::string> cleanupLanguage = std::nullopt;
  Codes diagnostics = {};
};

void check(const Row& row) {
  SCOPED_TRACE(row.name);
  ASSERT_EQ(ASRLanguageCapabilityResolver::capability(row.provider, row.transport, row.model), row.capability);

  const ResolvedASRLanguageRoute expected{row.provider.id, row.model,          row.transport,
                                          row.strategy,    row.selection,      row.language,
                                          row.hints,       row.expectedLanguages, row.cleanupLanguage,
                                          row.diagnostics};
  auto actual = ASRLanguageRoutingResolver::resolve(ASRLanguageSelection{row.selection}, row.provider, row.transport,
                                                    row.model);
  EXPECT_EQ(actual, expected) << "\n  got:      " << actual.diagnosticSummary()
                              << "\n  expected: " << expected.diagnosticSummary();
}

TEST(ASRLanguageRoutingResolverTest, EveryRowOfTheDecisionTable) {
  const auto detecting = cloudProvider("openai", API::openAICompatible, kLanguages, "whisper-1");
  const auto fixed = cloudProvider("cartesia", API::cartesia, kLanguages, "ink-whisper");
  const auto fallingBack = cloudProvider("stepfun", API::stepFun, {"AUTO", "zh-Hans", "en"}, "stepaudio-2.5-asr");
  const auto withoutFallback = cloudProvider("stepfun", API::stepFun, {"auto"}, "stepaudio-2.5-asr");
  const auto realtimeDetecting = cloudProvider("openai", API::openAICompatible, kLanguages, "gpt-4o-transcribe", true);
  const auto multilingual = cloudProvider("deepgram", API::deepgram, kLanguages, "nova-3");
  const auto hints = cloudProvider("soniox", API::soniox, kLanguages, "stt-async-v5");
  const auto detection = cloudProvider("assemblyai", API::assemblyAI, kLanguages, "universal-2");
  const auto batchOnly = cloudProvider("groq", API::openAICompatible, kLanguages, "whisper-large-v3-turbo");
  const auto silent = cloudProvider("glm", API::glm, kLanguages, "glm-asr-2512");

  const std::string noAdapter = "The selected transport has no constructible language-aware adapter.";
  const std::string onlyOne = "The provider accepts one language; using the primary selection.";
  const auto single = Capability::singleLanguage;

  const Row rows[] = {
      {"single, none, payload detect", detecting, batch, std::nullopt, {}, single(Behavior::detectAutomatically),
       Strategy::automatic},
      {"single, none, payload fixed value", fixed, batch, std::nullopt, {},
       Capability::singleLanguageWithFixedValue("en"), Strategy::automatic, "en"},
      {"single, none, payload fallback (cloud: normalised)", fallingBack, batch, std::nullopt, {},
       single(Behavior::fallbackToFirstSupported), Strategy::unavailableFallback, "zh", {}, {}, "zh-Hans",
       {"Automatic language selection is unsupported; using zh-Hans."}},
      {"single, none, payload fallback without a code", withoutFallback, batch, std::nullopt, {},
       single(Behavior::fallbackToFirstSupported), Strategy::unavailableFallback, std::nullopt, {}, {}, std::nullopt,
       {"Automatic language selection is unsupported and no fallback language is available."}},
      {"single, one", detecting, batch, std::nullopt, {"de"}, single(Behavior::detectAutomatically),
       Strategy::explicitSingle, "de", {}, {}, "de"},
      {"single, one on a fixed-value provider", fixed, batch, std::nullopt, {"de"},
       Capability::singleLanguageWithFixedValue("en"), Strategy::explicitSingle, "de", {}, {}, "de"},
      {"single, several", realtimeDetecting, realtime, "gpt-4o-transcribe", {"zh-Hant", "en"},
       single(Behavior::detectAutomatically), Strategy::unavailableFallback, "zh", {}, {}, "zh-Hant", {onlyOne}},
      {"multilingual, one", multilingual, batch, std::nullopt, {"zh-Hans"}, Capability::broadMultilingual("multi"),
       Strategy::explicitSingle, "zh", {}, {}, "zh-Hans"},
      {"multilingual, none", multilingual, batch, std::nullopt, {}, Capability::broadMultilingual("multi"),
       Strategy::multilingualMode, "multi", {}, {}, std::nullopt,
       {"Automatic selection uses the provider's broad multilingual mode."}},
      {"multilingual, several", multilingual, batch, std::nullopt, {"de", "en"}, Capability::broadMultilingual("multi"),
       Strategy::multilingualMode, "multi", {}, {}, std::nullopt,
       {"The provider's multilingual mode is broad; the selected subset is not enforced server-side."}},
      {"hints, several", hints, batch, std::nullopt, {"en", "yue-Hant"}, Capability::languageHints(),
       Strategy::candidateHints, std::nullopt, {"en", "yue"}},
      {"detection, several", detection, batch, std::nullopt, {"fr", "zh-Hant"}, Capability::candidateDetection(),
       Strategy::candidateDetection, std::nullopt, {}, {"fr", "zh"}},
      {"no adapter, one", batchOnly, realtime, std::nullopt, {"yue-Hant"}, Capability::noLanguageAwareAdapter(),
       Strategy::unavailableFallback, "yue", {}, {}, "yue-Hant", {noAdapter}},
      {"no language input, several", silent, batch, std::nullopt, {"en", "de"}, Capability::noLanguageInput(),
       Strategy::noLanguageInput},
  };
  for (const auto& row : rows) check(row);
}

TEST(ASRLanguageRoutingResolverTest, UnsupportedCodesAreIgnoredWithOneDiagnosticBeforeTheBranch) {
  const auto hints = cloudProvider("soniox", API::soniox, {"en", "de"}, "stt-async-v5");
  auto route = ASRLanguageRoutingResolver::resolve(ASRLanguageSelection{{"xx", "de"}}, hints, batch);
  EXPECT_EQ(route.diagnosticSummary(),
            "provider=soniox | model=default | transport=batch | strategy=candidateHints | selected=de"
            " | language_hints=de | cleanup_language=de | notes=Ignored unsupported language codes: xx");

  const auto single = cloudProvider("openai", API::openAICompatible, {"en", "de"}, "whisper-1");
  route = ASRLanguageRoutingResolver::resolve(ASRLanguageSelection{{"Xx", "EN", "yy", "de"}}, single, batch);
  EXPECT_EQ(route.providerLanguage, "EN");
  EXPECT_EQ(route.diagnostics, (Codes{"Ignored unsupported language codes: Xx, yy",
                                      "The provider accepts one language; using the primary selection."}));

  // A repeated code is dropped by the limiting but is not an unsupported code.
  route = ASRLanguageRoutingResolver::resolve(ASRLanguageSelection{{"de", "DE"}}, single, batch);
  EXPECT_EQ(route.selectedLanguageCodes, Codes{"de"});
  EXPECT_TRUE(route.diagnostics.empty());
}

TEST(ASRLanguageRoutingResolverTest, ProviderListingOnlyAutoKeepsTheSelectionUnchanged) {
  const auto open = cloudProvider("openai-compatible", API::openAICompatible, {"auto"}, "whisper-1");
  auto route = ASRLanguageRoutingResolver::resolve(ASRLanguageSelection{{"xx", "Klingon"}}, open, batch);
  EXPECT_EQ(route.selectedLanguageCodes, (Codes{"xx", "Klingon"}));
}

TEST(ASRLanguageRoutingResolverTest, ChineseScriptsAreNormalisedOnlyForCloudServices) {
  struct Case { TranscriptionProviderDescriptor provider; const char* sent; };
  const Case cases[] = {
      {cloudProvider("elevenlabs", API::elevenLabs, kLanguages, "scribe_v2"), "zho"},
      {cloudProvider("mistral", API::mistral, kLanguages, "voxtral-mini-latest"), "zh"},
      {onDeviceModel("local.model", LocalTranscriptionEngineType::whisperCpp, kLanguages), "zh-Hans"},
  };
  for (const auto& c : cases) {
    auto route = ASRLanguageRoutingResolver::resolve(ASRLanguageSelection{{"zh-Hans"}}, c.provider, batch);
    EXPECT_EQ(route.providerLanguage, c.sent) << c.provider.id;
  }
}

}  // namespace
}  // namespace orvid
