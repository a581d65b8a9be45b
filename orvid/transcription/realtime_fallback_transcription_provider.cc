#include "orvid/transcription/realtime_fallback_transcription_provider.h"

#include <atomic>
#include <list>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"

namespace orvid {

// The threads feeding streamed recordings. Finished ones are joined when the
// next one starts; the rest are stopped and joined on destruction.
class RealtimeFallbackTranscriptionProvider::Feeders {
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
    // The jthreads join as `running` goes.
  }

  // Starts a thread that appends `frames` to `session` and finishes it, or
  // cancels the session once something fails or `stop` is requested.
  void feed(std::shared_ptr<RealtimeTranscriptionSession> session, std::vector<PCMFrame> frames,
            std::stop_token stop) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::jthread thread([session = std::move(session), frames = std::move(frames), stop = std::move(stop),
                         done](std::stop_token own) {
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
    {
      std::lock_guard lock(mutex_);
      for (auto it = feeders_.begin(); it != feeders_.end();) {
        auto current = it++;
        if (current->done->load()) finished.splice(finished.end(), feeders_, current);
      }
      feeders_.push_back(Feeder{std::move(thread), std::move(done)});
    }
    // Joined here, outside the lock.
  }

 private:
  struct Feeder {
    std::jthread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  std::mutex mutex_;
  std::list<Feeder> feeders_;
};

namespace {

RealtimeTranscriptionStartRequest startRequest(const TranscriptionRequest& request) {
  return RealtimeTranscriptionStartRequest{.languageRoute = request.languageRoute, .promptHint = request.promptHint};
}

}  // namespace

RealtimeFallbackTranscriptionProvider::RealtimeFallbackTranscriptionProvider(
    std::string id, std::shared_ptr<RealtimeTranscriptionProvider> realtimeProvider,
    std::shared_ptr<TranscriptionProvider> batchProvider, bool fallsBackToBatch)
    : id_(std::move(id)),
      realtimeProvider_(std::move(realtimeProvider)),
      batchProvider_(std::move(batchProvider)),
      fallsBackToBatch_(fallsBackToBatch),
      feeders_(std::make_shared<Feeders>()) {}

TranscriptionResult RealtimeFallbackTranscriptionProvider::transcribe(const TranscriptionRequest& request,
                                                                      std::stop_token stop) {
  if (request.audioFrames.empty()) throw OrvidError::emptyAudio();
  std::shared_ptr<RealtimeTranscriptionSession> session;
  try {
    session = realtimeProvider_->startSession(startRequest(request), stop);
    for (const PCMFrame& frame : request.audioFrames) session->appendPCM16(frame, stop);
    return session->finish(stop).applying(request.languageRoute);
  } catch (...) {
    if (session) session->cancel();
    if (!fallsBackToBatch_ || stop.stop_requested()) throw;
  }
  return batchProvider_->transcribe(request, stop).applying(request.languageRoute);
}

ResultStream<TranscriptionPartialResult> RealtimeFallbackTranscriptionProvider::stream(
    const TranscriptionRequest& request, std::stop_token stop) {
  if (request.audioFrames.empty()) throw OrvidError::emptyAudio();
  std::shared_ptr<RealtimeTranscriptionSession> session = realtimeProvider_->startSession(startRequest(request), stop);
  ResultStream<TranscriptionPartialResult> partials = session->partialResults();
  feeders_->feed(std::move(session), request.audioFrames, std::move(stop));
  return partials;
}

}  // namespace orvid
