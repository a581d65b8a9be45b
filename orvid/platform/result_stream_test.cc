#include "orvid/platform/result_stream.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Generous bound for work that should finish at once; only reached when something hangs.
constexpr auto kPatience = 10s;

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
  EXPECT_EQ(stream.next(), std::nullopt);  // stays ended
  EXPECT_TRUE(stream.isFinished());
}

TEST(ResultStreamTest, DrainsBufferedMoveOnlyValuesBeforeRethrowingTheError) {
  ResultStream<std::unique_ptr<int>> stream;
  stream.yield(std::make_unique<int>(1));
  stream.finish(std::make_exception_ptr(std::runtime_error("socket closed")));

  EXPECT_EQ(**stream.next(), 1);
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      stream.next();
      ADD_FAILURE() << "the stored error was not rethrown";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "socket closed");
    }
  }
}

TEST(ResultStreamTest, CopiesAndMovedFromHandlesShareOneStream) {
  ResultStream<int> original;
  ResultStream<int> copy = original;
  ResultStream<int> moved = std::move(original);
  ResultStream<int> assigned;
  assigned = std::move(moved);
  original.yield(1);
  moved.yield(2);
  EXPECT_EQ(assigned.next(), 1);
  EXPECT_EQ(copy.next(), 2);
  moved.finish();
  EXPECT_TRUE(assigned.isFinished());
  EXPECT_EQ(original.next(), std::nullopt);
}

TEST(ResultStreamTest, WakesWaitingConsumersWhenAValueArrivesOrTheStreamEnds) {
  ResultStream<int> stream;
  auto waiting = std::async(std::launch::async, [stream] { return stream.next(); });
  stream.yield(42);
  ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(waiting.get(), 42);

  auto withDeadline = std::async(std::launch::async, [stream] { return stream.next(Clock::now() + kPatience); });
  stream.yield(9);
  ASSERT_EQ(withDeadline.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(withDeadline.get(), 9);

  waiting = std::async(std::launch::async, [stream] { return stream.next(); });
  stream.finish();
  ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(waiting.get(), std::nullopt);
}

TEST(ResultStreamTest, SeveralConsumersReceiveEachValueExactlyOnceAndInOrder) {
  constexpr int kConsumers = 4;
  constexpr int kProducers = 2;
  constexpr int kValuesPerProducer = 5000;
  ResultStream<int> stream;
  std::vector<std::vector<int>> perConsumer(kConsumers);
  {
    std::vector<std::jthread> consumers;
    for (int c = 0; c < kConsumers; ++c) {
      consumers.emplace_back([&, c] {
        while (auto value = stream.next()) perConsumer[c].push_back(*value);
      });
    }
    {
      std::vector<std::jthread> producers;
      for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
          for (int i = 0; i < kValuesPerProducer; ++i) stream.yield(p * kValuesPerProducer + i);
        });
      }
    }
    stream.finish();
  }
  std::vector<int> received;
  for (const auto& values : perConsumer) {
    // Each consumer sees each producer's values in the order they were yielded.
    for (int p = 0; p < kProducers; ++p) {
      int last = -1;
      for (int value : values) {
        if (value / kValuesPerProducer != p) continue;
        EXPECT_LT(last, value);
        last = value;
      }
    }
    received.insert(received.end(), values.begin(), values.end());
  }
  std::sort(received.begin(), received.end());
  ASSERT_EQ(received.size(), static_cast<std::size_t>(kProducers * kValuesPerProducer));
  for (std::size_t i = 0; i < received.size(); ++i) ASSERT_EQ(received[i], static_cast<int>(i));
}

TEST(ResultStreamTest, StoppingAWaitingConsumerThrowsCancellationPromptly) {
  const std::vector<std::function<std::optional<int>(const ResultStream<int>&, std::stop_token)>> waits = {
      [](const ResultStream<int>& stream, std::stop_token stop) { return stream.next(stop); },
      [](const ResultStream<int>& stream, std::stop_token stop) { return stream.next(Clock::now() + 60s, stop); },
  };
  for (const auto& wait : waits) {
    ResultStream<int> stream;
    std::stop_source stop;
    std::promise<void> entered;
    auto consumer = std::async(std::launch::async, [&] {
      entered.set_value();
      return wait(stream, stop.get_token());
    });
    entered.get_future().wait();
    stop.request_stop();
    ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
    EXPECT_THROW(consumer.get(), CancellationError);
    EXPECT_FALSE(stream.isFinished());
  }
}

TEST(ResultStreamTest, AnAlreadyStoppedTokenThrowsAtOnceButBufferedValuesComeFirst) {
  ResultStream<int> stream;
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(stream.next(stop.get_token()), CancellationError);
  EXPECT_THROW(stream.next(Clock::now() + kPatience, stop.get_token()), CancellationError);
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
