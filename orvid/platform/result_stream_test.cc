#include "orvid/platform/result_stream.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace orvid {
namespace {

using namespace std::chrono_literals;

// Generous bound for work that should finish at once; only reached when something hangs.
constexpr auto kPatience = 10s;

TEST(ResultStreamTest, DeliversValuesInOrderAndEndsNormally) {
  ResultStream<std::string> stream;
  stream.yield("one");
  stream.yield("two");
  stream.yield("three");
  stream.finish();

  EXPECT_EQ(stream.next(), "one");
  EXPECT_EQ(stream.next(), "two");
  EXPECT_EQ(stream.next(), "three");
  EXPECT_EQ(stream.next(), std::nullopt);
  EXPECT_EQ(stream.next(), std::nullopt);  // stays ended
  EXPECT_TRUE(stream.isFinished());
}

TEST(ResultStreamTest, DrainsBufferedValuesBeforeRethrowingTheError) {
  ResultStream<int> stream;
  stream.yield(1);
  stream.yield(2);
  stream.finish(std::make_exception_ptr(std::runtime_error("socket closed")));

  EXPECT_EQ(stream.next(), 1);
  EXPECT_EQ(stream.next(), 2);
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      stream.next();
      ADD_FAILURE() << "the stored error was not rethrown";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "socket closed");
    }
  }
}

TEST(ResultStreamTest, IgnoresYieldsAndFinishesAfterTheFirstFinish) {
  ResultStream<int> stream;
  stream.yield(1);
  stream.finish();
  stream.yield(2);
  stream.finish(std::make_exception_ptr(std::runtime_error("late")));

  EXPECT_EQ(stream.next(), 1);
  EXPECT_EQ(stream.next(), std::nullopt);
}

TEST(ResultStreamTest, CopiesShareOneStream) {
  ResultStream<int> producer;
  ResultStream<int> consumer = producer;
  producer.yield(7);
  EXPECT_EQ(consumer.next(), 7);
  consumer.finish();
  EXPECT_TRUE(producer.isFinished());
}

TEST(ResultStreamTest, AMovedFromStreamStaysUsableAndShared) {
  ResultStream<int> original;
  ResultStream<int> moved = std::move(original);
  ResultStream<int> assigned;
  assigned = std::move(moved);
  // Every handle, moved from or not, still reaches the one stream.
  original.yield(1);
  moved.yield(2);
  EXPECT_EQ(assigned.next(), 1);
  EXPECT_EQ(original.next(), 2);
  moved.finish();
  EXPECT_TRUE(assigned.isFinished());
  EXPECT_EQ(original.next(), std::nullopt);
}

TEST(ResultStreamTest, WakesAWaitingConsumerWhenAValueArrives) {
  ResultStream<int> stream;
  auto consumer = std::async(std::launch::async, [stream] { return stream.next(); });
  stream.yield(42);
  ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(consumer.get(), 42);
}

TEST(ResultStreamTest, WakesAWaitingConsumerWhenFinished) {
  ResultStream<int> stream;
  auto consumer = std::async(std::launch::async, [stream] { return stream.next(); });
  stream.finish();
  ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(consumer.get(), std::nullopt);
}

TEST(ResultStreamTest, SeveralConsumersReceiveEachValueExactlyOnce) {
  constexpr int kConsumers = 4;
  constexpr int kProducers = 2;
  constexpr int kValuesPerProducer = 5000;
  ResultStream<int> stream;
  std::mutex mutex;
  std::vector<int> received;
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
  for (const auto& values : perConsumer) {
    received.insert(received.end(), values.begin(), values.end());
    // Each consumer sees one producer's values in the order they were yielded.
    for (int p = 0; p < kProducers; ++p) {
      std::vector<int> own;
      std::copy_if(values.begin(), values.end(), std::back_inserter(own),
                   [p](int v) { return v / kValuesPerProducer == p; });
      EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
    }
  }
  std::sort(received.begin(), received.end());
  std::vector<int> expected(kProducers * kValuesPerProducer);
  for (std::size_t i = 0; i < expected.size(); ++i) expected[i] = static_cast<int>(i);
  EXPECT_EQ(received, expected);
}

TEST(ResultStreamTest, StoppingAWaitingConsumerThrowsCancellationPromptly) {
  ResultStream<int> stream;
  std::stop_source stop;
  std::promise<void> entered;
  auto consumer = std::async(std::launch::async, [&] {
    entered.set_value();
    return stream.next(stop.get_token());
  });
  entered.get_future().wait();
  const auto started = std::chrono::steady_clock::now();
  stop.request_stop();
  ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
  EXPECT_THROW(consumer.get(), CancellationError);
  EXPECT_FALSE(stream.isFinished());
}

TEST(ResultStreamTest, AnAlreadyStoppedTokenThrowsAtOnceButBufferedValuesComeFirst) {
  ResultStream<int> stream;
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(stream.next(stop.get_token()), CancellationError);
  EXPECT_THROW(stream.next(std::chrono::steady_clock::now() + kPatience, stop.get_token()), CancellationError);
  stream.yield(5);
  EXPECT_EQ(stream.next(stop.get_token()), 5);
}

TEST(ResultStreamTest, StoppingAConsumerWaitingWithADeadlineThrowsCancellation) {
  ResultStream<int> stream;
  std::stop_source stop;
  std::promise<void> entered;
  auto consumer = std::async(std::launch::async, [&] {
    entered.set_value();
    return stream.next(std::chrono::steady_clock::now() + 60s, stop.get_token());
  });
  entered.get_future().wait();
  stop.request_stop();
  ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
  EXPECT_THROW(consumer.get(), CancellationError);
}

TEST(ResultStreamTest, NextWithADeadlineTimesOutWithoutEndingTheStream) {
  ResultStream<int> stream;
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(stream.next(started + 50ms), std::nullopt);
  EXPECT_GE(std::chrono::steady_clock::now() - started, 50ms);
  EXPECT_FALSE(stream.isFinished());
  // A deadline already past returns what is buffered.
  stream.yield(3);
  EXPECT_EQ(stream.next(started), 3);
  stream.yield(4);
  EXPECT_EQ(stream.next(std::chrono::steady_clock::now() + kPatience), 4);
}

TEST(ResultStreamTest, NextWithADeadlineReturnsAValueYieldedWhileWaiting) {
  ResultStream<int> stream;
  auto consumer =
      std::async(std::launch::async, [stream] { return stream.next(std::chrono::steady_clock::now() + kPatience); });
  stream.yield(9);
  ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(consumer.get(), 9);
}

TEST(ResultStreamTest, CarriesMoveOnlyValues) {
  ResultStream<std::unique_ptr<int>> stream;
  stream.yield(std::make_unique<int>(11));
  stream.finish();
  auto value = stream.next();
  ASSERT_TRUE(value.has_value());
  EXPECT_EQ(**value, 11);
}

}  // namespace
}  // namespace orvid
