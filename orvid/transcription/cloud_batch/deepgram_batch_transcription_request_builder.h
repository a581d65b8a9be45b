#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"

namespace orvid {

// Builds Deepgram's pre-recorded request: the WAV bytes as the raw body of a POST to
// baseURL + "/listen" with the settings in the query. Immutable; safe to use from
// several threads at once.
//
// Query items, in order: "model"; "smart_format" = "true"; "language" when it is
// given, not empty and not "auto"; "keywords" = the whole prompt as one value when
// it is given and not empty. Headers: "Authorization: Token <key>" with the key
// stored under "provider." + configurationID + ".api-key", and
// "Content-Type: audio/wav". Timeout 60 s.
class DeepgramBatchTranscriptionRequestBuilder {
 public:
  explicit DeepgramBatchTranscriptionRequestBuilder(std::shared_ptr<const OrvidCredentialStore> credentialStore);

  // The request for `audioFrames` written as one 16-bit WAV file. Throws the WAV
  // encoder's errors first, then OrvidProviderError::missingCredential when no
  // non-empty key is stored (and the store's own errors), and
  // OrvidProviderError::missingBaseURL when baseURL + "/listen" cannot carry a query.
  OrvidHTTPRequest request(const URL& baseURL, const std::string& configurationID, const std::string& modelID,
                           const std::vector<PCMFrame>& audioFrames, const std::optional<std::string>& language,
                           const std::optional<std::string>& prompt) const;

  // The same request carrying 80 ms of silence (a 16000 Hz mono 16-bit WAV file)
  // and only "model" and "smart_format". Throws like request().
  OrvidHTTPRequest validationRequest(const URL& baseURL, const std::string& configurationID,
                                     const std::string& modelID) const;

 private:
  OrvidHTTPRequest build(const URL& baseURL, const std::string& configurationID, const std::string& modelID,
                         Bytes wav, const std::optional<std::string>& language,
                         const std::optional<std::string>& prompt) const;

  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
};

}  // namespace orvid
