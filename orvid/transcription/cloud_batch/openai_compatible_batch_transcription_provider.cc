#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_provider.h"

#include <utility>

#include "orvid/core/orvid_error.h"

namespace orvid {

OpenAICompatibleBatchTranscriptionProvider::OpenAICompatibleBatchTranscriptionProvider(
    std::string id, URL baseURL, std::string configurationID, std::string modelID,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidHTTPClient> httpClient,
    CloudTranscriptionResponseParser responseParser)
    : id_(id),
      provider_(std::move(id), std::move(baseURL), CloudTranscriptionProviderAPI::openAICompatible,
                std::move(configurationID), std::move(modelID), std::move(credentialStore), std::move(httpClient),
                responseParser) {}

TranscriptionResult OpenAICompatibleBatchTranscriptionProvider::transcribe(const TranscriptionRequest& request,
                                                                           std::stop_token stop) {
  return provider_.transcribe(request, stop);
}

ResultStream<TranscriptionPartialResult> OpenAICompatibleBatchTranscriptionProvider::stream(
    const TranscriptionRequest&, std::stop_token) {
  throw OrvidError::unsupportedStreaming();
}

}  // namespace orvid
