#include "orvid/transcription/local/local_transcription_engine_store.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <limits>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "orvid/ai/secret_redactor.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/transcription/local/adaptive_local_realtime_transcription_session.h"
#include "orvid/transcription/local/local_realtime_preview_policy.h"
#include "orvid/transcription/local/local_transcription_engine_error.h"
#include "orvid/transcription/store_managed_realtime_transcription_session.h"

namespace orvid {
namespace {

std::string redactedMessage(std::exception_ptr error) {
  try {
    std::rethrow_exception(std::move(error));
  } catch (const std::exception& caught) {
    return SecretRedactor::redact(caught.what());
  } catch (...) {
    return "Unknown error";
  }
}

// `seconds` after `now`, or the end of time when that cannot be represented.
LocalEngineClock::TimePoint deadlineAfter(LocalEngineClock::TimePoint now, std::uint64_t seconds) {
  using Seconds = std::chrono::duration<std::uint64_t>;
  const auto room = std::chrono::duration_cast<Seconds>(LocalEngineClock::TimePoint::max() - now);
  if (seconds >= room.count()) return LocalEngineClock::TimePoint::max();
  return now + std::chrono::duration_cast<LocalEngineClock::Duration>(Seconds(seconds));
}

}  // namespace

class LocalTranscriptionEngineStore::State : public std::enable_shared_from_this<State> {
 public:
  State(const std::vector<LocalTranscriptionModelDescriptor>& descriptors, ModelLocator modelLocator,
        std::shared_ptr<LocalTranscriptionEngineFactory> engineFactory,
        LocalTranscriptionEngineUnloadPolicy unloadPolicy, std::shared_ptr<LocalEngineClock> clock)
      : modelLocator_(std::move(modelLocator)),
        engineFactory_(std::move(engineFactory)),
        clock_(std::move(clock)),
        unloadPolicy_(unloadPolicy) {
    for (const LocalTranscriptionModelDescriptor& descriptor : descriptors) {
      descriptorsByID_.try_emplace(descriptor.id, descriptor);
    }
  }

  ~State() { shutdown(); }

  // Stops every idle unload and lets no new one start.
  void shutdown() {
    std::list<IdleUnloadTask> tasks;
    {
      std::lock_guard lock(mutex_);
      shuttingDown_ = true;
      for (auto& [modelID, task] : scheduledUnloadTasks_) tasks.push_back(std::move(task));
      scheduledUnloadTasks_.clear();
      tasks.splice(tasks.end(), retiredTasks_);
    }
    for (IdleUnloadTask& task : tasks) task.thread.request_stop();
    // The threads join as `tasks` goes, outside the lock.
  }

  void updateUnloadPolicy(LocalTranscriptionEngineUnloadPolicy policy) {
    std::lock_guard lock(mutex_);
    unloadPolicy_ = policy;
  }

  LocalTranscriptionEngineUnloadPolicy unloadPolicy() const {
    std::lock_guard lock(mutex_);
    return unloadPolicy_;
  }

  bool isLoaded(const std::string& modelID) const {
    std::lock_guard lock(mutex_);
    return engines_.contains(modelID);
  }

  LocalTranscriptionEngineState currentState() const {
    std::lock_guard lock(mutex_);
    return state_;
  }

  void preload(const std::string& modelID, std::stop_token stop) {
    const LocalTranscriptionModelDescriptor& descriptor = descriptorFor(modelID);
    {
      std::lock_guard lock(mutex_);
      if (engines_.contains(modelID)) {
        cancelIdleUnloadLocked(modelID);
        return;
      }
    }
    std::optional<std::filesystem::path> url = modelURL(descriptor);
    if (!url) throw LocalTranscriptionEngineError::modelNotInstalled(modelID);
    publish(LocalTranscriptionEnginePhase::loading(modelID));

    std::shared_ptr<LocalTranscriptionEngine> engine;
    try {
      engine = engineFactory_->loadEngine(descriptor, *url, stop);
    } catch (...) {
      const std::string message = redactedMessage(std::current_exception());
      publish(LocalTranscriptionEnginePhase::failed(modelID, message), message);
      throw;
    }
    std::lock_guard lock(mutex_);
    cancelIdleUnloadLocked(modelID);
    engines_[modelID] = std::move(engine);
    publishLocked(LocalTranscriptionEnginePhase::loaded(modelID));
  }

  TranscriptionResult transcribe(const LocalTranscriptionRequest& request, std::stop_token stop) {
    if (request.audioFrames.empty()) throw OrvidError::emptyAudio();
    LocalTranscriptionRequest engineRequest = request;
    std::shared_ptr<LocalTranscriptionEngine> engine = acquire(engineRequest, stop);
    TranscriptionResult result;
    try {
      result = engine->transcribe(engineRequest, stop);
    } catch (...) {
      endUse(request.modelID);
      throw;
    }
    endUse(request.modelID);
    return result;
  }

