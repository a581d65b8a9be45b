#include "orvid/core/transcription_records.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/core/asr_language_route.h"
#include "orvid/core/orvid_error.h"
#include "orvid/core/pcm_frame.h"

namespace orvid {
namespace {

using nlohmann::json;

// A route that names every part, in the order the summary lists them.
ResolvedASRLanguageRoute fullRoute() {
  ResolvedASRLanguageRoute route;
  route.providerID = "soniox";
  route.modelID = "stt-rt-preview";
  route.transport = ASRTranscriptionTransport::realtime;
  route.strategy = ASRLanguageRoutingStrategy::candidateHints;
  route.selectedLanguageCodes = {"en", "zh-Hans"};
  route.providerLanguage = "en";
  route.providerLanguageHints = {"en", "zh"};
  route.expectedLanguages = {"en", "zh", "ja"};
  route.effectivePostProcessingLanguage = "en";
  route.diagnostics = {"first note", "second note"};
  return route;
}

TEST(ResolvedASRLanguageRouteTest, SummaryOfTheUnspecifiedRouteNamesOnlyTheFiveFixedParts) {
  EXPECT_EQ(ResolvedASRLanguageRoute::unspecified.diagnosticSummary(),
            "provider=unspecified | model=default | transport=batch | strategy=noLanguageInput | selected=auto");
}

TEST(ResolvedASRLanguageRouteTest, SummaryListsEveryPresentPartInOrder) {
  EXPECT_EQ(fullRoute().diagnosticSummary(),
            "provider=soniox | model=stt-rt-preview | transport=realtime | strategy=candidateHints | "
            "selected=en,zh-Hans | language=en | language_hints=en,zh | expected_languages=en,zh,ja | "
            "cleanup_language=en | notes=first note; second note");

  struct Case {
    std::string what;
    std::function<void(ResolvedASRLanguageRoute&)> change;
    std::string expected;
  };
  const std::string head = "provider=p | model=default | transport=batch | strategy=automatic | selected=auto";
  const std::vector<Case> cases = {
      {"nothing optional", [](auto&) {}, head},
      {"only hints", [](auto& r) { r.providerLanguageHints = {"de"}; }, head + " | language_hints=de"},
      {"only notes", [](auto& r) { r.diagnostics = {"n"}; }, head + " | notes=n"},
      {"only cleanup language", [](auto& r) { r.effectivePostProcessingLanguage = "fr"; },
       head + " | cleanup_language=fr"},
      {"language and expected", [](auto& r) {
         r.providerLanguage = "multi";
         r.expectedLanguages = {"a", "b"};
       },
       head + " | language=multi | expected_languages=a,b"},
  };
  for (const auto& testCase : cases) {
    ResolvedASRLanguageRoute route;
    route.providerID = "p";
    route.strategy = ASRLanguageRoutingStrategy::automatic;
    testCase.change(route);
    EXPECT_EQ(route.diagnosticSummary(), testCase.expected) << testCase.what;
  }
}

TEST(ResolvedASRLanguageRouteTest, ADefaultRouteIsTheUnspecifiedRoute) {
  EXPECT_EQ(ResolvedASRLanguageRoute{}, ResolvedASRLanguageRoute::unspecified);
  EXPECT_EQ(ResolvedASRLanguageRoute::unspecified.providerID, "unspecified");
  // Requests built without a route carry the unspecified one.
  EXPECT_EQ(TranscriptionRequest{}.languageRoute, ResolvedASRLanguageRoute::unspecified);
  EXPECT_EQ(TranscriptionRequest{}.languageRoute.diagnosticSummary(),
            ResolvedASRLanguageRoute::unspecified.diagnosticSummary());
}

TEST(ResolvedASRLanguageRouteTest, EqualRoutesHashAlikeAndEveryFieldTakesPart) {
  const ResolvedASRLanguageRoute base = fullRoute();
  std::hash<ResolvedASRLanguageRoute> hash;
  EXPECT_EQ(hash(base), hash(ResolvedASRLanguageRoute(base)));
  const std::vector<std::function<void(ResolvedASRLanguageRoute&)>> changes = {
      [](auto& r) { r.providerID = "deepgram"; },
      [](auto& r) { r.modelID.reset(); },
      [](auto& r) { r.transport = ASRTranscriptionTransport::batch; },
      [](auto& r) { r.strategy = ASRLanguageRoutingStrategy::candidateDetection; },
      [](auto& r) { r.selectedLanguageCodes = {"en"}; },
      [](auto& r) { r.providerLanguage.reset(); },
      [](auto& r) { r.providerLanguageHints = {"en,zh"}; },
      [](auto& r) { r.expectedLanguages.clear(); },
      [](auto& r) { r.effectivePostProcessingLanguage = "zh"; },
      [](auto& r) { r.diagnostics = {"first note; second note"}; },
  };
  for (std::size_t i = 0; i < changes.size(); ++i) {
    ResolvedASRLanguageRoute variant = base;
    changes[i](variant);
    EXPECT_NE(variant, base) << "change " << i;
    EXPECT_NE(hash(variant), hash(base)) << "change " << i;
  }
}

TEST(ResolvedASRLanguageRouteTest, StrategiesHaveTheirCaseNames) {
  const std::vector<std::pair<ASRLanguageRoutingStrategy, std::string>> names = {
      {ASRLanguageRoutingStrategy::automatic, "automatic"},
      {ASRLanguageRoutingStrategy::explicitSingle, "explicitSingle"},
      {ASRLanguageRoutingStrategy::candidateHints, "candidateHints"},
      {ASRLanguageRoutingStrategy::candidateDetection, "candidateDetection"},
      {ASRLanguageRoutingStrategy::multilingualMode, "multilingualMode"},
      {ASRLanguageRoutingStrategy::noLanguageInput, "noLanguageInput"},
      {ASRLanguageRoutingStrategy::unavailableFallback, "unavailableFallback"},
  };
  for (const auto& [strategy, expected] : names) EXPECT_EQ(rawValue(strategy), expected);
}

TEST(TranscriptionResultTest, ApplyingRouteChoosesTheEffectiveLanguageByPrecedence) {
  ResolvedASRLanguageRoute routeWithLanguage = ResolvedASRLanguageRoute::unspecified;
  routeWithLanguage.effectivePostProcessingLanguage = "en";
  struct Case {
    std::string what;
    std::optional<std::string> language;
    std::optional<std::string> effective;
    const ResolvedASRLanguageRoute& route;
    std::optional<std::string> expected;
  };
  const std::vector<Case> cases = {
      {"own effective language wins over the route", "de", "fr", routeWithLanguage, "fr"},
      {"own effective language without a heard language", std::nullopt, "fr", routeWithLanguage, "fr"},
      {"heard language wins over the route", "de", std::nullopt, routeWithLanguage, "de"},
      {"route's language when nothing else", std::nullopt, std::nullopt, routeWithLanguage, "en"},
      {"absent when the route names none", std::nullopt, std::nullopt, ResolvedASRLanguageRoute::unspecified,
       std::nullopt},
      {"heard language with a route naming none", "de", std::nullopt, ResolvedASRLanguageRoute::unspecified, "de"},
  };
  for (const auto& testCase : cases) {
    TranscriptionResult result{"hallo", 0.75, testCase.language, testCase.effective, std::nullopt};
    TranscriptionResult stamped = result.applying(testCase.route);
    EXPECT_EQ(stamped.effectiveLanguage, testCase.expected) << testCase.what;
    EXPECT_EQ(stamped.text, "hallo") << testCase.what;
    EXPECT_EQ(stamped.confidence, 0.75) << testCase.what;
    EXPECT_EQ(stamped.language, testCase.language) << testCase.what;
  }
}

TEST(TranscriptionResultTest, ApplyingRouteAddsTheSummaryToTheDiagnosticsOnce) {
  const ResolvedASRLanguageRoute route = fullRoute();
  const std::string summary = route.diagnosticSummary();
  struct Case {
    std::string what;
    std::optional<std::string> diagnostics;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"absent", std::nullopt, summary},
      {"empty text gets no leading line feed", "", summary},
      {"other text gets a line feed and the summary", "request-id=42", "request-id=42\n" + summary},
      {"already holding the summary stays", "before " + summary + " after", "before " + summary + " after"},
      {"holding only a part of the summary", "provider=soniox", "provider=soniox\n" + summary},
  };
  for (const auto& testCase : cases) {
    TranscriptionResult result{"t", std::nullopt, std::nullopt, std::nullopt, testCase.diagnostics};
    EXPECT_EQ(result.applying(route).providerDiagnostics, testCase.expected) << testCase.what;
  }
}

TEST(TranscriptionResultTest, ApplyingTheSameRouteTwiceChangesNothingMore) {
  const ResolvedASRLanguageRoute route = fullRoute();
  for (std::optional<std::string> diagnostics : {std::optional<std::string>(), std::optional<std::string>(""),
                                                 std::optional<std::string>("upstream said hi")}) {
    TranscriptionResult result{"t", std::nullopt, std::nullopt, std::nullopt, diagnostics};
    TranscriptionResult once = result.applying(route);
    EXPECT_EQ(once.applying(route), once);
  }
  // A second, different route is appended after the first.
  TranscriptionResult plain{"t", std::nullopt, std::nullopt, std::nullopt, std::nullopt};
  TranscriptionResult twice = plain.applying(route).applying(ResolvedASRLanguageRoute::unspecified);
  EXPECT_EQ(twice.providerDiagnostics,
            route.diagnosticSummary() + "\n" + ResolvedASRLanguageRoute::unspecified.diagnosticSummary());
}

TEST(TranscriptionResultTest, JSONWithOnlyTextDecodesWithEveryOptionalAbsent) {
  auto result = json::parse(R"({"text":"hello"})").get<TranscriptionResult>();
  EXPECT_EQ(result, (TranscriptionResult{"hello", std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
  EXPECT_EQ(json(result), json::parse(R"({"text":"hello"})"));
  EXPECT_THROW(json::parse(R"({"language":"en"})").get<TranscriptionResult>(), json::exception);
}

TEST(TranscriptionResultTest, JSONRoundTripKeepsEveryField) {
  TranscriptionResult full{"Grüße", 0.5, "de", "de-DE", "line one\nline two"};
  json encoded = full;
  EXPECT_EQ(encoded, json::parse(R"({"text":"Grüße","confidence":0.5,"language":"de","effectiveLanguage":"de-DE",
                                     "providerDiagnostics":"line one\nline two"})"));
  EXPECT_EQ(encoded.get<TranscriptionResult>(), full);
  // A null member reads as absent.
  auto withNull = json::parse(R"({"text":"x","confidence":null})").get<TranscriptionResult>();
  EXPECT_EQ(withNull.confidence, std::nullopt);
}

TEST(TranscriptionResultTest, EqualResultsHashAlikeAndEveryFieldTakesPart) {
  TranscriptionResult base{"a", 0.5, "en", "en", "d"};
  std::hash<TranscriptionResult> hash;
  EXPECT_EQ(hash(base), hash(TranscriptionResult(base)));
  std::vector<TranscriptionResult> variants = {{"b", 0.5, "en", "en", "d"},
                                               {"a", 0.6, "en", "en", "d"},
                                               {"a", 0.5, std::nullopt, "en", "d"},
                                               {"a", 0.5, "en", std::nullopt, "d"},
                                               {"a", 0.5, "en", "en", std::nullopt}};
  for (const auto& variant : variants) {
    EXPECT_NE(variant, base);
    EXPECT_NE(hash(variant), hash(base));
  }
}

TEST(TranscriptionPartialResultTest, JSONOmitsIsReplaceOnlyWhenAbsent) {
  struct Case {
    TranscriptionPartialResult partial;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {{"hel", false, std::nullopt}, R"({"text":"hel","isFinal":false})"},
      {{"hello", true, false}, R"({"text":"hello","isFinal":true,"isReplace":false})"},
      {{"Hello.", true, true}, R"({"text":"Hello.","isFinal":true,"isReplace":true})"},
  };
  for (const auto& testCase : cases) {
    json encoded = testCase.partial;
    EXPECT_EQ(encoded, json::parse(testCase.expected));
    EXPECT_EQ(encoded.get<TranscriptionPartialResult>(), testCase.partial);
  }
  EXPECT_THROW(json::parse(R"({"text":"x"})").get<TranscriptionPartialResult>(), json::exception);
}

TEST(PCMFrameTest, JSONCarriesTheSamplesAsBase64AndRoundTrips) {
  PCMFrame frame{{0x01, 0x00, 0xFF, 0x7F, 0x00, 0x80}, 16000, 1, 3};
  json encoded = frame;
  EXPECT_EQ(encoded, json::parse(R"({"pcm16LittleEndian":"AQD/fwCA","sampleRate":16000.0,"channelCount":1,
                                     "sampleCount":3})"));
  EXPECT_EQ(encoded.get<PCMFrame>(), frame);

  PCMFrame odd{{0x10, 0x20, 0x30}, 44100.5, 2, 0};
  EXPECT_EQ(json(odd).get<PCMFrame>(), odd);
  PCMFrame empty{{}, 8000, 1, 0};
  EXPECT_EQ(json(empty)["pcm16LittleEndian"], "");
  EXPECT_EQ(json(empty).get<PCMFrame>(), empty);

  auto corrupt = encoded;
  corrupt["pcm16LittleEndian"] = "not*base64";
  EXPECT_THROW(corrupt.get<PCMFrame>(), json::exception);
}

TEST(PCMFrameTest, EqualityAndHashCoverAllFourFields) {
  PCMFrame base{{1, 2, 3, 4}, 16000, 1, 2};
  std::hash<PCMFrame> hash;
  EXPECT_EQ(hash(base), hash(PCMFrame(base)));
  std::vector<PCMFrame> variants = {
      {{1, 2, 3, 5}, 16000, 1, 2}, {{1, 2, 3, 4}, 8000, 1, 2}, {{1, 2, 3, 4}, 16000, 2, 2}, {{1, 2, 3, 4}, 16000, 1, 1}};
  for (const auto& variant : variants) {
    EXPECT_NE(variant, base);
    EXPECT_NE(hash(variant), hash(base));
  }
}

TEST(OrvidErrorTest, EveryCaseDescribesItselfWithItsFixedMessage) {
  struct Case {
    OrvidError error;
    OrvidError::Case expectedCase;
    std::string message;
  };
  const std::vector<Case> cases = {
      {OrvidError::cuaDriverNotReady(CUADriverReadiness::permissionsMissing), OrvidError::Case::cuaDriverNotReady,
       "CUA Driver is not ready (permissionsMissing)."},
      {OrvidError::privacyRestricted("Microphone access is off."), OrvidError::Case::privacyRestricted,
       "Microphone access is off."},
      {OrvidError::busy(), OrvidError::Case::busy, "Voice capture or transcription is currently busy."},
      {OrvidError::invalidTransition(), OrvidError::Case::invalidTransition,
       "Invalid state transition in Orvid workflow."},
      {OrvidError::requestMismatch(), OrvidError::Case::requestMismatch, "Voice capture request mismatch."},
      {OrvidError::emptyAudio(), OrvidError::Case::emptyAudio,
       "No audio was captured. Please hold the microphone button while speaking and ensure the remote is "
       "connected."},
      {OrvidError::missingTranscriptionProvider(), OrvidError::Case::missingTranscriptionProvider,
       "No transcription provider is selected or configured."},
      {OrvidError::missingAutomationModel(), OrvidError::Case::missingAutomationModel,
       "No AI model selected for automation."},
      {OrvidError::confirmationRequired(), OrvidError::Case::confirmationRequired,
       "Automation requires confirmation."},
      {OrvidError::unsupportedStreaming(), OrvidError::Case::unsupportedStreaming,
       "Streaming is not supported by the selected provider."},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(testCase.error.errorCase(), testCase.expectedCase) << testCase.message;
    EXPECT_STREQ(testCase.error.what(), testCase.message.c_str());
    // Thrown and caught as a std::exception, the message is the same.
    try {
      throw testCase.error;
    } catch (const std::exception& caught) {
      EXPECT_STREQ(caught.what(), testCase.message.c_str());
    }
  }
}

TEST(OrvidErrorTest, DriverNotReadyNamesEachReadinessCase) {
  const std::vector<std::pair<CUADriverReadiness, std::string>> names = {
      {CUADriverReadiness::notInstalled, "notInstalled"},
      {CUADriverReadiness::installedNotOnPath, "installedNotOnPath"},
      {CUADriverReadiness::daemonStopped, "daemonStopped"},
      {CUADriverReadiness::daemonRunning, "daemonRunning"},
      {CUADriverReadiness::permissionsMissing, "permissionsMissing"},
      {CUADriverReadiness::ready, "ready"},
      {CUADriverReadiness::error, "error"},
  };
  for (const auto& [readiness, name] : names) {
    auto error = OrvidError::cuaDriverNotReady(readiness);
    EXPECT_EQ(std::string(error.what()), "CUA Driver is not ready (" + name + ").");
    EXPECT_EQ(error.readiness(), readiness);
  }
}

TEST(OrvidErrorTest, EqualityComparesCaseAndPayload) {
  EXPECT_EQ(OrvidError::busy(), OrvidError::busy());
  EXPECT_NE(OrvidError::busy(), OrvidError::invalidTransition());
  EXPECT_EQ(OrvidError::cuaDriverNotReady(CUADriverReadiness::ready),
            OrvidError::cuaDriverNotReady(CUADriverReadiness::ready));
  EXPECT_NE(OrvidError::cuaDriverNotReady(CUADriverReadiness::ready),
            OrvidError::cuaDriverNotReady(CUADriverReadiness::error));
  EXPECT_EQ(OrvidError::privacyRestricted("a"), OrvidError::privacyRestricted("a"));
  EXPECT_NE(OrvidError::privacyRestricted("a"), OrvidError::privacyRestricted("b"));
  // Same text, different case.
  EXPECT_NE(OrvidError::privacyRestricted("Voice capture request mismatch."), OrvidError::requestMismatch());
  EXPECT_NE(OrvidError::cuaDriverNotReady(CUADriverReadiness::notInstalled), OrvidError::busy());
}

}  // namespace
}  // namespace orvid
