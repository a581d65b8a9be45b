#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

namespace orvid {

// A CloudBatchTranscriptionProvider fixed to the OpenAI-compatible
// "audio/transcriptions" protocol, for hosts that offer only such services.
class OpenAICompatibleBatchTranscriptionProvider final : public TranscriptionProvider {
 public:
  // Builds `provider` with the same values and the openAICompatible API.
  OpenAICompatibleBatchTranscriptionProvider(std::string id, URL baseURL, std::string configurationID,
                                             std::string modelID,
                                             std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                             std::shared_ptr<OrvidHTTPClient> httpClient,
                                             CloudTranscriptionResponseParser responseParser = {});

  std::string id() const override { return id_; }

  // provider().transcribe(request, stop).
  TranscriptionResult transcribe(const TranscriptionRequest& request, std::stop_token stop = {}) override;

  // Throws OrvidError::unsupportedStreaming without any other work.
  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest& request,
                                                 std::stop_token stop = {}) override;

  const CloudBatchTranscriptionProvider& provider() const { return provider_; }

 private:
  std::string id_;
  CloudBatchTranscriptionProvider provider_;
};

}  // namespace orvid