  std::shared_ptr<RealtimeTranscriptionSession> startRealtimeSession(const LocalTranscriptionRequest& request,
                                                                     std::chrono::duration<double> previewInterval,
                                                                     std::stop_token stop) {
    LocalTranscriptionRequest baseRequest = request;
    std::shared_ptr<LocalTranscriptionEngine> engine = acquire(baseRequest, stop);
    baseRequest.audioFrames.clear();
    const std::string modelID = request.modelID;

    std::shared_ptr<RealtimeTranscriptionSession> inner;
    try {
      if (auto native = std::dynamic_pointer_cast<NativeRealtimeLocalTranscriptionEngine>(engine)) {
        inner = native->startRealtimeSession(baseRequest, stop);
      } else {
        const LocalRealtimePreviewPolicy policy =
            LocalRealtimePreviewPolicy::forEngineType(descriptorFor(modelID).engineType, previewInterval);
        auto adaptive =
            std::make_shared<AdaptiveLocalRealtimeTranscriptionSession>(engine, std::move(baseRequest), policy, clock_);
        adaptive->start();
        inner = std::move(adaptive);
      }
      auto lease = std::make_shared<SlotLease>(weak_from_this(), modelID);
      return std::make_shared<StoreManagedRealtimeTranscriptionSession>(inner,
                                                                        [lease]() noexcept { lease->release(); });
    } catch (...) {
      if (inner) inner->cancel();
      releaseTranscriptionSlot(modelID);
      throw;
    }
  }

  void unload(const std::optional<std::string>& modelID) noexcept {
    std::vector<std::shared_ptr<LocalTranscriptionEngine>> unloading;
    {
      std::lock_guard lock(mutex_);
      if (modelID) {
        cancelIdleUnloadLocked(*modelID);
        if (auto found = engines_.find(*modelID); found != engines_.end()) {
          unloading.push_back(std::move(found->second));
          engines_.erase(found);
        }
      } else {
        for (auto& [scheduledModelID, task] : scheduledUnloadTasks_) {
          task.thread.request_stop();
          retiredTasks_.push_back(std::move(task));
        }
        scheduledUnloadTasks_.clear();
        for (auto& [loadedModelID, engine] : engines_) unloading.push_back(std::move(engine));
        engines_.clear();
      }
    }
    for (const auto& engine : unloading) engine->unload();
    publish(LocalTranscriptionEnginePhase::unloaded());
  }

 private:
  // A session's hold on its model's slot: given back when the session ends, or at
  // the latest when the session is dropped without ending.
  class SlotLease {
   public:
    SlotLease(std::weak_ptr<State> store, std::string modelID)
        : store_(std::move(store)), modelID_(std::move(modelID)) {}
    ~SlotLease() { release(); }
    SlotLease(const SlotLease&) = delete;
    SlotLease& operator=(const SlotLease&) = delete;

    void release() noexcept {
      if (released_.exchange(true)) return;
      if (std::shared_ptr<State> store = store_.lock()) store->endUse(modelID_);
    }

   private:
    const std::weak_ptr<State> store_;
    const std::string modelID_;
    std::atomic<bool> released_ = false;
  };

  struct IdleUnloadTask {
    std::uint64_t id = 0;
    std::jthread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  const LocalTranscriptionModelDescriptor& descriptorFor(const std::string& modelID) const {
    auto found = descriptorsByID_.find(modelID);
    if (found == descriptorsByID_.end()) throw LocalTranscriptionEngineError::unknownModel(modelID);
    return found->second;
  }

  // The installed files; "/" for the platform recogniser, which needs none.
  std::optional<std::filesystem::path> modelURL(const LocalTranscriptionModelDescriptor& descriptor) const {
    if (descriptor.artifactFormat == LocalTranscriptionArtifactFormat::systemSpeech) return std::filesystem::path("/");
    std::optional<std::filesystem::path> url = modelLocator_ ? modelLocator_(descriptor.id) : std::nullopt;
    std::error_code error;
    if (!url || !std::filesystem::exists(*url, error)) return std::nullopt;
    return url;
  }

