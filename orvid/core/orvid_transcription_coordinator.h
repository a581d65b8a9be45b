#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "orvid/core/corelib/execution_state.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/uuid.h"

namespace orvid {

// The single keeper of the voice workflow's condition for one host: the execution
// state the host draws and the request that currently owns the workflow. The state
// moves only along the allowed transitions (recording, transcribing, processing,
// awaiting confirmation, executing, back to idle; or failed at any time), and every
// step names its request so that a late step of an abandoned request cannot move a
// newer one.
//
// Thread-safe: every operation runs to completion under one lock, so readers never
// see a half-made transition. An operation that throws an OrvidError leaves the state
// and the active request exactly as they were. A step "matches" when a request is
// active and is the given one; the request is checked before the stage.
class OrvidTranscriptionCoordinator {
 public:
  // The state and the active request, read together.
  struct Snapshot {
    OrvidExecutionState state;
    std::optional<UUID> activeRequestID;
    bool operator==(const Snapshot&) const = default;
  };

  // Idle, with no active request.
  OrvidTranscriptionCoordinator() = default;
  OrvidTranscriptionCoordinator(const OrvidTranscriptionCoordinator&) = delete;
  OrvidTranscriptionCoordinator& operator=(const OrvidTranscriptionCoordinator&) = delete;

  // A copy of the current state.
  OrvidExecutionState currentState() const;
  // The request that owns the workflow, from beginRecording until complete, fail or cancel.
  std::optional<UUID> activeRequestID() const;
  // The state and the active request of one instant.
  Snapshot snapshot() const;

  // Starts a recording owned by `requestID`: the whole state becomes a fresh record in
  // stage recording. Allowed from idle or failed only; throws OrvidError::busy otherwise.
  void beginRecording(UUID requestID, VoiceCapturePurpose purpose);

  // recording → transcribing, keeping the purpose. Throws requestMismatch for another
  // request, invalidTransition from any other stage.
  void finishRecording(UUID requestID);

  // transcribing → processing, keeping the purpose and storing both texts. Throws
  // requestMismatch for another request, invalidTransition from any other stage.
  void startProcessing(UUID requestID, std::string recognizedText, std::string cleanedText);

  // Any stage → awaiting confirmation with `proposedText`, other texts kept. Throws
  // requestMismatch for another request.
  void awaitAutomationConfirmation(UUID requestID, std::string proposedText);

  // awaiting confirmation → executing. Throws requestMismatch for another request,
  // invalidTransition from any other stage.
  void startAutomation(UUID requestID);

  // Ends the request from any stage: idle, no active request. Throws requestMismatch
  // for another request.
  void complete(UUID requestID);

  // Ends the active request, whichever it is, in stage failed(requestID, message) with
  // `message` as the error message. The recognized, cleaned and proposed texts, the
  // execution output and the delivered text are kept; the progress line is cleared.
  // Never throws.
  void fail(std::optional<UUID> requestID, std::string message);

  // Back to idle with no active request, from any stage. Never throws.
  void cancel();

  // Sets the three texts that belong to the host (a transient progress line, the output
  // of the last execution, the text finally delivered), in any stage; nothing else
  // changes. The workflow itself never sets them: a new recording clears all three and
  // a failure clears the progress line. Never throws.
  void updateHostTexts(std::optional<std::string> progressMessage, std::optional<std::string> executionOutput,
                       std::optional<std::string> deliveredText);

 private:
  // Throws requestMismatch unless `requestID` is the active request. Caller holds mutex_.
  void requireActiveLocked(const UUID& requestID) const;

  mutable std::mutex mutex_;
  OrvidExecutionState state_ = OrvidExecutionState::idle();
  std::optional<UUID> activeRequestID_;
};

}  // namespace orvid
