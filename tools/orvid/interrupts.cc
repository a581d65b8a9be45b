#include "tools/orvid/interrupts.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <optional>

#include "orvid/automation/process_tree.h"

namespace orvid::cli {
namespace {

// Wakes the watcher when the program ends.
constexpr int kWakeSignal = SIGUSR1;
// After the second signal, the time the running work has to unwind once its child
// processes are gone, before the tool ends without it.
constexpr std::chrono::seconds kUnwindLimit{2};
// The time spent ending descendants that keep starting others.
constexpr std::chrono::milliseconds kKillLimit{1000};

struct InterruptState {
  std::mutex mutex;
  std::stop_source* scope = nullptr;
  std::atomic<int> signal{0};
  std::atomic<bool> stopping{false};
};

InterruptState& state() {
  static InterruptState shared;
  return shared;
}

// Ends the process the way `signal` does by default, and every process it started first.
[[noreturn]] void endBy(int signal) {
  endAllDescendants(kKillLimit);
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  ::pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
  ::raise(signal);
  ::_exit(128 + signal);
}

bool ignoredAtStart(int signal) {
  struct sigaction current {};
  return ::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

// Waits for one of `signals`, until `deadline` when there is one; 0 when it passed.
int nextSignal(const sigset_t& signals, std::optional<std::chrono::steady_clock::time_point> deadline) {
  while (true) {
    if (!deadline) {
      int signal = 0;
      if (::sigwait(&signals, &signal) == 0) return signal;
      continue;
    }
    auto left = *deadline - std::chrono::steady_clock::now();
    if (left <= std::chrono::steady_clock::duration::zero()) return 0;
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timespec wait{static_cast<std::time_t>(seconds.count()),
                  static_cast<long>(std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds).count())};
    int signal = ::sigtimedwait(&signals, nullptr, &wait);
    if (signal > 0) return signal;
  }
}

// The first signal inside a scope stops its token, so the work ends its child
// processes and reports. The second kills every process the tool started, which
// lets work that waits for a child ignoring the first signal unwind; if it has not unwound within
// kUnwindLimit, or a third signal comes, the tool ends at once. Outside a scope a
// signal ends the tool at once. No process the tool started outlives it.
void watch(sigset_t signals) {
  std::optional<std::chrono::steady_clock::time_point> unwindDeadline;
  for (;;) {
    int signal = nextSignal(signals, unwindDeadline);
    if (signal == kWakeSignal) {
      if (state().stopping) return;
      continue;
    }
    std::lock_guard lock(state().mutex);
    if (signal == 0) endBy(state().signal);  // the work did not unwind in time
    if (state().scope != nullptr && state().signal == 0) {
      state().signal = signal;
      state().scope->request_stop();
      continue;
    }
    if (state().scope != nullptr && !unwindDeadline) {
      killAllDescendants(kKillLimit);
      unwindDeadline = std::chrono::steady_clock::now() + kUnwindLimit;
      continue;
    }
    endBy(state().signal != 0 ? state().signal.load() : signal);
  }
}

}  // namespace

InterruptWatcher::InterruptWatcher() {
  // Processes whose parent ended (a driver's helpers, say) stay within reach.
  adoptOrphanedDescendants();
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (!ignoredAtStart(signal)) sigaddset(&signals, signal);
  }
  sigaddset(&signals, kWakeSignal);
  // Every thread started from here on inherits the mask, so only the watcher sees them.
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  thread_ = std::jthread([signals] { watch(signals); });
}

InterruptWatcher::~InterruptWatcher() {
  state().stopping = true;
  ::pthread_kill(thread_.native_handle(), kWakeSignal);
  // What the work left behind (a driver that ignored the terminate signal and was
  // left to end in its own time) ends with the tool.
  endAllDescendants(kKillLimit);
}

int InterruptWatcher::interruptingSignal() { return state().signal; }

InterruptScope::InterruptScope() {
  std::lock_guard lock(state().mutex);
  state().scope = &source_;
}

InterruptScope::~InterruptScope() {
  std::lock_guard lock(state().mutex);
  state().scope = nullptr;
}

}  // namespace orvid::cli
