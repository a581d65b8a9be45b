#include "orvid/transcription/local/local_engine_transcription_provider.h"

#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace orvid {

class LocalEngineTranscriptionProvider::Feeders {
 public:
  Feeders() = default;
  Feeders(const Feeders&) = delete;
  Feeders& operator=(const Feeders&) = delete;

  ~Feeders() {
    std::list<Feeder> running;
    {
      std::lock_guard lock(mutex_);
      running.swap(feeders_);
    }
    for (Feeder& feeder : running) feeder.thread.request_stop();
    // The threads join as `running` goes.
  }

  // Appends `frames` to `session` and finishes it on a thread of its own; cancels
  // the session when that fails or `stop` is requested.
  void feed(std::shared_ptr<RealtimeTranscriptionSession> session, std::vector<PCMFrame> frames, std::stop_token stop) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::jthread thread(
        [session = std::move(session), frames = std::move(frames), stop = std::move(stop), done](std::stop_token own) {
          std::stop_source either;
          std::stop_callback byOwner(own, [&] { either.request_stop(); });
          std::stop_callback byCaller(stop, [&] { either.request_stop(); });
          try {
            for (const PCMFrame& frame : frames) session->appendPCM16(frame, either.get_token());
            session->finish(either.get_token());
          } catch (...) {
            session->cancel();
          }
          done->store(true);
        });

    std::list<Feeder> finished;
    std::lock_guard lock(mutex_);
    for (auto feeder = feeders_.begin(); feeder != feeders_.end();) {
      auto current = feeder++;
      if (current->done->load()) finished.splice(finished.end(), feeders_, current);
    }
    feeders_.push_back(Feeder{std::move(thread), std::move(done)});
  }

 private:
  struct Feeder {
    std::jthread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  std::mutex mutex_;
  std::list<Feeder> feeders_;
};

LocalEngineTranscriptionProvider::LocalEngineTranscriptionProvider(
    std::string id, LocalTranscriptionModelDescriptor descriptor,
    std::shared_ptr<LocalTranscriptionEngineStore> engineStore)
    : id_(std::move(id)),
      descriptor_(std::move(descriptor)),
      engineStore_(std::move(engineStore)),
      feeders_(std::make_shared<Feeders>()) {}

LocalTranscriptionRequest LocalEngineTranscriptionProvider::localRequest(const TranscriptionRequest& request) const {
  return LocalTranscriptionRequest{.modelID = descriptor_.id,
                                   .modelURL = "/",
                                   .audioFrames = request.audioFrames,
                                   .languageRoute = request.languageRoute,
                                   .promptHint = request.promptHint,
                                   .providerOptions = request.providerOptions};
}

TranscriptionResult LocalEngineTranscriptionProvider::transcribe(const TranscriptionRequest& request,
                                                                 std::stop_token stop) {
  return engineStore_->transcribe(localRequest(request), std::move(stop)).applying(request.languageRoute);
}

ResultStream<TranscriptionPartialResult> LocalEngineTranscriptionProvider::stream(const TranscriptionRequest& request,
                                                                                  std::stop_token stop) {
  LocalTranscriptionRequest local = localRequest(request);
  local.audioFrames.clear();
  std::shared_ptr<RealtimeTranscriptionSession> session =
      engineStore_->startRealtimeSession(local, std::chrono::milliseconds(750), stop);
  ResultStream<TranscriptionPartialResult> partials = session->partialResults();
  feeders_->feed(std::move(session), request.audioFrames, std::move(stop));
  return partials;
}

}  // namespace orvid
