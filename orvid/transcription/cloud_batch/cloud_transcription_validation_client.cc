#include "orvid/transcription/cloud_batch/cloud_transcription_validation_client.h"

#include <exception>
#include <utility>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/platform/internal/text.h"

namespace orvid {

CloudTranscriptionValidationClient::CloudTranscriptionValidationClient(
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidHTTPClient> httpClient,
    CloudBatchTranscriptionProvider::JobPause jobPause)
    : credentialStore_(std::move(credentialStore)), httpClient_(std::move(httpClient)), jobPause_(std::move(jobPause)) {}

AIProviderValidationState CloudTranscriptionValidationClient::validate(
    const TranscriptionProviderDescriptor& provider, const std::optional<std::string>& configurationID,
    const std::optional<std::string>& modelID, std::chrono::system_clock::time_point now, std::stop_token stop) const {
  const auto* cloud = provider.backend.cloudDescriptor();
  if (cloud == nullptr) return AIProviderValidationState::validated(now);
  if (!cloud->baseURL) return AIProviderValidationState::failed("Missing transcription provider base URL.");

  const std::string configuration = configurationID.value_or(provider.id);
  const bool modelGiven = modelID && !internal::trimUnicodeWhitespace(*modelID).empty();
  CloudBatchTranscriptionProvider speech(provider.id, *cloud->baseURL, cloud->api, configuration,
                                         modelGiven ? *modelID : cloud->defaultModelID, credentialStore_, httpClient_,
                                         CloudTranscriptionResponseParser(), jobPause_);
  std::string message;
  try {
    TranscriptionRequest request;
    request.audioFrames = {AudioWAVEncoder::silentPCMFrame(16000, 80)};
    speech.transcribe(request, stop);
    return AIProviderValidationState::validated(now);
  } catch (const OrvidProviderError& error) {
    message = error.validationFailureMessage();
  } catch (const std::exception& error) {
    message = error.what();
  }
  return AIProviderValidationState::failed(SecretRedactor::redact(message));
}

}  // namespace orvid
