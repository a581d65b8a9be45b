#pragma once

#include <stop_token>
#include <thread>

namespace orvid::cli {

// Takes Ctrl-C (SIGINT), SIGTERM and SIGHUP for the whole tool; a signal the tool
// was started with ignored stays ignored. Create one first thing in main(), before
// any other thread exists, and keep it for the life of the program.
// Outside an InterruptScope a signal ends the tool at once, as it would without the
// watcher. Inside one the first signal stops the scope's token, so the running work
// can end its child processes and requests and report; a second kills every process
// the tool started and gives the work two seconds to unwind; a third, or those two
// seconds passing, ends the tool at once. Whatever happens, no process the tool
// started (nor one those started) outlives it: they are killed when the tool ends.
class InterruptWatcher {
 public:
  InterruptWatcher();
  ~InterruptWatcher();
  InterruptWatcher(const InterruptWatcher&) = delete;
  InterruptWatcher& operator=(const InterruptWatcher&) = delete;

  // The signal that stopped a scope, or 0 when none has.
  static int interruptingSignal();

 private:
  std::jthread thread_;
};

// Marks the work that listens to its stop token. Scopes do not nest.
class InterruptScope {
 public:
  InterruptScope();
  ~InterruptScope();
  InterruptScope(const InterruptScope&) = delete;
  InterruptScope& operator=(const InterruptScope&) = delete;

  // Stopped by the first signal that arrives while the scope lives.
  std::stop_token token() const { return source_.get_token(); }
  bool interrupted() const { return source_.stop_requested(); }

 private:
  std::stop_source source_;
};

}  // namespace orvid::cli
