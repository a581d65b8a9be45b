#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/language_context_realtime_transcription_provider.h"
#include "orvid/transcription/realtime_fallback_transcription_provider.h"
#include "orvid/transcription/realtime_transcription_capture.h"
#include "orvid/transcription/store_managed_realtime_transcription_session.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::thrown;

// What the fakes throw for a lost connection.
using ConnectionError = std::runtime_error;
const ConnectionError kConnectionLost("The connection was lost.");

PCMFrame frame(int sampleCount) { return PCMFrame{Bytes(2 * sampleCount), 16000, 1, sampleCount}; }

TranscriptionResult transcript(std::string text) {
  TranscriptionResult result;
  result.text = std::move(text);
  return result;
}

TranscriptionRequest recording(std::vector<PCMFrame> frames, ResolvedASRLanguageRoute route = {}) {
  TranscriptionRequest request;
  request.audioFrames = std::move(frames);
  request.languageRoute = std::move(route);
  request.promptHint = "names";
  return request;
}

ResolvedASRLanguageRoute englishRoute() {
  ResolvedASRLanguageRoute route;
  route.strategy = ASRLanguageRoutingStrategy::explicitSingle;
  route.selectedLanguageCodes = {"en"};
  return route;
}

// Records what it is given and yields each frame's sample count as a partial;
// fails or blocks (until stopped) where a test says so.
class FakeSession : public RealtimeTranscriptionSession {
 public:
  struct Record { int entered = 0; std::vector<int> appended; int finishes = 0; int cancels = 0; };
  std::optional<int> failingAppend;
  bool blocksInAppend = false;
  bool finishFails = false;

  ResultStream<TranscriptionPartialResult> partialResults() const override { return partials_; }

  void appendPCM16(const PCMFrame& frame, std::stop_token stop) override {
    std::unique_lock lock(mutex_);
    record_.entered += 1;
    entered_.notify_all();
    if (failingAppend == static_cast<int>(record_.appended.size())) throw kConnectionLost;
    if (blocksInAppend && !entered_.wait(lock, stop, [] { return false; })) throw CancellationError();
    record_.appended.push_back(frame.sampleCount);
    partials_.yield({std::to_string(frame.sampleCount), false, std::nullopt});
  }

  TranscriptionResult finish(std::stop_token) override {
    std::lock_guard lock(mutex_);
    record_.finishes += 1;
    if (finishFails) throw kConnectionLost;
    partials_.finish();
    return transcript("hello world");
  }

  void cancel() noexcept override {
    std::lock_guard lock(mutex_);
    record_.cancels += 1;
    partials_.finish();
  }

