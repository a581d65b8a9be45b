#include <chrono>
#include <future>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/platform/cancellation.h"
#include "orvid/testing/fake_websocket_connector.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"
#include "orvid/transcription/realtime/internal/realtime_language_support.h"
#include "orvid/transcription/realtime/internal/realtime_session_core.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::thrown;

constexpr auto kWait = 5s;

TEST(RealtimeJSONTest, ReadsTextAndFlagsFromLooselyShapedValues) {
  struct Case {
    const char* json;  // nullptr: the member is absent
    std::optional<std::string> text;
    std::optional<bool> flag;
  };
  const Case cases[] = {
      {nullptr, std::nullopt, std::nullopt},
      {"null", std::nullopt, std::nullopt},
      {"\"  hello \\n\"", "hello", std::nullopt},
      {"\"   \"", std::nullopt, std::nullopt},
      {R"({"text":"  ","transcript":"hi"})", "hi", std::nullopt},
      {R"([3,{"message":"x"}])", "x", std::nullopt},
      {R"({"detail":["",{"text":"deep"}]})", "deep", std::nullopt},
      {"42", std::nullopt, true},
      {"0", std::nullopt, false},
      {"0.0", std::nullopt, false},
      {"true", std::nullopt, true},
      {"\"  YES \"", "YES", true},
      {"\"Final\"", "Final", true},
      {"\"no\"", "no", false},
      {"\"2\"", "2", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json ? c.json : "(absent)");
    std::optional<nlohmann::json> value;
    if (c.json) value = nlohmann::json::parse(c.json);
    const nlohmann::json* pointer = value ? &*value : nullptr;
    EXPECT_EQ(RealtimeJSON::string(pointer), c.text);
    EXPECT_EQ(RealtimeJSON::boolean(pointer), c.flag);
  }
}

TEST(RealtimeJSONTest, EncodesCompactlyWithSortedKeysAndRepairedText) {
  nlohmann::json event = {{"type", "x"}, {"audio", "a\xff"}, {"b", {{"z", 1}, {"a", true}}}};
  EXPECT_EQ(RealtimeJSON::encode(event), "{\"audio\":\"a\xEF\xBF\xBD\",\"b\":{\"a\":true,\"z\":1},\"type\":\"x\"}");
}

TEST(RealtimeLanguageSupportTest, NormalizesTags) {
  const std::pair<std::optional<std::string>, std::optional<std::string>> cases[] = {
      {std::nullopt, std::nullopt}, {" \n", std::nullopt}, {" auto ", std::nullopt}, {"Auto", "Auto"},
      {"zh-Hant", "zh"},           {" zh-Hans", "zh"},     {"en-US", "en-US"},      {"en_us", "en_us"},
  };
  for (const auto& [language, expected] : cases) {
    SCOPED_TRACE(language.value_or("(absent)"));
    EXPECT_EQ(RealtimeLanguageSupport::normalized(language), expected);
  }
}

// A core reading from a fake connection: a payload "done" completes the session
// with the text "final".
struct CoreFixture {
  std::shared_ptr<testing::FakeWebSocketConnection> connection = std::make_shared<testing::FakeWebSocketConnection>();
  RealtimeSessionCore core{connection};

  CoreFixture() {
    core.startReading([this](const Bytes& payload) {
      if (stringFromBytes(payload) != "done") return RealtimeSessionCore::ReadStep::continueReading;
      TranscriptionResult result;
      result.text = "final";
      core.complete(std::move(result));
      return RealtimeSessionCore::ReadStep::stopReading;
    });
  }

  std::future<TranscriptionResult> waitFor(std::size_t position, std::stop_token stop = {}) {
    auto future = std::async(std::launch::async, [this, stop] { return core.awaitResult(stop); });
    EXPECT_TRUE(core.awaitPendingCallers(position, std::chrono::steady_clock::now() + kWait));
    return future;
  }
};

TEST(RealtimeSessionCoreTest, WaitingCallersGetTheSameResultAndOwnStopsEndOnlyTheirWait) {
  CoreFixture fixture;
  std::future<TranscriptionResult> first = fixture.waitFor(1);
  std::stop_source ownStop;
  std::future<TranscriptionResult> stopped = fixture.waitFor(2, ownStop.get_token());
  std::future<TranscriptionResult> second = fixture.waitFor(3);

  ownStop.request_stop();
  ASSERT_EQ(stopped.wait_for(kWait), std::future_status::ready);
  EXPECT_TRUE(thrown<CancellationError>([&] { stopped.get(); }));
  EXPECT_EQ(first.wait_for(0s), std::future_status::timeout);

  fixture.connection->pushText("done");
  ASSERT_EQ(first.wait_for(kWait), std::future_status::ready);
  ASSERT_EQ(second.wait_for(kWait), std::future_status::ready);
  EXPECT_EQ(first.get().text, "final");
  EXPECT_EQ(second.get().text, "final");
  EXPECT_EQ(fixture.core.awaitResult().text, "final");
  EXPECT_EQ(fixture.core.partialResults().next(std::chrono::steady_clock::now() + kWait), std::nullopt);
}

TEST(RealtimeSessionCoreTest, CancelWhileWaitingThrowsCancellationAndEndsTheStreamNormally) {
  CoreFixture fixture;
  std::future<TranscriptionResult> first = fixture.waitFor(1);
  std::future<TranscriptionResult> second = fixture.waitFor(2);

  fixture.core.cancel();
  fixture.core.cancel();
  ASSERT_EQ(first.wait_for(kWait), std::future_status::ready);
  ASSERT_EQ(second.wait_for(kWait), std::future_status::ready);
  EXPECT_TRUE(thrown<CancellationError>([&] { first.get(); }));
  EXPECT_TRUE(thrown<CancellationError>([&] { second.get(); }));
  EXPECT_EQ(fixture.core.partialResults().next(std::chrono::steady_clock::now() + kWait), std::nullopt);
  EXPECT_TRUE(fixture.core.partialResults().isFinished());
  EXPECT_GE(fixture.connection->cancelCount(), 1);
}

}  // namespace
}  // namespace orvid
