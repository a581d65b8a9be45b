#include "orvid/platform/result_stream.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 10s;  // only reached when something hangs

TEST(ResultStreamTest, DeliversValuesInOrderThenEndsAndIgnoresLaterCalls) {
  ResultStream<std::string> stream;
  stream.yield("one");
  stream.yield("two");
  stream.finish();
  stream.yield("late");
  stream.finish(std::make_exception_ptr(std::runtime_error("late")));
  EXPECT_EQ(stream.next(), "one");
  EXPECT_EQ(stream.next(), "two");
  EXPECT_EQ(stream.next(), std::nullopt);
}

TEST(ResultStreamTest, DrainsBufferedMoveOnlyValuesBeforeRethrowingTheError) {
  ResultStream<std::unique_ptr<int>> stream;
  stream.yield(std::make_unique<int>(1));
  stream.finish(std::make_exception_ptr(std::runtime_error("socket closed")));
  EXPECT_EQ(**stream.next(), 1);
  for (int attempt = 0; attempt < 2; ++attempt) {
    const auto error = orvid::testing::thrown<std::runtime_error>([&] { stream.next(); });
    EXPECT_STREQ(error ? error->what() : "returned", "socket closed");
  }
}

TEST(ResultStreamTest, CopiesAndMovedFromHandlesShareOneStream) {
  ResultStream<int> original;
  ResultStream<int> copy = original;
  ResultStream<int> assigned;
  assigned = std::move(original);
  original.yield(1);
  EXPECT_EQ(copy.next(), 1);
  assigned.finish();
  EXPECT_EQ(original.next(), std::nullopt);
}

TEST(ResultStreamTest, WakesWaitingConsumersWhenAValueArrivesOrTheStreamEnds) {
  ResultStream<int> stream;
  auto waiting = std::async(std::launch::async, [stream] { return stream.next(Clock::now() + kPatience); });
  stream.yield(42);
  ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(waiting.get(), 42);

  waiting = std::async(std::launch::async, [stream] { return stream.next(); });
  stream.finish();
  ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(waiting.get(), std::nullopt);
}

TEST(ResultStreamTest, SeveralConsumersReceiveEachValueExactlyOnce) {
  constexpr int kValues = 10000;
  ResultStream<int> stream;
  std::vector<std::vector<int>> perConsumer(4);
  {
    std::vector<std::jthread> consumers;
    for (auto& values : perConsumer) {
      consumers.emplace_back([&] {
        while (auto value = stream.next()) values.push_back(*value);
      });
    }
    {
      std::jthread evens([&] { for (int i = 0; i < kValues; i += 2) stream.yield(i); });
      std::jthread odds([&] { for (int i = 1; i < kValues; i += 2) stream.yield(i); });
    }
    stream.finish();
  }
  std::vector<int> received;
  for (const auto& values : perConsumer) received.insert(received.end(), values.begin(), values.end());
  std::sort(received.begin(), received.end());
  ASSERT_EQ(received.size(), static_cast<std::size_t>(kValues));
  for (std::size_t i = 0; i < received.size(); ++i) ASSERT_EQ(received[i], static_cast<int>(i));
}

TEST(ResultStreamTest, StoppingAWaitingConsumerThrowsCancellationPromptly) {
  ResultStream<int> stream;
  std::stop_source stop;
  std::promise<void> entered;
  auto consumer = std::async(std::launch::async, [&] {
    entered.set_value();
    return stream.next(Clock::now() + 60s, stop.get_token());
  });
  entered.get_future().wait();
  stop.request_stop();
  ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
  EXPECT_THROW(consumer.get(), CancellationError);
  // An already stopped token throws at once, but buffered values come first.
  EXPECT_THROW(stream.next(stop.get_token()), CancellationError);
  stream.yield(5);
  EXPECT_EQ(stream.next(stop.get_token()), 5);
}

TEST(ResultStreamTest, NextWithADeadlineTimesOutWithoutEndingTheStream) {
  ResultStream<int> stream;
  const auto started = Clock::now();
  EXPECT_EQ(stream.next(started + 50ms), std::nullopt);
  EXPECT_GE(Clock::now() - started, 50ms);
  EXPECT_FALSE(stream.isFinished());
  // A deadline already past returns what is buffered.
  stream.yield(3);
  EXPECT_EQ(stream.next(started), 3);
}

}  // namespace
}  // namespace orvid
