#include "orvid/pipeline/orvid_automation_pipeline.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "orvid/ai/secret_redactor.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/user_defaults.h"

namespace orvid {
namespace {

// The coordinator's message for any error: its description, credentials removed.
std::string failureMessage(std::exception_ptr error) {
  try {
    std::rethrow_exception(std::move(error));
  } catch (const std::exception& described) {
    return SecretRedactor::redact(described.what());
  } catch (...) {
    return "The operation couldn\u2019t be completed.";
  }
}

}  // namespace

OrvidAutomationPipeline::OrvidAutomationPipeline(std::shared_ptr<OrvidTranscriptionCoordinator> coordinator,
                                                 std::shared_ptr<TranscriptionProvider> transcriptionProvider,
                                                 TranscriptCleanupEngine cleanupEngine,
                                                 std::shared_ptr<PromptPostProcessing> promptProcessor,
                                                 std::shared_ptr<CUADriverClient> cuaClient)
    : OrvidAutomationPipeline(std::move(coordinator), std::move(transcriptionProvider), std::move(cleanupEngine),
                              std::move(promptProcessor), std::move(cuaClient), Environment{}) {}

OrvidAutomationPipeline::OrvidAutomationPipeline(std::shared_ptr<OrvidTranscriptionCoordinator> coordinator,
                                                 std::shared_ptr<TranscriptionProvider> transcriptionProvider,
                                                 TranscriptCleanupEngine cleanupEngine,
                                                 std::shared_ptr<PromptPostProcessing> promptProcessor,
                                                 std::shared_ptr<CUADriverClient> cuaClient, Environment environment)
    : coordinator_(std::move(coordinator)),
      transcriptionProvider_(std::move(transcriptionProvider)),
      cleanupEngine_(std::move(cleanupEngine)),
      promptProcessor_(std::move(promptProcessor)),
      cuaClient_(std::move(cuaClient)),
      settings_(environment.settings != nullptr ? environment.settings : &UserDefaults::standard()),
      now_(std::move(environment.now)) {
  if (!now_) now_ = [] { return std::chrono::steady_clock::now(); };
}

OrvidAutomationProposal OrvidAutomationPipeline::prepareAutomation(
    const std::vector<PCMFrame>& audioFrames, const TranscriptCleanupConfiguration& cleanupConfiguration,
    const TranscriptionPrompt& prompt, const std::optional<AIProviderDescriptor>& provider,
    const std::optional<AIProviderConfiguration>& providerConfiguration,
    const AIAutomationConfiguration& automationConfiguration, std::stop_token stop) {
  if (audioFrames.empty()) throw OrvidError::emptyAudio();
  if (!automationConfiguration.isAutomationEnabled() || !automationConfiguration.hasConfiguredAutomationModel()) {
    throw OrvidError::missingAutomationModel();
  }
  CUADriverStatus driverStatus = cuaClient_->status(stop);
  if (driverStatus.readiness != CUADriverReadiness::ready &&
      driverStatus.readiness != CUADriverReadiness::daemonRunning) {
    throw OrvidError::cuaDriverNotReady(driverStatus.readiness);
  }
  checkCancellation(stop);

  UUID requestID = UUID::random();
  coordinator_->beginRecording(requestID, VoiceCapturePurpose::automation);
  coordinator_->finishRecording(requestID);

  try {
    TranscriptionRequest request{audioFrames, ResolvedASRLanguageRoute::unspecified, std::nullopt, {}};
    TranscriptionResult transcript = transcriptionProvider_->transcribe(request, stop);

    std::optional<std::string> language = transcript.language ? transcript.language : transcript.effectiveLanguage;
    std::string cleaned = cleanupEngine_.clean(transcript.text, cleanupConfiguration, language);
    if (internal::trimUnicodeWhitespace(cleaned).empty()) throw OrvidError::emptyAudio();
    coordinator_->startProcessing(requestID, transcript.text, cleaned);

    const std::optional<AIModelReference>& automationModel = automationConfiguration.automationModel;
    std::string instruction = cleaned;
    std::optional<long long> promptDuration;
    if (promptProcessor_ && provider && providerConfiguration) {
      std::optional<std::string> defaultModelID;
      if (automationModel) defaultModelID = automationModel->modelID;
      auto start = now_();
      std::optional<PromptPostProcessResult> rewritten =
          promptProcessor_->process(cleaned, prompt, *provider, *providerConfiguration, defaultModelID, stop);
      promptDuration = std::chrono::duration_cast<std::chrono::milliseconds>(now_() - start).count();
      if (rewritten) instruction = rewritten->text;
    }

    OrvidSettings settings = OrvidSettingsPersistence::load(*settings_);
    if (settings.chineseConversionMode != "none") {
      instruction = TranscriptCleanupEngine::convertChinese(instruction, settings.chineseConversionMode);
    }
    coordinator_->awaitAutomationConfirmation(requestID, instruction);

    OrvidAutomationProposal proposal;
    proposal.requestID = requestID;
    proposal.method = AIAutomationMethod::computerUse;
    proposal.recognizedText = transcript.text;
    proposal.cleanedText = cleaned;
    proposal.proposedInstruction = instruction;
    if (automationConfiguration.method == AIAutomationMethod::script) {
      if (auto script = AutomationScriptDecoder::structuredProposal(instruction)) proposal.taskTitle = script->title;
    } else {
      proposal.taskTitle = AutomationTitleExtractor::title(instruction);
    }
    if (automationModel) {
      proposal.providerID = automationModel->providerID;
      proposal.modelID = automationModel->modelID;
    }
    proposal.promptDurationMilliseconds = promptDuration;
    proposal.transcriptionConfidence = transcript.confidence;
    proposal.minimumTranscriptionConfidence =
        std::clamp(automationConfiguration.minimumTranscriptionConfidence, 0.0, 1.0);
    proposal.requiresConfirmation = automationConfiguration.requiresConfirmation;

    std::lock_guard lock(mutex_);
    pendingProposal_ = proposal;
    return proposal;
  } catch (...) {
    coordinator_->fail(requestID, failureMessage(std::current_exception()));
    throw;
  }
}

CUAExecutionResult OrvidAutomationPipeline::confirmAutomation(const UUID& requestID, int timeoutSeconds,
                                                              std::stop_token stop) {
  std::string instruction;
  {
    std::lock_guard lock(mutex_);
    if (!pendingProposal_ || pendingProposal_->requestID != requestID) throw OrvidError::requestMismatch();
    instruction = pendingProposal_->proposedInstruction;
  }
  coordinator_->startAutomation(requestID);

  auto dropProposal = [&] {
    std::lock_guard lock(mutex_);
    if (pendingProposal_ && pendingProposal_->requestID == requestID) pendingProposal_.reset();
  };
  CUAExecutionResult result;
  try {
    result = cuaClient_->run(CUAExecutionRequest{requestID, std::move(instruction), timeoutSeconds}, stop);
    coordinator_->complete(requestID);
  } catch (...) {
    coordinator_->fail(requestID, failureMessage(std::current_exception()));
    dropProposal();
    throw;
  }
  dropProposal();
  return result;
}

void OrvidAutomationPipeline::cancelAutomation(const UUID& requestID) {
  {
    std::lock_guard lock(mutex_);
    pendingProposal_.reset();
  }
  cuaClient_->cancel(requestID);
  coordinator_->cancel();
}

OrvidExecutionState OrvidAutomationPipeline::currentState() const { return coordinator_->currentState(); }

std::optional<OrvidAutomationProposal> OrvidAutomationPipeline::pendingProposal() const {
  std::lock_guard lock(mutex_);
  return pendingProposal_;
}

}  // namespace orvid
