#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/testing/fake_websocket_connector.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/realtime/soniox_realtime_token_accumulator.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_messages.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_provider.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using Option = TranscriptionProviderOptionValue;

TEST(SonioxRealtimeStartMessageBuilderTest, SendsOnlyTrueFlagsAndTheContextThatIsThere) {
  struct Case {
    TranscriptionProviderOptions options;
    std::optional<std::string> promptHint;
    nlohmann::json extra;  // the members beyond the four always sent
  };
  const std::vector<Case> cases = {
      {{{"enable_speaker_diarization", Option::boolean(true)}, {"language_hints_strict", Option::boolean(false)},
        {"enable_language_identification", Option::text("true")}},
       std::nullopt,
       {{"enable_speaker_diarization", true}}},
      {{{"context_terms", Option::text(" alpha, beta\ngamma ,, ")}}, std::nullopt,
       {{"context", {{"terms", {"alpha", "beta", "gamma"}}}}}},
      {{{"context_description", Option::text("  Cardiology notes ")}}, "ignored", {{"context", {{"text", "Cardiology notes"}}}}},
      {{{"context_description", Option::text("   ")}}, "Meeting", {{"context", {{"text", "Meeting"}}}}},
      {{}, "", {{"context", nlohmann::json::object()}}},
      {{}, std::nullopt, nlohmann::json::object()},
  };
  for (const Case& c : cases) {
    ResolvedASRLanguageRoute route;
    auto message = nlohmann::json::parse(SonioxRealtimeStartMessageBuilder::message("stt-rt-v4", route, c.options,
                                                                                    c.promptHint, 16000, 1));
    nlohmann::json expected = {{"model", "stt-rt-v4"}, {"audio_format", "pcm_s16le"}, {"sample_rate", 16000},
                               {"num_channels", 1}};
    expected.update(c.extra);
    EXPECT_EQ(message, expected) << message.dump();
  }
}

SonioxRealtimeToken token(std::string text, bool isFinal, std::optional<std::string> language = std::nullopt,
                          std::optional<std::string> status = std::nullopt) {
  return {std::move(text), isFinal, std::move(language), std::move(status)};
}

TEST(SonioxRealtimeTokenAccumulatorTest, CommitsFinalTokensReplacesTentativeOnesAndGathersSpokenLanguages) {
  struct Case {
    std::vector<std::vector<SonioxRealtimeToken>> messages;
    std::string committed;
    std::string tentative;
    std::set<std::string> languages;
  };
  const std::vector<Case> cases = {
      {{{token("Hel", true), token("lo", true), token(" wor", false)}}, "Hello", " wor", {}},
      // Everything re-sent: it starts with the committed text, so it replaces it.
      {{{token("Hel", true), token("lo", true)}, {token("Hello world", true)}}, "Hello world", "", {}},
      {{{token("Hi", true)}, {token(" there", true), token(" <FIN> ", true), token("<end>", false)}}, "Hi there", "", {}},
      {{{token("a", true, "en"), token("b", true, "de")}}, "ab", "", {"en", "de"}},
      {{{token("你", true, "zh_CN"), token("好", true, "zh-hans"), token("x", true, "en_US")}},
       "你好x",
       "",
       {"zh-Hans", "en-US"}},
      {{{token("a", true, "zh-TW"), token("b", true, "fr", "translation"), token("c", true, "ja", "Translation_Source")}},
       "abc",
       "",
       {"zh-Hant", "ja"}},
      {{{token("x", false)}, {}}, "", "", {}},
  };
  for (const Case& c : cases) {
    SonioxRealtimeTokenAccumulator accumulator;
    std::string display;
    for (const auto& message : c.messages) display = accumulator.ingest(message);
    EXPECT_EQ(accumulator.committedText, c.committed);
    EXPECT_EQ(accumulator.tentativeText, c.tentative);
    EXPECT_EQ(display, c.committed + c.tentative);
    EXPECT_EQ(accumulator.finalizedSourceLanguages, c.languages);
  }
}

struct FakeSoniox {
  FakeSoniox()
      : provider(*URL::parse("wss://stt-rt.example.com/transcribe-websocket"), "soniox", "stt-rt-v4", {},
                 std::make_shared<InMemoryOrvidCredentialStore>(
                     std::map<std::string, std::string>{{"provider.soniox.api-key", "key"}}),
                 connector, 200ms) {}

  std::shared_ptr<testing::FakeWebSocketConnector> connector = std::make_shared<testing::FakeWebSocketConnector>();
  std::shared_ptr<testing::FakeWebSocketConnection> connection = connector->prepareConnection();
  SonioxRealtimeTranscriptionProvider provider;
};

TEST(SonioxRealtimeTranscriptionSessionTest, EndsAsTheServiceSays) {
  struct Case {
    std::vector<std::string> messages;
    std::string outcome;  // finish()'s text and language, or its error
  };
  const std::vector<Case> cases = {
      {{R"({"tokens":[{"text":"Hi","is_final":1,"language":"en"},{"text":" you","is_final":true,"language":"de"}]})",
        R"({"finished":true})"},
       "Hi you|"},
      {{R"({"tokens":[{"text":" Hi ","is_final":true,"language":"en"}],"finished":1})"}, "Hi|en"},
      {{R"([1,2])", R"({"tokens":"none"})", R"({"finished":"true"})", R"({"finished":true})"}, "|"},
      {{R"({"error_type":" quota ","message":"Out of credit"})"}, "Soniox realtime error [quota]: Out of credit"},
      {{R"({"error_type":"x","error_message":" ","request_id":" r1 "})"},
       "Soniox realtime error [x] (request r1): Unknown server error"},
      {{"<html>502</html>"}, "Invalid provider response."},
      {{}, "Soniox realtime finalization timed out."},
  };
  for (const Case& c : cases) {
    FakeSoniox fake;
    auto session = fake.provider.startSession({});
    for (const std::string& message : c.messages) fake.connection->pushText(message);
    std::string outcome;
    try {
      auto result = session->finish();
      outcome = result.text + "|" + result.language.value_or("");
    } catch (const std::exception& error) {
      outcome = error.what();
    }
    EXPECT_EQ(outcome, c.outcome);
  }
}

TEST(SonioxRealtimeTranscriptionSessionTest, AFinishedSessionAnswersFinishAtOnceWithoutSending) {
  FakeSoniox fake;
  auto session = fake.provider.startSession({});
  fake.connection->pushText(R"({"tokens":[{"text":"Done","is_final":true}],"finished":true})");
  std::vector<TranscriptionPartialResult> partials;
  while (auto partial = session->partialResults().next()) partials.push_back(*partial);
  EXPECT_EQ(partials, (std::vector<TranscriptionPartialResult>{{"Done", false, true}, {"Done", true, true}}));
  EXPECT_EQ(session->finish().text, "Done");
  EXPECT_EQ(fake.connection->sentFrames().size(), 1u);  // the start message only
}

TEST(SonioxRealtimeTranscriptionSessionTest, RefusesStereoAudio) {
  FakeSoniox fake;
  auto session = fake.provider.startSession({});
  const auto error = testing::thrown<OrvidProviderError>([&] { session->appendPCM16({Bytes(8, 0), 16000, 2, 2}); });
  ASSERT_TRUE(error);
  EXPECT_STREQ(error->what(), "Soniox realtime currently requires mono PCM audio.");
}

}  // namespace
}  // namespace orvid