  Record record() const {
    std::lock_guard lock(mutex_);
    return record_;
  }
  // True once an append has begun, within two seconds.
  bool awaitAppend() {
    std::unique_lock lock(mutex_);
    return entered_.wait_for(lock, 2s, [&] { return record_.entered > 0; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable_any entered_;
  ResultStream<TranscriptionPartialResult> partials_;
  Record record_;
};

class FakeRealtimeProvider : public RealtimeTranscriptionProvider {
 public:
  std::shared_ptr<FakeSession> session = std::make_shared<FakeSession>();
  bool startFails = false;
  std::vector<RealtimeTranscriptionStartRequest> requests;

  std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                             std::stop_token) override {
    requests.push_back(request);
    if (startFails) throw kConnectionLost;
    return session;
  }
};

class FakeBatchProvider : public TranscriptionProvider {
 public:
  int calls = 0;
  std::string id() const override { return "batch"; }
  TranscriptionResult transcribe(const TranscriptionRequest&, std::stop_token) override {
    calls += 1;
    return transcript("from batch");
  }
  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest&, std::stop_token) override {
    throw OrvidError::unsupportedStreaming();
  }
};

TEST(RealtimeTranscriptionCaptureTest, KeepsTheFirstAppendFailureForFinishAndIgnoresAudioOnceFailedOrFinished) {
  auto session = std::make_shared<FakeSession>();
  session->failingAppend = 1;
  RealtimeTranscriptionCapture capture(session);
  capture.append(frame(1));
  capture.append({frame(2), frame(3)});
  capture.append(frame(4));
  EXPECT_EQ(session->record().appended, std::vector<int>{1});
  EXPECT_EQ(session->record().cancels, 1);
  EXPECT_TRUE(thrown<ConnectionError>([&] { capture.finish(); }));
  EXPECT_EQ(session->record().finishes, 0);
  EXPECT_EQ(capture.partialResults().next(), (TranscriptionPartialResult{"1", false, std::nullopt}));

  auto next = std::make_shared<FakeSession>();
  RealtimeTranscriptionCapture finished(next);
  EXPECT_EQ(finished.finish().text, "hello world");
  finished.append(frame(1));
  EXPECT_TRUE(next->record().appended.empty());
}

TEST(StoreManagedRealtimeTranscriptionSessionTest, ReleasesOnceAfterTheInnerSessionEndsHoweverItEnds) {
  for (bool finishFails : {false, true}) {
    SCOPED_TRACE(finishFails);
    auto inner = std::make_shared<FakeSession>();
    inner->finishFails = finishFails;
    int releases = 0;
    StoreManagedRealtimeTranscriptionSession session(inner, [&] {
      EXPECT_EQ(inner->record().finishes, 1);
      releases += 1;
    });
    session.appendPCM16(frame(5));
    EXPECT_EQ(thrown<ConnectionError>([&] { session.finish(); }).has_value(), finishFails);
    session.cancel();
    EXPECT_EQ(releases, 1);
    EXPECT_EQ(inner->record().appended, std::vector<int>{5});
    EXPECT_EQ(inner->record().cancels, 1);
  }
}

TEST(LanguageContextRealtimeTranscriptionProviderTest, StampsTheStartRouteOntoTheFinalResult) {
  auto inner = std::make_shared<FakeRealtimeProvider>();
  LanguageContextRealtimeTranscriptionProvider provider(inner);
  const RealtimeTranscriptionStartRequest request{englishRoute(), "names"};
  auto session = provider.startSession(request);
  session->appendPCM16(frame(7));
  EXPECT_EQ(session->finish(), transcript("hello world").applying(englishRoute()));
  EXPECT_EQ(inner->requests, std::vector{request});
  EXPECT_EQ(session->partialResults().next(), (TranscriptionPartialResult{"7", false, std::nullopt}));
}

TEST(RealtimeFallbackTranscriptionProviderTest, TranscribesInRealTimeOrFallsBackToBatchWhenAllowed) {
  const TranscriptionRequest request = recording({frame(1), frame(2)}, englishRoute());
  for (bool fallsBack : {false, true}) {
    SCOPED_TRACE(fallsBack);
    auto realtime = std::make_shared<FakeRealtimeProvider>();
    auto batch = std::make_shared<FakeBatchProvider>();
    RealtimeFallbackTranscriptionProvider provider("combined", realtime, batch, fallsBack);
    EXPECT_EQ(orvid::testing::thrownCase<OrvidError>([&] { provider.transcribe(recording({})); }),
              OrvidError::Case::emptyAudio);
    EXPECT_EQ(provider.transcribe(request), transcript("hello world").applying(englishRoute()));
    EXPECT_EQ(realtime->session->record().appended, (std::vector<int>{1, 2}));
    EXPECT_EQ(realtime->requests.front(), (RealtimeTranscriptionStartRequest{englishRoute(), "names"}));

    realtime->session->finishFails = true;
    if (fallsBack) {
      EXPECT_EQ(provider.transcribe(request), transcript("from batch").applying(englishRoute()));
    } else {
      EXPECT_TRUE(thrown<ConnectionError>([&] { provider.transcribe(request); }));
    }
    EXPECT_EQ(batch->calls, fallsBack ? 1 : 0);
  }
}

TEST(RealtimeFallbackTranscriptionProviderTest, StreamsPartialsWhileAThreadFeedsTheRecording) {
  auto realtime = std::make_shared<FakeRealtimeProvider>();
  RealtimeFallbackTranscriptionProvider provider("combined", realtime, std::make_shared<FakeBatchProvider>(), true);
  auto partials = provider.stream(recording({frame(1), frame(2), frame(3)}));
  std::vector<std::string> texts;
  while (auto partial = partials.next(std::chrono::steady_clock::now() + 2s)) texts.push_back(partial->text);
  EXPECT_EQ(texts, (std::vector<std::string>{"1", "2", "3"}));
  EXPECT_TRUE(partials.isFinished());
  EXPECT_EQ(realtime->session->record().finishes, 1);

  realtime->startFails = true;
  EXPECT_TRUE(thrown<ConnectionError>([&] { provider.stream(recording({frame(1)})); }));
}

TEST(RealtimeFallbackTranscriptionProviderTest, FeedingStopsAndCancelsTheSessionWhenTheLastCopyGoes) {
  auto realtime = std::make_shared<FakeRealtimeProvider>();
  realtime->session->blocksInAppend = true;
  ResultStream<TranscriptionPartialResult> partials;
  {
    RealtimeFallbackTranscriptionProvider provider("combined", realtime, std::make_shared<FakeBatchProvider>(), true);
    partials = RealtimeFallbackTranscriptionProvider(provider).stream(recording({frame(1), frame(2)}));
    ASSERT_TRUE(realtime->session->awaitAppend());
  }
  EXPECT_EQ(realtime->session->record().cancels, 1);
  EXPECT_TRUE(partials.isFinished());
  EXPECT_EQ(realtime->session->record().finishes, 0);
}

}  // namespace
}  // namespace orvid
