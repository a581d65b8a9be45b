#include "orvid/transcription/cloud_batch/deepgram_batch_transcription_request_builder.h"

#include <chrono>
#include <utility>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/audio/audio_wav_encoder.h"

namespace orvid {

DeepgramBatchTranscriptionRequestBuilder::DeepgramBatchTranscriptionRequestBuilder(
    std::shared_ptr<const OrvidCredentialStore> credentialStore)
    : credentialStore_(std::move(credentialStore)) {}

OrvidHTTPRequest DeepgramBatchTranscriptionRequestBuilder::request(const URL& baseURL,
                                                                   const std::string& configurationID,
                                                                   const std::string& modelID,
                                                                   const std::vector<PCMFrame>& audioFrames,
                                                                   const std::optional<std::string>& language,
                                                                   const std::optional<std::string>& prompt) const {
  return build(baseURL, configurationID, modelID, AudioWAVEncoder::encodePCM16(audioFrames), language, prompt);
}

OrvidHTTPRequest DeepgramBatchTranscriptionRequestBuilder::validationRequest(const URL& baseURL,
                                                                             const std::string& configurationID,
                                                                             const std::string& modelID) const {
  return build(baseURL, configurationID, modelID, AudioWAVEncoder::silentWAV(16000, 80), std::nullopt, std::nullopt);
}

OrvidHTTPRequest DeepgramBatchTranscriptionRequestBuilder::build(const URL& baseURL,
                                                                 const std::string& configurationID,
                                                                 const std::string& modelID, Bytes wav,
                                                                 const std::optional<std::string>& language,
                                                                 const std::optional<std::string>& prompt) const {
  auto key = credentialStore_->readCredential("provider." + configurationID + ".api-key");
  if (!key || key->empty()) throw OrvidProviderError::missingCredential();

  URL listen = baseURL.appendingPathComponent("listen");
  if (listen.host().empty()) throw OrvidProviderError::missingBaseURL();
  std::vector<URLQueryItem> items = {{"model", modelID}, {"smart_format", "true"}};
  if (language && !language->empty() && *language != "auto") items.push_back({"language", *language});
  if (prompt && !prompt->empty()) items.push_back({"keywords", *prompt});

  OrvidHTTPRequest request;
  request.method = "POST";
  request.url = listen.settingQueryItems(items);
  request.timeout = std::chrono::milliseconds(60'000);
  request.setHeader("Authorization", "Token " + *key);
  request.setHeader("Content-Type", "audio/wav");
  request.body = std::move(wav);
  return request;
}

}  // namespace orvid
