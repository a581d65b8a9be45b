#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/platform/bytes.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"

namespace orvid {

// Builds the multipart upload of the OpenAI-compatible "audio/transcriptions"
// protocol. Immutable; safe to use from several threads at once.
//
// The request: POST to baseURL + "/audio/transcriptions", timeout 60 s,
// "Authorization: Bearer <key>" with the key stored under "provider." +
// configurationID + ".api-key", and "Content-Type: multipart/form-data;
// boundary=Brindle-<random upper-case UUID>". The body holds, every line ending in
// CR LF, one part per text field ("model", "language", "prompt", "temperature", in
// that order; fields that are absent or empty are left out):
//   --<boundary>
//   Content-Disposition: form-data; name="<field>"
//   <empty line>
//   <value>
// then the file part, always last:
//   --<boundary>
//   Content-Disposition: form-data; name="file"; filename="tesselhost.wav"
//   Content-Type: audio/wav
//   <empty line>
//   <WAV bytes>
// and the closing line "--<boundary>--". Values are written as given, unescaped.
class OpenAICompatibleBatchTranscriptionRequestBuilder {
 public:
  explicit OpenAICompatibleBatchTranscriptionRequestBuilder(std::shared_ptr<const OrvidCredentialStore> credentialStore);

  // The upload of `audioFrames` written as one 16-bit WAV file
  // (AudioWAVEncoder::encodePCM16), with the fields "model" = modelID, "language",
  // "prompt" and "temperature" (in the shortest decimal form that reads back as the
  // same double, with ".0" added to whole numbers: 0.2 as "0.2", 0 as "0.0").
  // Throws OrvidProviderError::missingCredential when no non-empty key is stored,
  // the store's own errors, and the encoder's errors (OpusOrvidError::emptyAudio
  // for no frames, std::invalid_argument for a format a WAV header cannot hold).
  OrvidHTTPRequest request(const URL& baseURL, const std::string& configurationID, const std::string& modelID,
                           const std::vector<PCMFrame>& audioFrames, const std::optional<std::string>& language,
                           const std::optional<std::string>& prompt, std::optional<double> temperature) const;

  // The same request carrying 80 ms of silence (2560 zero bytes as a 16000 Hz mono
  // 16-bit WAV file) and only the "model" field, for a host that wants to check a
  // configuration itself. Throws like request().
  OrvidHTTPRequest validationRequest(const URL& baseURL, const std::string& configurationID,
                                     const std::string& modelID) const;

  // The multipart body described above, from the text fields in order.
  static Bytes multipartBody(const std::string& boundary, const std::vector<std::pair<std::string, std::string>>& fields,
                             const std::string& fileName, const Bytes& wav);

  // `value` in the shortest decimal form that reads back as the same double, with
  // ".0" added when that form has neither a point nor an exponent.
  static std::string decimalText(double value);

  const std::shared_ptr<const OrvidCredentialStore>& credentialStore() const { return credentialStore_; }

 private:
  OrvidHTTPRequest upload(const URL& baseURL, const std::string& configurationID,
                          const std::vector<std::pair<std::string, std::string>>& fields, const Bytes& wav) const;

  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
};

}  // namespace orvid
