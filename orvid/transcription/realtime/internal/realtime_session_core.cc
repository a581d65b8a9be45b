#include "orvid/transcription/realtime/internal/realtime_session_core.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/platform/cancellation.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"

namespace orvid {

RealtimeSessionCore::RealtimeSessionCore(std::shared_ptr<OrvidWebSocketConnection> connection)
    : connection_(std::move(connection)) {}

RealtimeSessionCore::~RealtimeSessionCore() { shutDown(); }

void RealtimeSessionCore::startReading(ReadLoopBody body, ReceiveErrorHandler onReceiveError) {
  if (!onReceiveError) {
    onReceiveError = [this](std::exception_ptr error) { fail(std::move(error)); };
  }
  std::lock_guard lock(mutex_);
  if (readingStarted_ || cancelled_) return;
  readingStarted_ = true;
  reader_ = std::jthread([this, body = std::move(body), onReceiveError = std::move(onReceiveError)](
                             std::stop_token stop) { readLoop(stop, body, onReceiveError); });
}

void RealtimeSessionCore::readLoop(std::stop_token stop, const ReadLoopBody& body,
                                   const ReceiveErrorHandler& onReceiveError) {
  while (!isCancelled()) {
    Bytes payload;
    try {
      payload = connection_->receive(stop);
    } catch (...) {
      if (!isCancelled()) onReceiveError(std::current_exception());
      return;
    }
    try {
      if (body(payload) == ReadStep::stopReading) return;
    } catch (...) {
      fail(std::current_exception());
      return;
    }
  }
}

void RealtimeSessionCore::sendClientEvent(const nlohmann::json& event, std::stop_token stop) {
  connection_->send(std::string_view(RealtimeJSON::encode(event)), stop);
}

void RealtimeSessionCore::yield(TranscriptionPartialResult partial) { stream_.yield(std::move(partial)); }

void RealtimeSessionCore::complete(TranscriptionResult result) {
  {
    std::lock_guard lock(mutex_);
    if (!endLocked(Outcome{std::move(result), nullptr})) return;
  }
  stream_.finish();
  changed_.notify_all();
}

void RealtimeSessionCore::fail(std::exception_ptr error) {
  {
    std::lock_guard lock(mutex_);
    if (!endLocked(Outcome{std::nullopt, error})) return;
  }
  stream_.finish(std::move(error));
  changed_.notify_all();
}

void RealtimeSessionCore::cancel() noexcept {
  {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    if (!ended_) endLocked(Outcome{std::nullopt, std::make_exception_ptr(CancellationError())});
  }
  connection_->cancel();
  stream_.finish();
  changed_.notify_all();
}

void RealtimeSessionCore::shutDown() noexcept {
  cancel();
  std::jthread reader;
  {
    std::lock_guard lock(mutex_);
    reader = std::move(reader_);
  }
  // The reader ends once its receive() throws for the cancelled connection or the
  // stop request; the local thread joins it on leaving this scope.
  reader.request_stop();
}

bool RealtimeSessionCore::endLocked(Outcome outcome) {
  if (ended_) return false;
  ended_ = outcome;
  auto release = std::make_shared<Release>();
  std::size_t position = 0;
  for (const std::shared_ptr<Waiter>& waiter : waiters_) {
    waiter->outcome = outcome;
    waiter->release = release;
    waiter->position = position++;
  }
  waiters_.clear();
  return true;
}

TranscriptionResult RealtimeSessionCore::awaitResult(std::stop_token stop) {
  std::unique_lock lock(mutex_);
  if (ended_) {
    Outcome outcome = *ended_;
    lock.unlock();
    return deliver(outcome);
  }
  auto waiter = std::make_shared<Waiter>();
  waiters_.push_back(waiter);
  changed_.notify_all();
  if (!changed_.wait(lock, stop, [&] { return waiter->outcome.has_value(); })) {
    std::erase(waiters_, waiter);
    changed_.notify_all();
    throw CancellationError();
  }
  // Resumed: leave after the callers that arrived earlier.
  changed_.wait(lock, [&] { return waiter->release->nextPosition == waiter->position; });
  ++waiter->release->nextPosition;
  Outcome outcome = std::move(*waiter->outcome);
  lock.unlock();
  changed_.notify_all();
  return deliver(outcome);
}

TranscriptionResult RealtimeSessionCore::deliver(const Outcome& outcome) {
  if (outcome.error) std::rethrow_exception(outcome.error);
  return *outcome.result;
}

std::optional<TranscriptionResult> RealtimeSessionCore::finalResult() const {
  std::lock_guard lock(mutex_);
  return ended_ ? ended_->result : std::nullopt;
}

bool RealtimeSessionCore::isCancelled() const {
  std::lock_guard lock(mutex_);
  return cancelled_;
}

bool RealtimeSessionCore::hasEnded() const {
  std::lock_guard lock(mutex_);
  return ended_.has_value();
}

bool RealtimeSessionCore::awaitPendingCallers(std::size_t count,
                                              std::chrono::steady_clock::time_point deadline) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_until(lock, deadline, [&] { return waiters_.size() >= count; });
}

}  // namespace orvid
