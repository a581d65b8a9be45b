#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

namespace orvid {

// Proves a speech-to-text configuration end to end by transcribing 80 ms of silence
// through the same CloudBatchTranscriptionProvider that real transcriptions use.
// Immutable; validations may overlap.
class CloudTranscriptionValidationClient {
 public:
  CloudTranscriptionValidationClient(std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                     std::shared_ptr<OrvidHTTPClient> httpClient,
                                     CloudBatchTranscriptionProvider::JobPause jobPause = {});

  // Never throws. An on-device provider is validated at once; a cloud one without a
  // base URL fails with "Missing transcription provider base URL.". Otherwise the
  // silence goes to the service under `configurationID` (default: the provider's
  // id) with `modelID` (when not blank; default: the descriptor's default model),
  // and any answer that is not an error validates, an empty transcript included.
  // A failure's message is the provider error's validation message or the error's
  // own text, passed through SecretRedactor; a stop request fails with the
  // cancellation's text. A validation is stamped with `now`.
  AIProviderValidationState validate(const TranscriptionProviderDescriptor& provider,
                                     const std::optional<std::string>& configurationID,
                                     const std::optional<std::string>& modelID,
                                     std::chrono::system_clock::time_point now, std::stop_token stop = {}) const;

 private:
  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
  std::shared_ptr<OrvidHTTPClient> httpClient_;
  CloudBatchTranscriptionProvider::JobPause jobPause_;
};

}  // namespace orvid
