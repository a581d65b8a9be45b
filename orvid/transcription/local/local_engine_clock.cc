#include "orvid/transcription/local/local_engine_clock.h"

namespace orvid {

bool SteadyLocalEngineClock::sleepUntil(TimePoint deadline, std::stop_token stop) {
  std::mutex mutex;
  std::condition_variable_any woken;
  std::unique_lock lock(mutex);
  woken.wait_until(lock, stop, deadline, [] { return false; });
  return !stop.stop_requested();
}

LocalEngineClock::TimePoint ManualLocalEngineClock::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

bool ManualLocalEngineClock::sleepUntil(TimePoint deadline, std::stop_token stop) {
  std::unique_lock lock(mutex_);
  ++sleepers_;
  ++sleepsStarted_;
  changed_.notify_all();
  bool reached = changed_.wait(lock, stop, [&] { return now_ >= deadline; });
  --sleepers_;
  changed_.notify_all();
  return reached;
}

void ManualLocalEngineClock::advance(Duration duration) {
  {
    std::lock_guard lock(mutex_);
    now_ += duration;
  }
  changed_.notify_all();
}

std::uint64_t ManualLocalEngineClock::sleepsStarted() const {
  std::lock_guard lock(mutex_);
  return sleepsStarted_;
}

bool ManualLocalEngineClock::waitForSleepsStarted(std::uint64_t count, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return sleepsStarted_ >= count; });
}

std::size_t ManualLocalEngineClock::sleeperCount() const {
  std::lock_guard lock(mutex_);
  return sleepers_;
}

}  // namespace orvid
