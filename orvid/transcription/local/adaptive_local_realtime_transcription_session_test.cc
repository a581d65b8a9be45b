#include "orvid/transcription/local/adaptive_local_realtime_transcription_session.h"

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/core/orvid_error.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/local/local_engine_test_support.h"

namespace orvid {
namespace {

using testing::FakeLocalTranscriptionEngine;
using testing::Gate;
using testing::resultWithText;
using testing::thrown;
using namespace std::chrono_literals;

PCMFrame frameOf(int milliseconds) { return AudioWAVEncoder::silentPCMFrame(16000, milliseconds); }

// Everything the stream holds now, without waiting.
std::vector<TranscriptionPartialResult> buffered(const ResultStream<TranscriptionPartialResult>& stream) {
  std::vector<TranscriptionPartialResult> values;
  while (auto value = stream.next(std::chrono::steady_clock::now())) values.push_back(*value);
  return values;
}

std::vector<std::string> texts(const std::vector<TranscriptionPartialResult>& partials) {
  std::vector<std::string> result;
  for (const auto& partial : partials) result.push_back(partial.text);
  return result;
}

class LocalEnginePreviewTest : public ::testing::Test {
 protected:
  // Advances the clock and waits until the preview loop has gone to sleep again.
  void step(LocalEngineClock::Duration duration) {
    const auto started = clock->sleepsStarted();
    clock->advance(duration);
    ASSERT_TRUE(clock->waitForSleepsStarted(started + 1));
  }

  std::shared_ptr<AdaptiveLocalRealtimeTranscriptionSession> session(std::shared_ptr<LocalTranscriptionEngine> engine,
                                                                     LocalRealtimePreviewPolicy policy) {
    LocalTranscriptionRequest base;
    base.modelID = engine->modelID();
    base.languageRoute.providerLanguage = "en";
    return std::make_shared<AdaptiveLocalRealtimeTranscriptionSession>(engine, base, policy, clock);
  }

