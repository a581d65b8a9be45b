#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#include "orvid/platform/cancellation.h"
#include "orvid/transcription/local/local_transcription_engine.h"
#include "orvid/transcription/local/local_transcription_engine_factory.h"

// Test doubles at the engine seam: an engine whose transcriptions can be held at a
// gate, and a factory that hands such engines out or fails.
namespace orvid::testing {

inline TranscriptionResult resultWithText(std::string text) {
  TranscriptionResult result;
  result.text = std::move(text);
  return result;
}

// A latch that opens once; waits end at a deadline or a stop.
class Gate {
 public:
  void open() {
    {
      std::lock_guard lock(mutex_);
      open_ = true;
    }
    changed_.notify_all();
  }
  bool isOpen() const {
    std::lock_guard lock(mutex_);
    return open_;
  }
  bool wait(std::chrono::milliseconds timeout = std::chrono::seconds(10)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return open_; });
  }
  // Throws CancellationError when `stop` comes first.
  void waitOrThrow(std::stop_token stop) const {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, stop, [&] { return open_; });
    if (!open_) throw CancellationError();
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable_any changed_;
  bool open_ = false;
};

// Counts up and lets tests wait for a count.
class Counter {
 public:
  void increment() {
    {
      std::lock_guard lock(mutex_);
      ++value_;
    }
    changed_.notify_all();
  }
  int value() const {
    std::lock_guard lock(mutex_);
    return value_;
  }
  bool waitFor(int count, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return value_ >= count; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  int value_ = 0;
};

class FakeLocalTranscriptionEngine : public LocalTranscriptionEngine {
 public:
  using Reply = std::function<TranscriptionResult(const LocalTranscriptionRequest&, std::stop_token)>;

  explicit FakeLocalTranscriptionEngine(std::string modelID, Reply reply = {})
      : modelID_(std::move(modelID)), reply_(std::move(reply)) {}

  std::string modelID() const override { return modelID_; }

  TranscriptionResult transcribe(const LocalTranscriptionRequest& request, std::stop_token stop) override {
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(request);
      ++running_;
      maximumRunning_ = std::max(maximumRunning_, running_);
    }
    entered.increment();
    struct Leave {
      FakeLocalTranscriptionEngine* engine;
      ~Leave() {
        std::lock_guard lock(engine->mutex_);
        --engine->running_;
      }
    } leave{this};
    if (reply_) return reply_(request, stop);
    return resultWithText("text of " + modelID_);
  }

  void unload() noexcept override { unloads.increment(); }

  std::vector<LocalTranscriptionRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  int maximumRunning() const {
    std::lock_guard lock(mutex_);
    return maximumRunning_;
  }

  Counter entered;
  Counter unloads;

 private:
  const std::string modelID_;
  const Reply reply_;
  mutable std::mutex mutex_;
  std::vector<LocalTranscriptionRequest> requests_;
  int running_ = 0;
  int maximumRunning_ = 0;
};

// Loads FakeLocalTranscriptionEngine instances built by `makeEngine`, or throws
// the error set for the model.
class FakeLocalTranscriptionEngineFactory : public LocalTranscriptionEngineFactory {
 public:
  using MakeEngine = std::function<std::shared_ptr<LocalTranscriptionEngine>(const std::string& modelID)>;

  explicit FakeLocalTranscriptionEngineFactory(MakeEngine makeEngine = {}) : makeEngine_(std::move(makeEngine)) {}

  std::shared_ptr<LocalTranscriptionEngine> loadEngine(const LocalTranscriptionModelDescriptor& descriptor,
                                                       const std::filesystem::path& modelURL,
                                                       std::stop_token) override {
    std::shared_ptr<LocalTranscriptionEngine> engine;
    {
      std::lock_guard lock(mutex_);
      loadedURLs_.push_back(modelURL);
      if (auto failure = failures_.find(descriptor.id); failure != failures_.end()) {
        throw std::runtime_error(failure->second);
      }
    }
    engine = makeEngine_ ? makeEngine_(descriptor.id) : std::make_shared<FakeLocalTranscriptionEngine>(descriptor.id);
    std::lock_guard lock(mutex_);
    engines_.push_back(engine);
    return engine;
  }

  void failLoading(const std::string& modelID, std::string message) {
    std::lock_guard lock(mutex_);
    failures_[modelID] = std::move(message);
  }
  void succeedLoading(const std::string& modelID) {
    std::lock_guard lock(mutex_);
    failures_.erase(modelID);
  }
  // Every engine loaded so far, oldest first.
  std::vector<std::shared_ptr<LocalTranscriptionEngine>> engines() const {
    std::lock_guard lock(mutex_);
    return engines_;
  }

 private:
  const MakeEngine makeEngine_;
  mutable std::mutex mutex_;
  std::map<std::string, std::string> failures_;
  std::vector<std::filesystem::path> loadedURLs_;
  std::vector<std::shared_ptr<LocalTranscriptionEngine>> engines_;
};

}  // namespace orvid::testing
