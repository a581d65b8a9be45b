#include "orvid/transcription/realtime/internal/realtime_audio_gate.h"

#include <utility>

namespace orvid {

bool RealtimeAudioGate::hold(Bytes& block) {
  std::lock_guard lock(mutex_);
  if (open_) return false;
  pending_.push_back(std::move(block));
  return true;
}

bool RealtimeAudioGate::open(const std::function<void(const Bytes&)>& send) {
  for (;;) {
    std::vector<Bytes> blocks;
    {
      std::lock_guard lock(mutex_);
      if (open_) return false;
      if (pending_.empty()) {
        open_ = true;
        return finishRequested_;
      }
      blocks = std::exchange(pending_, {});
    }
    for (const Bytes& block : blocks) send(block);
  }
}

bool RealtimeAudioGate::requestFinish() {
  std::lock_guard lock(mutex_);
  finishRequested_ = true;
  return open_;
}

bool RealtimeAudioGate::isOpen() const {
  std::lock_guard lock(mutex_);
  return open_;
}

}  // namespace orvid