  // Steps shared by batch and real-time use: checks the model and language, takes
  // the slot and loads the engine. Sets the request's model URL and language.
  std::shared_ptr<LocalTranscriptionEngine> acquire(LocalTranscriptionRequest& request, std::stop_token stop) {
    const std::string& modelID = request.modelID;
    const LocalTranscriptionModelDescriptor& descriptor = descriptorFor(modelID);
    std::optional<std::filesystem::path> url = modelURL(descriptor);
    if (!url) throw LocalTranscriptionEngineError::modelNotInstalled(modelID);
    const std::string language = resolvedLanguage(request.languageRoute.providerLanguage, descriptor);

    waitForTranscriptionSlot(modelID, stop);
    try {
      preload(modelID, stop);
    } catch (...) {
      const std::string message = redactedMessage(std::current_exception());
      {
        std::lock_guard lock(mutex_);
        activeTranscriptions_.erase(modelID);
        cancelIdleUnloadLocked(modelID);
        engines_.erase(modelID);
        publishLocked(LocalTranscriptionEnginePhase::failed(modelID, message), message);
      }
      slotFreed_.notify_all();
      throw;
    }

    std::shared_ptr<LocalTranscriptionEngine> engine;
    {
      std::lock_guard lock(mutex_);
      if (auto found = engines_.find(modelID); found != engines_.end()) engine = found->second;
    }
    if (!engine) {
      releaseTranscriptionSlot(modelID);
      throw LocalTranscriptionEngineError::unknownModel(modelID);
    }
    request.modelURL = *url;
    request.languageRoute.providerLanguage = language;
    return engine;
  }

  void waitForTranscriptionSlot(const std::string& modelID, std::stop_token stop) {
    std::unique_lock lock(mutex_);
    while (activeTranscriptions_.contains(modelID)) {
      checkCancellation(stop);
      slotFreed_.wait(lock, stop, [&] { return !activeTranscriptions_.contains(modelID); });
    }
    activeTranscriptions_.insert(modelID);
  }

  void releaseTranscriptionSlot(const std::string& modelID) {
    {
      std::lock_guard lock(mutex_);
      activeTranscriptions_.erase(modelID);
    }
    slotFreed_.notify_all();
  }

  // Frees the slot and applies the unload policy.
  void endUse(const std::string& modelID) noexcept {
    releaseTranscriptionSlot(modelID);
    bool unloadNow = false;
    {
      std::lock_guard lock(mutex_);
      switch (unloadPolicy_.kind) {
        case LocalTranscriptionEngineUnloadPolicy::Kind::afterIdleSeconds:
          scheduleIdleUnloadLocked(modelID, unloadPolicy_.idleSeconds);
          break;
        case LocalTranscriptionEngineUnloadPolicy::Kind::keepLoaded:
          break;
        case LocalTranscriptionEngineUnloadPolicy::Kind::immediately:
          unloadNow = true;
          break;
      }
    }
    if (unloadNow) unload(modelID);
  }

  void scheduleIdleUnloadLocked(const std::string& modelID, std::uint64_t seconds) noexcept {
    cancelIdleUnloadLocked(modelID);
    // Threads that have ended join at once.
    for (auto task = retiredTasks_.begin(); task != retiredTasks_.end();) {
      task = task->done->load() ? retiredTasks_.erase(task) : std::next(task);
    }
    if (shuttingDown_) return;

    const std::uint64_t taskID = ++lastTaskID_;
    const LocalEngineClock::TimePoint deadline = deadlineAfter(clock_->now(), seconds);
    auto done = std::make_shared<std::atomic<bool>>(false);
    try {
      // The store joins the thread before it goes, so `this` outlives it.
      std::jthread thread([this, modelID, taskID, deadline, done](std::stop_token stop) {
        if (clock_->sleepUntil(deadline, stop)) unloadIfIdle(modelID, taskID);
        done->store(true);
      });
      scheduledUnloadTasks_.emplace(modelID, IdleUnloadTask{taskID, std::move(thread), std::move(done)});
    } catch (const std::system_error&) {
      // Without a thread the model simply stays loaded.
    }
  }

  void cancelIdleUnloadLocked(const std::string& modelID) {
    auto found = scheduledUnloadTasks_.find(modelID);
    if (found == scheduledUnloadTasks_.end()) return;
    found->second.thread.request_stop();
    // Joined later: it may be waiting for this lock.
    retiredTasks_.push_back(std::move(found->second));
    scheduledUnloadTasks_.erase(found);
  }

  void unloadIfIdle(const std::string& modelID, std::uint64_t taskID) {
    std::shared_ptr<LocalTranscriptionEngine> engine;
    {
      std::lock_guard lock(mutex_);
      auto found = scheduledUnloadTasks_.find(modelID);
      if (found == scheduledUnloadTasks_.end() || found->second.id != taskID) return;
      // This very thread: it ends right after and joins later.
      retiredTasks_.push_back(std::move(found->second));
      scheduledUnloadTasks_.erase(found);
      if (activeTranscriptions_.contains(modelID)) return;
      auto loaded = engines_.find(modelID);
      if (loaded == engines_.end()) return;
      engine = std::move(loaded->second);
      engines_.erase(loaded);
    }
    engine->unload();
    publish(LocalTranscriptionEnginePhase::unloaded());
  }

