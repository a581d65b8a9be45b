#include "orvid/transcription/local/local_engine_transcription_provider.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/transcription/local/local_engine_test_support.h"
#include "orvid/transcription/local/local_realtime_transcription_provider.h"

namespace orvid {
namespace {

using testing::FakeLocalTranscriptionEngine;
using testing::FakeLocalTranscriptionEngineFactory;
using namespace std::chrono_literals;

class LocalEngineProviderTest : public ::testing::Test {
 protected:
  LocalEngineProviderTest() {
    std::ofstream(folder / "m.bin");
    descriptor.id = "m";
    descriptor.languageCodes = {"en"};
    store = std::make_shared<LocalTranscriptionEngineStore>(
        std::vector{descriptor}, [this](const std::string&) { return std::optional(folder / "m.bin"); }, factory,
        LocalTranscriptionEngineUnloadPolicy::immediately());
  }

  std::shared_ptr<FakeLocalTranscriptionEngine> lastEngine() const {
    return std::dynamic_pointer_cast<FakeLocalTranscriptionEngine>(factory->engines().back());
  }

  TemporaryDirectory folder{"orvid-local-provider"};
  LocalTranscriptionModelDescriptor descriptor;
  std::shared_ptr<FakeLocalTranscriptionEngineFactory> factory =
      std::make_shared<FakeLocalTranscriptionEngineFactory>();
  std::shared_ptr<LocalTranscriptionEngineStore> store;
};

TEST_F(LocalEngineProviderTest, BatchRequestsGoThroughTheStoreAndCarryTheRoute) {
  LocalEngineTranscriptionProvider provider("local.m", descriptor, store);
  TranscriptionRequest request;
  request.audioFrames = {AudioWAVEncoder::silentPCMFrame(16000, 200)};
  request.languageRoute.providerID = "local.m";
  request.promptHint = "Orvid";

  const TranscriptionResult result = provider.transcribe(request);
  EXPECT_EQ(result, testing::resultWithText("text of m").applying(request.languageRoute));
  const LocalTranscriptionRequest seen = lastEngine()->requests().back();
  EXPECT_EQ(seen.modelID, "m");
  EXPECT_EQ(seen.promptHint, "Orvid");
  EXPECT_EQ(seen.languageRoute.providerLanguage, "en");
  EXPECT_FALSE(store->isLoaded("m")) << "immediate unloading after the use";
}

TEST_F(LocalEngineProviderTest, StreamingAFinishedRecordingEndsWithTheFinalResultAndFreesTheSlot) {
  LocalEngineTranscriptionProvider provider("local.m", descriptor, store);
  TranscriptionRequest request;
  request.audioFrames = {AudioWAVEncoder::silentPCMFrame(16000, 200), AudioWAVEncoder::silentPCMFrame(16000, 200)};

  ResultStream<TranscriptionPartialResult> partials = provider.stream(request);
  std::optional<TranscriptionPartialResult> last;
  while (auto partial = partials.next(std::chrono::steady_clock::now() + 10s)) last = partial;
  ASSERT_TRUE(partials.isFinished());
  ASSERT_TRUE(last);
  EXPECT_EQ(*last, (TranscriptionPartialResult{"text of m", true, true}));
  EXPECT_EQ(lastEngine()->requests().back().audioFrames.size(), 2u);

  EXPECT_EQ(provider.transcribe(request).text, "text of m");
}

TEST_F(LocalEngineProviderTest, RealtimeSessionsCarryTheProvidersOptions) {
  LocalRealtimeTranscriptionProvider provider(
      descriptor, store, {{"translate_to_english", TranscriptionProviderOptionValue::boolean(true)}}, 750ms);
  auto session = provider.startSession(RealtimeTranscriptionStartRequest{});
  session->appendPCM16(AudioWAVEncoder::silentPCMFrame(16000, 200));
  EXPECT_EQ(session->finish().text, "text of m");
  const LocalTranscriptionRequest seen = lastEngine()->requests().back();
  EXPECT_EQ(seen.providerOptions.at("translate_to_english").booleanValue(), true);
  EXPECT_EQ(seen.modelURL, folder / "m.bin");
}

}  // namespace
}  // namespace orvid
