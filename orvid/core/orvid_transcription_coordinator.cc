#include "orvid/core/orvid_transcription_coordinator.h"

#include <utility>

namespace orvid {

using Kind = VoiceCaptureStage::Kind;

OrvidExecutionState OrvidTranscriptionCoordinator::currentState() const {
  std::lock_guard lock(mutex_);
  return state_;
}

std::optional<UUID> OrvidTranscriptionCoordinator::activeRequestID() const {
  std::lock_guard lock(mutex_);
  return activeRequestID_;
}

OrvidTranscriptionCoordinator::Snapshot OrvidTranscriptionCoordinator::snapshot() const {
  std::lock_guard lock(mutex_);
  return {state_, activeRequestID_};
}

void OrvidTranscriptionCoordinator::requireActiveLocked(const UUID& requestID) const {
  if (!activeRequestID_ || *activeRequestID_ != requestID) throw OrvidError::requestMismatch();
}

void OrvidTranscriptionCoordinator::beginRecording(UUID requestID, VoiceCapturePurpose purpose) {
  std::lock_guard lock(mutex_);
  if (state_.stage.kind != Kind::idle && state_.stage.kind != Kind::failed) throw OrvidError::busy();
  OrvidExecutionState fresh;
  fresh.stage = VoiceCaptureStage::recording(requestID, purpose);
  state_ = std::move(fresh);
  activeRequestID_ = requestID;
}

void OrvidTranscriptionCoordinator::finishRecording(UUID requestID) {
  std::lock_guard lock(mutex_);
  requireActiveLocked(requestID);
  if (state_.stage.kind != Kind::recording || !state_.stage.purpose) throw OrvidError::invalidTransition();
  state_.stage = VoiceCaptureStage::transcribing(requestID, *state_.stage.purpose);
}

void OrvidTranscriptionCoordinator::startProcessing(UUID requestID, std::string recognizedText,
                                                    std::string cleanedText) {
  std::lock_guard lock(mutex_);
  requireActiveLocked(requestID);
  if (state_.stage.kind != Kind::transcribing || !state_.stage.purpose) throw OrvidError::invalidTransition();
  state_.stage = VoiceCaptureStage::processing(requestID, *state_.stage.purpose);
  state_.recognizedText = std::move(recognizedText);
  state_.cleanedText = std::move(cleanedText);
}

void OrvidTranscriptionCoordinator::awaitAutomationConfirmation(UUID requestID, std::string proposedText) {
  std::lock_guard lock(mutex_);
  requireActiveLocked(requestID);
  state_.stage = VoiceCaptureStage::awaitingConfirmation(requestID);
  state_.proposedText = std::move(proposedText);
}

void OrvidTranscriptionCoordinator::startAutomation(UUID requestID) {
  std::lock_guard lock(mutex_);
  requireActiveLocked(requestID);
  if (state_.stage.kind != Kind::awaitingConfirmation) throw OrvidError::invalidTransition();
  state_.stage = VoiceCaptureStage::executing(requestID);
}

void OrvidTranscriptionCoordinator::complete(UUID requestID) {
  std::lock_guard lock(mutex_);
  requireActiveLocked(requestID);
  activeRequestID_.reset();
  state_ = OrvidExecutionState::idle();
}

void OrvidTranscriptionCoordinator::fail(std::optional<UUID> requestID, std::string message) {
  std::lock_guard lock(mutex_);
  activeRequestID_.reset();
  state_.stage = VoiceCaptureStage::failed(requestID, message);
  state_.progressMessage.reset();
  state_.errorMessage = std::move(message);
}

void OrvidTranscriptionCoordinator::cancel() {
  std::lock_guard lock(mutex_);
  activeRequestID_.reset();
  state_ = OrvidExecutionState::idle();
}

void OrvidTranscriptionCoordinator::updateHostTexts(std::optional<std::string> progressMessage,
                                                    std::optional<std::string> executionOutput,
                                                    std::optional<std::string> deliveredText) {
  std::lock_guard lock(mutex_);
  state_.progressMessage = std::move(progressMessage);
  state_.executionOutput = std::move(executionOutput);
  state_.deliveredText = std::move(deliveredText);
}

}  // namespace orvid
