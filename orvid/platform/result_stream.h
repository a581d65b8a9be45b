#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

#include "orvid/platform/cancellation.h"

namespace orvid {

// A thread-safe, unbounded stream of values with one producer side (yield, finish)
// and any number of consumers calling next(). Values are delivered in order; once
// finished, next() drains what is buffered and then ends normally or rethrows the
// stored error. Copies share the same stream; moving copies too, so that a
// moved-from stream stays usable (an owner that was moved can still finish it).
template <typename T>
class ResultStream {
 public:
  ResultStream() : state_(std::make_shared<State>()) {}
  // Declared so that no move operations are generated: a move is a copy.
  ResultStream(const ResultStream&) = default;
  ResultStream& operator=(const ResultStream&) = default;
  ~ResultStream() = default;

  // Buffers a value; ignored after finish.
  void yield(T value) const {
    {
      std::lock_guard lock(state_->mutex);
      if (state_->finished) return;
      state_->values.push_back(std::move(value));
    }
    state_->changed.notify_all();
  }

  // Ends the stream, with an error for consumers to rethrow when `error` is set.
  // Only the first call has an effect.
  void finish(std::exception_ptr error = nullptr) const {
    {
      std::lock_guard lock(state_->mutex);
      if (state_->finished) return;
      state_->finished = true;
      state_->error = std::move(error);
    }
    state_->changed.notify_all();
  }

  bool isFinished() const {
    std::lock_guard lock(state_->mutex);
    return state_->finished;
  }

  // Blocks for the next value. Absent when the stream ended normally; rethrows the
  // stored error when it ended with one; throws CancellationError when `stop` is
  // requested while waiting.
  std::optional<T> next(std::stop_token stop = {}) const {
    // Registered before taking the lock: the callback runs at once when the token
    // is already stopped, and it takes the lock itself so a wake-up cannot be missed.
    std::stop_callback wake(stop, [this] {
      { std::lock_guard inner(state_->mutex); }
      state_->changed.notify_all();
    });
    std::unique_lock lock(state_->mutex);
    state_->changed.wait(lock, [&] {
      return !state_->values.empty() || state_->finished || stop.stop_requested();
    });
    return takeLocked(stop);
  }

  // Like next(), but gives up at `deadline`; absent then as well, and the stream
  // is not finished.
  template <typename Clock, typename Duration>
  std::optional<T> next(std::chrono::time_point<Clock, Duration> deadline, std::stop_token stop = {}) const {
    // Registered before taking the lock: the callback runs at once when the token
    // is already stopped, and it takes the lock itself so a wake-up cannot be missed.
    std::stop_callback wake(stop, [this] {
      { std::lock_guard inner(state_->mutex); }
      state_->changed.notify_all();
    });
    std::unique_lock lock(state_->mutex);
    bool ready = state_->changed.wait_until(lock, deadline, [&] {
      return !state_->values.empty() || state_->finished || stop.stop_requested();
    });
    if (!ready) return std::nullopt;
    return takeLocked(stop);
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<T> values;
    bool finished = false;
    std::exception_ptr error;
  };

  std::optional<T> takeLocked(const std::stop_token& stop) const {
    if (!state_->values.empty()) {
      T value = std::move(state_->values.front());
      state_->values.pop_front();
      return value;
    }
    if (state_->finished) {
      if (state_->error) std::rethrow_exception(state_->error);
      return std::nullopt;
    }
    checkCancellation(stop);
    return std::nullopt;
  }

  std::shared_ptr<State> state_;
};

}  // namespace orvid
