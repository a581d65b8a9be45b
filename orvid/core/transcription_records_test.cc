#include "orvid/core/transcription_records.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/core/asr_language_route.h"
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
}

TEST(TranscriptionResultTest, ApplyingRouteChoosesTheEffectiveLanguageByPrecedence) {
  ResolvedASRLanguageRoute english = ResolvedASRLanguageRoute::unspecified;
  english.effectivePostProcessingLanguage = "en";
  auto effective = [](std::optional<std::string> heard, std::optional<std::string> own,
                      const ResolvedASRLanguageRoute& route) {
    return TranscriptionResult{"hallo", 0.75, heard, own, std::nullopt}.applying(route).effectiveLanguage;
  };
  EXPECT_EQ(effective("de", "fr", english), "fr");
  EXPECT_EQ(effective("de", std::nullopt, english), "de");
  EXPECT_EQ(effective(std::nullopt, std::nullopt, english), "en");
  EXPECT_EQ(effective(std::nullopt, std::nullopt, ResolvedASRLanguageRoute::unspecified), std::nullopt);
}

TEST(TranscriptionResultTest, ApplyingRouteAddsTheSummaryToTheDiagnosticsOnce) {
  const ResolvedASRLanguageRoute route = fullRoute();
  const std::string summary = route.diagnosticSummary();
  auto applied = [&](std::optional<std::string> diagnostics) {
    return TranscriptionResult{"t", std::nullopt, std::nullopt, std::nullopt, diagnostics}.applying(route);
  };
  EXPECT_EQ(applied(std::nullopt).providerDiagnostics, summary);
  EXPECT_EQ(applied("").providerDiagnostics, summary);
  EXPECT_EQ(applied("request-id=42").providerDiagnostics, "request-id=42\n" + summary);
  EXPECT_EQ(applied("before " + summary + " after").providerDiagnostics, "before " + summary + " after");
  EXPECT_EQ(applied("provider=soniox").providerDiagnostics, "provider=soniox\n" + summary);
  const TranscriptionResult once = applied("request-id=42");
  EXPECT_EQ(once.applying(route), once);
  // A second, different route is appended after the first.
  EXPECT_EQ(applied(std::nullopt).applying(ResolvedASRLanguageRoute::unspecified).providerDiagnostics,
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
  encoded["pcm16LittleEndian"] = "not*base64";
  EXPECT_THROW(encoded.get<PCMFrame>(), json::exception);
}

}  // namespace
}  // namespace orvid
