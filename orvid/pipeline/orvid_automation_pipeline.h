#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <vector>

#include "orvid/automation/cua_driver_client.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/automation_records.h"
#include "orvid/core/corelib/execution_state.h"
#include "orvid/core/corelib/transcription_prompt.h"
#include "orvid/core/orvid_transcription_coordinator.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/pipeline/orvid_automation_proposal.h"
#include "orvid/pipeline/prompt_post_processing.h"
#include "orvid/textprocessing/transcript_cleanup_engine.h"
#include "orvid/transcription/transcription_provider.h"

namespace orvid {

class UserDefaults;

// Voice automation in two steps that the host shows: prepareAutomation turns the
// recorded request into a proposal awaiting confirmation (transcribed, cleaned and
// optionally rewritten), confirmAutomation runs it through the computer-use driver.
// Every step is mirrored in the coordinator; a message that reaches its failed state
// is redacted of credentials first. At most one proposal is pending.
//
// Thread-safe: the pending proposal is guarded by a lock that is never held while
// the driver, the provider, the rewriter or the coordinator is called, so a call
// may enter while another transcribes or runs; the coordinator's request checks
// and the pending proposal's identifier keep a stale caller from confirming or
// completing another request.
class OrvidAutomationPipeline {
 public:
  // Where the pipeline reads the user's settings and the time.
  struct Environment {
    // Read for the Chinese script conversion of the instruction; the standard
    // user defaults when null. Must outlive the pipeline.
    const UserDefaults* settings = nullptr;
    // The monotonic clock that times the rewrite; steady_clock when empty.
    std::function<std::chrono::steady_clock::time_point()> now;
  };

  // `promptProcessor` may be null (no rewriting); the others must not be. Reads the
  // standard user defaults and the steady clock.
  OrvidAutomationPipeline(std::shared_ptr<OrvidTranscriptionCoordinator> coordinator,
                          std::shared_ptr<TranscriptionProvider> transcriptionProvider,
                          TranscriptCleanupEngine cleanupEngine, std::shared_ptr<PromptPostProcessing> promptProcessor,
                          std::shared_ptr<CUADriverClient> cuaClient);
  OrvidAutomationPipeline(std::shared_ptr<OrvidTranscriptionCoordinator> coordinator,
                          std::shared_ptr<TranscriptionProvider> transcriptionProvider,
                          TranscriptCleanupEngine cleanupEngine, std::shared_ptr<PromptPostProcessing> promptProcessor,
                          std::shared_ptr<CUADriverClient> cuaClient, Environment environment);
  OrvidAutomationPipeline(const OrvidAutomationPipeline&) = delete;
  OrvidAutomationPipeline& operator=(const OrvidAutomationPipeline&) = delete;

  // Makes a proposal of the recorded request and keeps it pending:
  // 1. no frames → OrvidError::emptyAudio; no enabled automation method or no
  //    configured automation model → missingAutomationModel; a driver that is
  //    neither ready nor running → cuaDriverNotReady (its readiness). These leave
  //    the coordinator alone.
  // 2. The coordinator records and finishes a new automation request (its errors,
  //    e.g. busy, are thrown unchanged).
  // 3. The provider transcribes the frames (unspecified route, no prompt hint, no
  //    options); the text is cleaned (blank → emptyAudio); the coordinator starts
  //    processing; when a prompt processor, `provider` and `providerConfiguration`
  //    are all there the text is rewritten (the automation model as the default
  //    model) and timed; the user's Chinese conversion applies; the coordinator
  //    awaits confirmation. An error here fails the coordinator with the redacted
  //    message and is thrown unchanged.
  // The proposal's method is computer use; its title comes from the script decoder
  // when the configuration's method is script, else from the title extractor.
  // CancellationError once `stop` is requested.
  OrvidAutomationProposal prepareAutomation(const std::vector<PCMFrame>& audioFrames,
                                            const TranscriptCleanupConfiguration& cleanupConfiguration,
                                            const TranscriptionPrompt& prompt,
                                            const std::optional<AIProviderDescriptor>& provider,
                                            const std::optional<AIProviderConfiguration>& providerConfiguration,
                                            const AIAutomationConfiguration& automationConfiguration,
                                            std::stop_token stop = {});

  // Runs the pending proposal `requestID` through the driver and completes the
  // request. Throws OrvidError::requestMismatch when no proposal or another one is
  // pending, and the coordinator's error when it cannot start (the proposal stays
  // pending). A driver error fails the coordinator with the redacted message, drops
  // the proposal and is thrown unchanged. Stopping `stop` cancels the driver's run.
  CUAExecutionResult confirmAutomation(const UUID& requestID, int timeoutSeconds, std::stop_token stop = {});

  // Drops the pending proposal, cancels the driver's run of `requestID` and returns
  // the coordinator to idle. `requestID` is not compared with the pending proposal.
  void cancelAutomation(const UUID& requestID);

  // The coordinator's state.
  OrvidExecutionState currentState() const;

  // The proposal awaiting confirmation, if any.
  std::optional<OrvidAutomationProposal> pendingProposal() const;

 private:
  std::shared_ptr<OrvidTranscriptionCoordinator> coordinator_;
  std::shared_ptr<TranscriptionProvider> transcriptionProvider_;
  TranscriptCleanupEngine cleanupEngine_;
  std::shared_ptr<PromptPostProcessing> promptProcessor_;
  std::shared_ptr<CUADriverClient> cuaClient_;
  const UserDefaults* settings_;
  std::function<std::chrono::steady_clock::time_point()> now_;

  mutable std::mutex mutex_;
  std::optional<OrvidAutomationProposal> pendingProposal_;
};

}  // namespace orvid