  void publish(LocalTranscriptionEnginePhase phase, std::optional<std::string> message = std::nullopt) {
    std::lock_guard lock(mutex_);
    publishLocked(std::move(phase), std::move(message));
  }

  void publishLocked(LocalTranscriptionEnginePhase phase, std::optional<std::string> message = std::nullopt) {
    state_.phase = std::move(phase);
    state_.loadedModelIDs.clear();
    for (const auto& [modelID, engine] : engines_) state_.loadedModelIDs.push_back(modelID);
    state_.lastErrorMessage = std::move(message);
  }

  std::map<std::string, LocalTranscriptionModelDescriptor> descriptorsByID_;
  const ModelLocator modelLocator_;
  const std::shared_ptr<LocalTranscriptionEngineFactory> engineFactory_;
  const std::shared_ptr<LocalEngineClock> clock_;

  mutable std::mutex mutex_;
  std::condition_variable_any slotFreed_;
  LocalTranscriptionEngineUnloadPolicy unloadPolicy_;
  // Sorted by identifier, which keeps the published list sorted.
  std::map<std::string, std::shared_ptr<LocalTranscriptionEngine>> engines_;
  LocalTranscriptionEngineState state_ = LocalTranscriptionEngineState::unloaded();
  std::set<std::string> activeTranscriptions_;
  std::map<std::string, IdleUnloadTask> scheduledUnloadTasks_;
  // Cancelled or finished idle unloads not yet joined.
  std::list<IdleUnloadTask> retiredTasks_;
  std::uint64_t lastTaskID_ = 0;
  bool shuttingDown_ = false;
};

LocalTranscriptionEngineStore::LocalTranscriptionEngineStore(
    const std::vector<LocalTranscriptionModelDescriptor>& descriptors, ModelLocator modelLocator,
    std::shared_ptr<LocalTranscriptionEngineFactory> engineFactory, LocalTranscriptionEngineUnloadPolicy unloadPolicy,
    std::shared_ptr<LocalEngineClock> clock)
    : state_(std::make_shared<State>(descriptors, std::move(modelLocator), std::move(engineFactory), unloadPolicy,
                                     std::move(clock))) {}

LocalTranscriptionEngineStore::~LocalTranscriptionEngineStore() { state_->shutdown(); }

void LocalTranscriptionEngineStore::updateUnloadPolicy(LocalTranscriptionEngineUnloadPolicy policy) {
  state_->updateUnloadPolicy(policy);
}

LocalTranscriptionEngineUnloadPolicy LocalTranscriptionEngineStore::unloadPolicy() const {
  return state_->unloadPolicy();
}

bool LocalTranscriptionEngineStore::isLoaded(const std::string& modelID) const { return state_->isLoaded(modelID); }

LocalTranscriptionEngineState LocalTranscriptionEngineStore::currentState() const { return state_->currentState(); }

void LocalTranscriptionEngineStore::preload(const std::string& modelID, std::stop_token stop) {
  state_->preload(modelID, std::move(stop));
}

TranscriptionResult LocalTranscriptionEngineStore::transcribe(const LocalTranscriptionRequest& request,
                                                              std::stop_token stop) {
  return state_->transcribe(request, std::move(stop));
}

std::shared_ptr<RealtimeTranscriptionSession> LocalTranscriptionEngineStore::startRealtimeSession(
    const LocalTranscriptionRequest& request, std::chrono::duration<double> previewInterval, std::stop_token stop) {
  return state_->startRealtimeSession(request, previewInterval, std::move(stop));
}

void LocalTranscriptionEngineStore::unload(const std::optional<std::string>& modelID) { state_->unload(modelID); }

std::string LocalTranscriptionEngineStore::resolvedLanguage(const std::optional<std::string>& requested,
                                                            const LocalTranscriptionModelDescriptor& descriptor) {
  const std::string language = requested && !requested->empty() ? *requested : "auto";
  const std::vector<std::string>& supported = descriptor.languageCodes;
  if (std::find(supported.begin(), supported.end(), language) != supported.end()) return language;
  if (language == "auto") {
    auto listed =
        std::find_if(supported.begin(), supported.end(), [](const std::string& code) { return code != "auto"; });
    if (listed != supported.end()) return *listed;
  }
  if ((language == "zh-Hans" || language == "zh-Hant") &&
      std::find(supported.begin(), supported.end(), "zh") != supported.end()) {
    return "zh";
  }
  throw LocalTranscriptionEngineError::unsupportedLanguage(descriptor.id, language);
}

}  // namespace orvid
