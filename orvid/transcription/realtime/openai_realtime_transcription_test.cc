#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/testing/fake_websocket_connector.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_provider.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::FakeWebSocketConnection;
using testing::FakeWebSocketConnector;
using testing::thrown;
using testing::thrownCase;

constexpr auto kWait = 5s;
constexpr const char* kSessionCreated = R"({"type":"transcription_session.created"})";

struct Fixture {
  std::shared_ptr<InMemoryOrvidCredentialStore> store =
      std::make_shared<InMemoryOrvidCredentialStore>(std::map<std::string, std::string>{
          {"provider.openai-main.api-key", "sk-test"}});
  std::shared_ptr<FakeWebSocketConnector> connector = std::make_shared<FakeWebSocketConnector>();
  OpenAIRealtimeTranscriptionProvider provider;
  std::shared_ptr<FakeWebSocketConnection> connection = connector->prepareConnection();

  explicit Fixture(const char* baseURL = "https://api.example.com/v1/")
      : provider(*URL::parse(baseURL), "openai-main", "gpt-4o-transcribe", store, connector) {}

  std::shared_ptr<RealtimeTranscriptionSession> start(std::optional<std::string> language = std::nullopt,
                                                      std::optional<std::string> prompt = std::nullopt) {
    connection->pushText(kSessionCreated);
    RealtimeTranscriptionStartRequest request;
    request.languageRoute.providerLanguage = std::move(language);
    request.promptHint = std::move(prompt);
    return provider.startSession(request);
  }

  std::vector<std::string> sentTexts() const {
    std::vector<std::string> texts;
    for (const auto& frame : connection->sentFrames()) texts.push_back(frame.text());
    return texts;
  }
};

std::optional<TranscriptionPartialResult> nextPartial(const RealtimeTranscriptionSession& session) {
  return session.partialResults().next(std::chrono::steady_clock::now() + kWait);
}

TEST(OpenAIRealtimeTranscriptionTest, BuildsTheSocketRequestFromTheBaseURL) {
  const std::pair<const char*, const char*> cases[] = {
      {"https://api.example.com/v1/", "wss://api.example.com/v1/realtime?intent=transcription"},
      {"http://user@localhost:8080?x=1#top", "wss://user@localhost:8080/realtime?intent=transcription"},
  };
  for (const auto& [baseURL, expected] : cases) {
    SCOPED_TRACE(baseURL);
    OrvidHTTPRequest request = Fixture(baseURL).provider.websocketRequest();
    EXPECT_EQ(request.url.absoluteString(), expected);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.headerValue("Authorization"), "Bearer sk-test");
    EXPECT_EQ(request.headerValue("OpenAI-Beta"), "realtime=v1");
    EXPECT_EQ(request.timeout, 60s);
  }
  Fixture fixture;
  fixture.store->writeCredential("", "provider.openai-main.api-key");
  EXPECT_EQ(thrownCase<OrvidProviderError>([&] { fixture.provider.websocketRequest(); }),
            OrvidProviderError::Case::missingCredential);
}

TEST(OpenAIRealtimeTranscriptionTest, SessionUpdateCarriesOnlyAUsableLanguageAndPrompt) {
  struct Case {
    std::optional<std::string> language, prompt;
    std::string transcription;
  };
  const Case cases[] = {
      {"auto", "", R"({"model":"gpt-4o-transcribe"})"},
      {"en", "Orvid", R"({"language":"en","model":"gpt-4o-transcribe","prompt":"Orvid"})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.transcription);
    Fixture fixture;
    auto session = fixture.start(c.language, c.prompt);
    ASSERT_TRUE(fixture.connection->waitForSentFrames(1));
    EXPECT_EQ(fixture.sentTexts().front(), R"({"session":{"input_audio_format":"pcm16","input_audio_transcription":)" +
                                               c.transcription +
                                               R"(,"turn_detection":{"type":"server_vad"}},)"
                                               R"("type":"transcription_session.update"})");
  }
}

TEST(OpenAIRealtimeTranscriptionTest, RefusesAFirstEventThatDoesNotAnnounceTheSession) {
  for (const char* first : {R"({"type":"error","error":{"message":"bad key"}})", "not json", "[]"}) {
    SCOPED_TRACE(first);
    Fixture fixture;
    fixture.connection->pushText(first);
    EXPECT_EQ(thrownCase<OrvidProviderError>([&] { fixture.provider.startSession({}); }),
              OrvidProviderError::Case::invalidResponse);
    EXPECT_EQ(fixture.connection->cancelCount(), 1);
  }
}

TEST(OpenAIRealtimeTranscriptionTest, StreamsDeltasAndEndsWithTheCompletedTranscript) {
  Fixture fixture;
  auto session = fixture.start();
  session->appendPCM16(PCMFrame{{1, 0, 2, 0}, 24000, 1, 2});
  fixture.connection->pushText(R"({"type":"conversation.item.input_audio_transcription.delta","delta":"Hello"})");
  fixture.connection->pushText(
      R"({"type":"conversation.item.input_audio_transcription.completed","transcript":"Hello world."})");

  EXPECT_EQ(nextPartial(*session), (TranscriptionPartialResult{"Hello", false, std::nullopt}));
  EXPECT_EQ(nextPartial(*session), (TranscriptionPartialResult{"Hello world.", true, std::nullopt}));
  EXPECT_EQ(nextPartial(*session), std::nullopt);
  EXPECT_EQ(session->finish().text, "Hello world.");
  EXPECT_EQ(fixture.sentTexts().at(1), R"({"audio":"AQACAA==","type":"input_audio_buffer.append"})");
  EXPECT_EQ(fixture.sentTexts().back(), R"({"type":"input_audio_buffer.commit"})");
}

TEST(OpenAIRealtimeTranscriptionTest, FinishWaitsForTheFinalEvent) {
  Fixture fixture;
  auto session = fixture.start();
  auto finished = std::async(std::launch::async, [&] { return session->finish(); });
  ASSERT_TRUE(fixture.connection->waitForSentFrames(2));
  EXPECT_EQ(finished.wait_for(0s), std::future_status::timeout);

  fixture.connection->pushPayload({0xff, 0x00, 0x7b});
  fixture.connection->pushText(R"({"type":"conversation.item.input_audio_transcription.delta","delta":"Done",)"
                               R"("is_final":"YES"})");
  ASSERT_EQ(finished.wait_for(kWait), std::future_status::ready);
  EXPECT_EQ(finished.get().text, "Done");
  EXPECT_EQ(nextPartial(*session), (TranscriptionPartialResult{"Done", true, std::nullopt}));
}

}  // namespace
}  // namespace orvid
