#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"
#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"
#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_request_builder.h"
#include "orvid/transcription/transcription_provider.h"

namespace orvid {

// The one TranscriptionProvider for every cloud batch service: it holds the
// connection parameters and takes the path of the service's protocol (`api`).
// Immutable after construction; any number of transcriptions may run at once.
//
// Paths by API:
// - openAICompatible: one multipart upload to baseURL + "/audio/transcriptions"
//   (OpenAICompatibleBatchTranscriptionRequestBuilder) with "model" = modelID,
//   "language" = the route's providerLanguage, "prompt" = the provider option
//   "prompt" (text, trimmed, when not blank) or else the request's promptHint, and
//   "temperature" = the provider option "temperature" when it is a number; the
//   answer is read by CloudTranscriptionResponseParser.
// - doubao: fails at once with OrvidProviderError::unsupportedProvider
//   ("Doubao batch transcription is not wired yet.").
// - every other API fails at once with OrvidProviderError::unsupportedProvider
//   naming the service ("Deepgram batch transcription is not available in this
//   build.").
class CloudBatchTranscriptionProvider final : public TranscriptionProvider {
 public:
  // `configurationID` names the credentials ("provider." + configurationID +
  // ".api-key"); `modelID` is sent to the service as it is.
  CloudBatchTranscriptionProvider(std::string id, URL baseURL, CloudTranscriptionProviderAPI api,
                                  std::string configurationID, std::string modelID,
                                  std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                  std::shared_ptr<OrvidHTTPClient> httpClient,
                                  CloudTranscriptionResponseParser responseParser = {});

  std::string id() const override { return id_; }

  // Transcribes the recording through the service's path and returns the result
  // stamped with request.languageRoute (TranscriptionResult::applying). Throws:
  // - OrvidError::emptyAudio for a request without frames, before anything else;
  // - CancellationError once `stop` is requested;
  // - OrvidProviderError::missingCredential when no non-empty key is stored, and
  //   the credential store's own errors;
  // - OrvidProviderError::unsupportedProvider("ASR request failed with HTTP " +
  //   status + ": " + the response body redacted by SecretRedactor) for a status
  //   outside 200 to 299, or for an API this build has no path for;
  // - the HTTP client's OrvidHTTPError unchanged (nothing is retried).
  // A 2xx body that is not JSON, or has no known text member, is the transcript.
  TranscriptionResult transcribe(const TranscriptionRequest& request, std::stop_token stop = {}) override;

  // Throws OrvidError::unsupportedStreaming without any other work.
  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest& request,
                                                 std::stop_token stop = {}) override;

  const URL& baseURL() const { return baseURL_; }
  CloudTranscriptionProviderAPI api() const { return api_; }
  const std::string& configurationID() const { return configurationID_; }
  const std::string& modelID() const { return modelID_; }
  const std::shared_ptr<const OrvidCredentialStore>& credentialStore() const { return credentialStore_; }
  const OpenAICompatibleBatchTranscriptionRequestBuilder& openAIRequestBuilder() const { return openAIRequestBuilder_; }
  const std::shared_ptr<OrvidHTTPClient>& httpClient() const { return httpClient_; }
  const CloudTranscriptionResponseParser& responseParser() const { return responseParser_; }

 private:
  friend struct CloudBatchTranscriptionProviderTestPeer;

  TranscriptionResult transcribeOpenAICompatible(const TranscriptionRequest& request, std::stop_token stop) const;

  // The credential `name` of this configuration: "provider." + configurationID +
  // ".api-key" for an empty name or "api-key", else "provider." + configurationID +
  // "." + name and then that reference + ".api-key". The first non-empty value
  // wins; none throws OrvidProviderError::missingCredential. Store errors propagate.
  std::string credential(const std::string& name) const;

  // Throws OrvidProviderError::unsupportedProvider(prefix + " failed with HTTP " +
  // status + ": " + redacted body) unless the status is 200 to 299. The body is
  // read as UTF-8 (empty when it is not) and passed through SecretRedactor.
  static void assertSuccess(const OrvidHTTPResponse& response, std::string_view prefix);

  // The text value of options[key], trimmed of white space and line ends; absent
  // when missing, not text, or blank.
  static std::optional<std::string> optionString(const std::string& key, const TranscriptionProviderOptions& options);

  std::string id_;
  URL baseURL_;
  CloudTranscriptionProviderAPI api_;
  std::string configurationID_;
  std::string modelID_;
  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
  OpenAICompatibleBatchTranscriptionRequestBuilder openAIRequestBuilder_;
  std::shared_ptr<OrvidHTTPClient> httpClient_;
  CloudTranscriptionResponseParser responseParser_;
};

}  // namespace orvid
