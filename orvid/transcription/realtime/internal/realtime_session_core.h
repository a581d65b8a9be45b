#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/transcription_records.h"
#include "orvid/platform/bytes.h"
#include "orvid/platform/result_stream.h"
#include "orvid/transcription/realtime/orvid_websocket.h"

namespace orvid {

// Internal-only, not API: what every cloud real-time session shares. It owns the
// connection, the partial-result stream, the pending finish() callers, the
// cancelled flag and the thread that reads server events; a session adds its own
// text state and hands each received payload to a read-loop body of its own.
//
// Thread-safe: its state is guarded by one mutex, never held while the connection
// sends or receives. The reader thread is owned here and holds no reference to the
// session, so the session's last owner is never the reader; destroying the core
// cancels it (as cancel()) and joins the reader.
class RealtimeSessionCore {
 public:
  // What the read loop does after a body has handled one payload.
  enum class ReadStep { continueReading, stopReading };

  // Handles one received payload on the reader thread: it may yield(), complete()
  // or fail(). An exception it throws fails the session with that exception.
  using ReadLoopBody = std::function<ReadStep(const Bytes& payload)>;
  // Handles a receive error on the reader thread when the session is not
  // cancelled; the read loop ends afterwards.
  using ReceiveErrorHandler = std::function<void(std::exception_ptr error)>;

  explicit RealtimeSessionCore(std::shared_ptr<OrvidWebSocketConnection> connection);
  ~RealtimeSessionCore();

  RealtimeSessionCore(const RealtimeSessionCore&) = delete;
  RealtimeSessionCore& operator=(const RealtimeSessionCore&) = delete;

  OrvidWebSocketConnection& connection() const { return *connection_; }
  // The same stream on every call.
  ResultStream<TranscriptionPartialResult> partialResults() const { return stream_; }

  // Starts the reader thread, once: while the session is not cancelled it receives
  // a payload and hands it to `body`. A receive error goes to `onReceiveError`
  // (default: fail() with it) unless the session is cancelled. A second call is
  // ignored.
  void startReading(ReadLoopBody body, ReceiveErrorHandler onReceiveError = {});

  // Sends `event` as one text frame of compact JSON with sorted keys
  // (RealtimeJSON::encode). Throws what the connection throws.
  void sendClientEvent(const nlohmann::json& event, std::stop_token stop = {});

  // Buffers one partial result for partialResults(); ignored once it has finished.
  void yield(TranscriptionPartialResult partial);

  // Ends the session with `result` unless it has already ended or was cancelled:
  // keeps the result for later finish() callers, finishes the stream normally and
  // resumes every pending finish() caller with it.
  void complete(TranscriptionResult result);

  // Ends the session with `error` unless it has already ended or was cancelled:
  // finishes the stream with it and resumes every pending finish() caller with it.
  void fail(std::exception_ptr error);

  // Blocks until the session ends and returns its result, or throws its error
  // (CancellationError after cancel()). Returns or throws at once when the session
  // has already ended. Callers waiting together are resumed in the order they
  // arrived, all with the same outcome. `stop` ends only this caller's wait, with
  // CancellationError.
  TranscriptionResult awaitResult(std::stop_token stop = {});

  // The result the session ended with; absent before, after a failure and after
  // a cancellation.
  std::optional<TranscriptionResult> finalResult() const;

  bool isCancelled() const;

  // True once the session has completed, failed or been cancelled.
  bool hasEnded() const;

  // Blocks until at least `count` callers wait in awaitResult(); false at `deadline`.
  bool awaitPendingCallers(std::size_t count, std::chrono::steady_clock::time_point deadline) const;

  // Sets the cancelled flag, cancels the connection, finishes the stream normally
  // and makes every pending awaitResult() throw CancellationError. Any number of
  // calls, in any state.
  void cancel() noexcept;

  // cancel(), then waits for the reader thread to end. A session whose read-loop
  // body uses its own members calls this first in its destructor. Must not be
  // called from the read-loop body.
  void shutDown() noexcept;

 private:
  struct Outcome {
    std::optional<TranscriptionResult> result;
    std::exception_ptr error;
  };
  // Callers resumed together leave in arrival order: each waits for its turn.
  struct Release {
    std::size_t nextPosition = 0;
  };
  struct Waiter {
    std::optional<Outcome> outcome;
    std::shared_ptr<Release> release;
    std::size_t position = 0;
  };

  void readLoop(std::stop_token stop, const ReadLoopBody& body, const ReceiveErrorHandler& onReceiveError);
  // Stores `outcome` and resumes the waiters; false when the session had ended.
  bool endLocked(Outcome outcome);
  static TranscriptionResult deliver(const Outcome& outcome);

  const std::shared_ptr<OrvidWebSocketConnection> connection_;
  const ResultStream<TranscriptionPartialResult> stream_;

  mutable std::mutex mutex_;
  mutable std::condition_variable_any changed_;
  bool cancelled_ = false;
  bool readingStarted_ = false;
  std::optional<Outcome> ended_;
  std::vector<std::shared_ptr<Waiter>> waiters_;

  // Last, so that it is joined before anything it uses is destroyed.
  std::jthread reader_;
};

}  // namespace orvid
