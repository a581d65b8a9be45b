#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "orvid/platform/bytes.h"

namespace orvid {

// Internal-only, not API: holds a session's audio back until its service has
// acknowledged the start, then lets it through in the order it was appended, and
// decides which side sends a commit that was requested before the
// acknowledgement. Thread-safe; its lock is never held while audio is sent.
class RealtimeAudioGate {
 public:
  // Keeps `block` (moved from) and returns true while the gate is closed; returns
  // false, leaving `block` alone, once it is open: the caller sends it then.
  bool hold(Bytes& block);

  // Opens the gate: hands every held block to `send` in the order appended,
  // including blocks held while earlier ones are being sent, and opens only when
  // none is left, so that later audio cannot overtake held audio. Returns true
  // when requestFinish() came first: the caller then sends the commit. An
  // exception from `send` propagates and leaves the gate closed. Call from one
  // thread at a time.
  bool open(const std::function<void(const Bytes&)>& send);

  // Records that the audio has ended. True when the gate is open, so that the
  // caller sends the commit itself; false when open() will report it.
  bool requestFinish();

  bool isOpen() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Bytes> pending_;
  bool open_ = false;
  bool finishRequested_ = false;
};

}  // namespace orvid