  std::shared_ptr<ManualLocalEngineClock> clock = std::make_shared<ManualLocalEngineClock>();
};

TEST(LocalEnginePreviewPolicyTest, PacesEachEngineTypeFromTheRequestedInterval) {
  struct Case {
    LocalTranscriptionEngineType type;
    double requested;
    LocalRealtimePreviewPolicy expected;
  };
  const std::vector<Case> cases = {
      {LocalTranscriptionEngineType::mlxVoxtral, 0.75, {std::chrono::duration<double>(1.5), 0.65, 0.45, 12}},
      {LocalTranscriptionEngineType::whisperKit, 2, {std::chrono::duration<double>(2), 0.65, 0.45, 18}},
      {LocalTranscriptionEngineType::mlxVoxtral, 2, {std::chrono::duration<double>(2), 0.65, 0.45, 12}},
      {LocalTranscriptionEngineType::speechSwiftQwen3, 0.5, {std::chrono::duration<double>(0.9), 0.65, 0.45, 16}},
      {LocalTranscriptionEngineType::pocketSphinx, 0.75, {std::chrono::duration<double>(1.2), 0.65, 0.45, 18}},
      {LocalTranscriptionEngineType::mlxCohere, 0.02, {std::chrono::duration<double>(0.02), 0, 0, 15}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(rawValue(c.type) + " " + std::to_string(c.requested));
    EXPECT_EQ(LocalRealtimePreviewPolicy::forEngineType(c.type, std::chrono::duration<double>(c.requested)),
              c.expected);
  }
}

TEST_F(LocalEnginePreviewTest, PacesPassesAndDecodesOnlyTheRecentWindow) {
  auto engine = std::make_shared<FakeLocalTranscriptionEngine>("m");
  auto preview =
      session(engine, LocalRealtimePreviewPolicy::forEngineType(LocalTranscriptionEngineType::mlxVoxtral, 750ms));
  preview->start();
  ASSERT_TRUE(clock->waitForSleepsStarted(1));

  preview->appendPCM16(frameOf(500));
  step(100ms);
  EXPECT_EQ(engine->entered.value(), 0) << "half a second is below the first preview's minimum";

  preview->appendPCM16(frameOf(500));
  step(100ms);
  ASSERT_EQ(engine->entered.value(), 1);

  preview->appendPCM16(frameOf(500));
  clock->advance(1400ms);
  EXPECT_EQ(engine->entered.value(), 1) << "passes are 1.5 seconds apart";
  preview->appendPCM16(frameOf(250));
  step(100ms);
  EXPECT_EQ(engine->entered.value(), 2);

  for (int i = 0; i < 24; ++i) preview->appendPCM16(frameOf(500));
  clock->advance(1400ms);
  step(100ms);
  ASSERT_EQ(engine->entered.value(), 3);

  const auto requests = engine->requests();
  std::vector<double> decoded;
  for (const auto& request : requests)
    decoded.push_back(AdaptiveLocalRealtimeTranscriptionSession::audioDuration(request.audioFrames));
  EXPECT_EQ(decoded, (std::vector<double>{1.0, 1.75, 12.0}));
  EXPECT_EQ(requests.back().languageRoute.providerLanguage, "en");
  preview->cancel();
}

TEST_F(LocalEnginePreviewTest, PublishesOnlyHypothesesThatImproveOnTheShownText) {
  struct Case {
    std::vector<std::string> hypotheses;
    std::vector<std::string> published;
  };
  const std::vector<Case> cases = {
      {{"Hello world this is", "Hello world"}, {"Hello world this is"}},
      {{"abcdefghij klmnopqrs", "zzzzzzzzzzz"}, {"abcdefghij klmnopqrs"}},
      {{"abcdefghij klmnopqrs", "zzzzzzzzzzzz"}, {"abcdefghij klmnopqrs", "zzzzzzzzzzzz"}},
      {{"short", "abc"}, {"short"}},
      {{"same", "same"}, {"same"}},
      {{"  ", " hi "}, {"hi"}},
      {{"Hello", "Hello there"}, {"Hello", "Hello there"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.hypotheses.back());
    auto replies = std::make_shared<std::deque<std::string>>(c.hypotheses.begin(), c.hypotheses.end());
    auto engine = std::make_shared<FakeLocalTranscriptionEngine>(
        "m", [replies](const LocalTranscriptionRequest&, std::stop_token) {
          std::string text = replies->front();
          replies->pop_front();
          return resultWithText(text);
        });
    auto preview = session(engine, {std::chrono::seconds(1), 0, 0, 100});
    preview->appendPCM16(frameOf(100));
    const auto started = clock->sleepsStarted();
    preview->start();
    ASSERT_TRUE(clock->waitForSleepsStarted(started + 1));
    preview->appendPCM16(frameOf(100));
    step(1s);
    ASSERT_EQ(engine->entered.value(), 2);
    const auto partials = buffered(preview->partialResults());
    EXPECT_EQ(texts(partials), c.published);
    for (const auto& partial : partials) {
      EXPECT_FALSE(partial.isFinal);
      EXPECT_EQ(partial.isReplace, true);
    }
    preview->cancel();
  }
}

TEST_F(LocalEnginePreviewTest, FinishStopsThePreviewThenTranscribesEverythingOnce) {
  Gate release;
  auto engine = std::make_shared<FakeLocalTranscriptionEngine>(
      "m", [&](const LocalTranscriptionRequest& request, std::stop_token stop) {
        if (request.audioFrames.size() == 1) release.waitOrThrow(stop);  // the preview pass
        return resultWithText("final words");
      });
  auto preview = session(engine, {std::chrono::seconds(1), 0, 0, 100});
  preview->appendPCM16(frameOf(100));
  preview->start();
  ASSERT_TRUE(engine->entered.waitFor(1));
  preview->appendPCM16(frameOf(100));

  EXPECT_EQ(preview->finish().text, "final words");
  EXPECT_EQ(engine->maximumRunning(), 1);
  EXPECT_EQ(engine->requests().back().audioFrames.size(), 2u);
  const auto partials = buffered(preview->partialResults());
  ASSERT_EQ(partials.size(), 1u);
  EXPECT_EQ(partials[0], (TranscriptionPartialResult{"final words", true, true}));
  EXPECT_TRUE(preview->partialResults().isFinished());

  EXPECT_EQ(thrown<OrvidError>([&] { preview->finish(); }), OrvidError::unsupportedStreaming());
}

TEST_F(LocalEnginePreviewTest, FinishWithoutAudioEndsTheStreamAndThrowsEmptyAudio) {
  auto engine = std::make_shared<FakeLocalTranscriptionEngine>("m");
  auto silent = session(engine, {std::chrono::seconds(1), 0, 0, 100});
  silent->start();
  EXPECT_EQ(thrown<OrvidError>([&] { silent->finish(); }), OrvidError::emptyAudio());
  EXPECT_EQ(silent->partialResults().next(), std::nullopt);

  auto cancelled = session(engine, {std::chrono::seconds(1), 0, 0, 100});
  cancelled->appendPCM16(frameOf(100));
  cancelled->cancel();
  EXPECT_EQ(thrown<OrvidError>([&] { cancelled->finish(); }), OrvidError::unsupportedStreaming());
  EXPECT_EQ(cancelled->partialResults().next(), std::nullopt);
  EXPECT_EQ(engine->entered.value(), 0);
}

class FakeStreamingPreviewEngine : public StreamingPreviewLocalTranscriptionEngine {
 public:
  std::string modelID() const override { return "streaming"; }
  TranscriptionResult transcribe(const LocalTranscriptionRequest&, std::stop_token) override {
    return resultWithText("whole");
  }
  ResultStream<std::string> previewStream(const LocalTranscriptionRequest&, std::stop_token) override {
    ResultStream<std::string> stream;
    for (const char* text : {"hel", "hello", "hello wor"}) stream.yield(text);
    stream.finish();
    return stream;
  }
  void unload() noexcept override {}
};

TEST_F(LocalEnginePreviewTest, PreviewsThroughTheEnginesOwnHypothesisStream) {
  auto preview = session(std::make_shared<FakeStreamingPreviewEngine>(), {std::chrono::seconds(1), 0, 0, 100});
  preview->appendPCM16(frameOf(100));
  preview->start();
  ASSERT_TRUE(clock->waitForSleepsStarted(1));
  EXPECT_EQ(texts(buffered(preview->partialResults())), (std::vector<std::string>{"hel", "hello", "hello wor"}));
  EXPECT_EQ(preview->finish().text, "whole");
}

}  // namespace
}  // namespace orvid
