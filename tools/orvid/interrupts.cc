#include "tools/orvid/interrupts.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace orvid::cli {
namespace {

// Wakes the watcher when the program ends.
constexpr int kWakeSignal = SIGUSR1;

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

// Ends the process the way `signal` does by default.
[[noreturn]] void endBy(int signal) {
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

void watch(sigset_t signals) {
  for (;;) {
    int signal = 0;
    if (::sigwait(&signals, &signal) != 0) continue;
    if (signal == kWakeSignal) {
      if (state().stopping) return;
      continue;
    }
    std::lock_guard lock(state().mutex);
    if (state().scope != nullptr && state().signal == 0) {
      state().signal = signal;
      state().scope->request_stop();
      continue;
    }
    endBy(signal);
  }
}

}  // namespace

InterruptWatcher::InterruptWatcher() {
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
