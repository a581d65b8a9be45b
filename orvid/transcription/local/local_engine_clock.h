#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <stop_token>

namespace orvid {

// The time source of the engine store's idle unloading and of the preview pacing.
// The real one is std::chrono::steady_clock; tests drive a ManualLocalEngineClock.
class LocalEngineClock {
 public:
  using Duration = std::chrono::steady_clock::duration;
  using TimePoint = std::chrono::steady_clock::time_point;

  virtual ~LocalEngineClock() = default;

  virtual TimePoint now() const = 0;

  // Blocks until `deadline` has come. Returns false, early, when `stop` is requested.
  virtual bool sleepUntil(TimePoint deadline, std::stop_token stop) = 0;

  // sleepUntil(now() + duration, stop).
  bool sleepFor(Duration duration, std::stop_token stop) { return sleepUntil(now() + duration, std::move(stop)); }
};

// std::chrono::steady_clock.
class SteadyLocalEngineClock : public LocalEngineClock {
 public:
  TimePoint now() const override { return std::chrono::steady_clock::now(); }
  bool sleepUntil(TimePoint deadline, std::stop_token stop) override;
};

// A clock that stands still until advanced. Starts at the steady clock's epoch.
class ManualLocalEngineClock : public LocalEngineClock {
 public:
  TimePoint now() const override;
  bool sleepUntil(TimePoint deadline, std::stop_token stop) override;

  // Moves the time on and wakes the sleepers whose deadline has come.
  void advance(Duration duration);

  // How many sleepUntil() calls have begun since construction.
  std::uint64_t sleepsStarted() const;

  // Blocks, for at most `timeout` of real time, until `count` sleepUntil() calls
  // have begun. Returns whether they have.
  bool waitForSleepsStarted(std::uint64_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10));

  // How many callers are inside sleepUntil() now.
  std::size_t sleeperCount() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable_any changed_;
  TimePoint now_{};
  std::size_t sleepers_ = 0;
  std::uint64_t sleepsStarted_ = 0;
};

}  // namespace orvid
