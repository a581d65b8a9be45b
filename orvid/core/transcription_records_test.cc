#include "orvid/core/transcription_records.h"

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

TEST(ResolvedASRLanguageRouteTest, SummaryListsTheFixedPartsAndEveryPresentPartInOrder) {
  EXPECT_EQ(TranscriptionRequest{}.languageRoute.diagnosticSummary(),
            "provider=unspecified | model=default | transport=batch | strategy=noLanguageInput | selected=auto");
  EXPECT_EQ(fullRoute().diagnosticSummary(),
            "provider=soniox | model=stt-rt-preview | transport=realtime | strategy=candidateHints | "
            "selected=en,zh-Hans | language=en | language_hints=en,zh | expected_languages=en,zh,ja | "
            "cleanup_language=en | notes=first note; second note");
  ResolvedASRLanguageRoute some;
  some.providerID = "p";
  some.strategy = ASRLanguageRoutingStrategy::automatic;
  some.effectivePostProcessingLanguage = "fr";
  EXPECT_EQ(some.diagnosticSummary(),
            "provider=p | model=default | transport=batch | strategy=automatic | selected=auto | cleanup_language=fr");
}

TEST(TranscriptionResultTest, ApplyingRouteChoosesTheEffectiveLanguageByPrecedence) {
  ResolvedASRLanguageRoute english = ResolvedASRLanguageRoute::unspecified;
  english.effectivePostProcessingLanguage = "en";
  const auto& none = ResolvedASRLanguageRoute::unspecified;
  struct Case {
    std::string what;
    std::optional<std::string> language;
    std::optional<std::string> effective;
    const ResolvedASRLanguageRoute& route;
    std::optional<std::string> expected;
  };
  const std::vector<Case> cases = {
      {"own effective language wins over the route", "de", "fr", english, "fr"},
      {"heard language wins over the route", "de", std::nullopt, english, "de"},
      {"route's language when nothing else", std::nullopt, std::nullopt, english, "en"},
      {"absent when the route names none", std::nullopt, std::nullopt, none, std::nullopt},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.what);
    const TranscriptionResult result{"hallo", 0.75, testCase.language, testCase.effective, std::nullopt};
    const TranscriptionResult stamped = result.applying(testCase.route);
    EXPECT_EQ(stamped.effectiveLanguage, testCase.expected);
    EXPECT_EQ(stamped.text, "hallo");
    EXPECT_EQ(stamped.confidence, 0.75);
    EXPECT_EQ(stamped.language, testCase.language);
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
    SCOPED_TRACE(testCase.what);
    const TranscriptionResult result{"t", std::nullopt, std::nullopt, std::nullopt, testCase.diagnostics};
    const TranscriptionResult once = result.applying(route);
    EXPECT_EQ(once.providerDiagnostics, testCase.expected);
    EXPECT_EQ(once.applying(route), once);
  }
  // A second, different route is appended after the first.
  const TranscriptionResult plain{"t", std::nullopt, std::nullopt, std::nullopt, std::nullopt};
  EXPECT_EQ(plain.applying(route).applying(ResolvedASRLanguageRoute::unspecified).providerDiagnostics,
            summary + "\n" + ResolvedASRLanguageRoute::unspecified.diagnosticSummary());
}

TEST(TranscriptionResultTest, DecodesWithOptionalsAbsentOrNullAndRequiresTheText) {
  const TranscriptionResult onlyText{"hello", std::nullopt, std::nullopt, std::nullopt, std::nullopt};
  EXPECT_EQ(json::parse(R"({"text":"hello","confidence":null})").get<TranscriptionResult>(), onlyText);
  EXPECT_EQ(json(onlyText), json::parse(R"({"text":"hello"})"));
  EXPECT_THROW(json::parse(R"({"language":"en"})").get<TranscriptionResult>(), json::exception);
  EXPECT_THROW(json::parse(R"({"text":"x"})").get<TranscriptionPartialResult>(), json::exception);
}

TEST(PCMFrameTest, JSONCarriesTheSamplesAsBase64AndRejectsCorruptText) {
  const PCMFrame frame{{0x01, 0x00, 0xFF, 0x7F, 0x00, 0x80}, 16000, 1, 3};
  json encoded = frame;
  EXPECT_EQ(encoded["pcm16LittleEndian"], "AQD/fwCA");
  EXPECT_EQ(encoded.get<PCMFrame>(), frame);
  const PCMFrame odd{{0x10, 0x20, 0x30}, 44100.5, 2, 0};
  EXPECT_EQ(json(odd).get<PCMFrame>(), odd);

  encoded["pcm16LittleEndian"] = "not*base64";
  EXPECT_THROW(encoded.get<PCMFrame>(), json::exception);
}

TEST(OrvidErrorTest, DriverNotReadyNamesTheReadinessAndEqualityComparesCaseAndPayload) {
  EXPECT_STREQ(OrvidError::cuaDriverNotReady(CUADriverReadiness::permissionsMissing).what(),
               "CUA Driver is not ready (permissionsMissing).");
  EXPECT_EQ(OrvidError::cuaDriverNotReady(CUADriverReadiness::ready),
            OrvidError::cuaDriverNotReady(CUADriverReadiness::ready));
  EXPECT_NE(OrvidError::cuaDriverNotReady(CUADriverReadiness::ready),
            OrvidError::cuaDriverNotReady(CUADriverReadiness::error));
  EXPECT_NE(OrvidError::privacyRestricted("a"), OrvidError::privacyRestricted("b"));
  // Same text, different case.
  EXPECT_NE(OrvidError::privacyRestricted("Voice capture request mismatch."), OrvidError::requestMismatch());
}

}  // namespace
}  // namespace orvid
