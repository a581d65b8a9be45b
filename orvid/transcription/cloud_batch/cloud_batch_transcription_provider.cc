#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

#include <utility>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

// How the user knows the service behind an API that this build has no path for.
std::string serviceName(CloudTranscriptionProviderAPI api) {
  switch (api) {
    case CloudTranscriptionProviderAPI::openAICompatible:
      return "OpenAI-compatible";
    case CloudTranscriptionProviderAPI::deepgram:
      return "Deepgram";
    case CloudTranscriptionProviderAPI::elevenLabs:
      return "ElevenLabs";
    case CloudTranscriptionProviderAPI::cartesia:
      return "Cartesia";
    case CloudTranscriptionProviderAPI::mistral:
      return "Mistral";
    case CloudTranscriptionProviderAPI::soniox:
      return "Soniox";
    case CloudTranscriptionProviderAPI::assemblyAI:
      return "AssemblyAI";
    case CloudTranscriptionProviderAPI::doubao:
      return "Doubao";
    case CloudTranscriptionProviderAPI::glm:
      return "GLM";
    case CloudTranscriptionProviderAPI::stepFun:
      return "StepFun";
    case CloudTranscriptionProviderAPI::aliyunCompatible:
      return "Aliyun-compatible";
  }
  return rawValue(api);
}

OrvidProviderError notInThisBuild(CloudTranscriptionProviderAPI api) {
  return OrvidProviderError::unsupportedProvider(serviceName(api) +
                                                 " batch transcription is not available in this build.");
}

}  // namespace

CloudBatchTranscriptionProvider::CloudBatchTranscriptionProvider(
    std::string id, URL baseURL, CloudTranscriptionProviderAPI api, std::string configurationID, std::string modelID,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidHTTPClient> httpClient,
    CloudTranscriptionResponseParser responseParser)
    : id_(std::move(id)),
      baseURL_(std::move(baseURL)),
      api_(api),
      configurationID_(std::move(configurationID)),
      modelID_(std::move(modelID)),
      credentialStore_(std::move(credentialStore)),
      openAIRequestBuilder_(credentialStore_),
      httpClient_(std::move(httpClient)),
      responseParser_(responseParser) {}

TranscriptionResult CloudBatchTranscriptionProvider::transcribe(const TranscriptionRequest& request,
                                                                std::stop_token stop) {
  if (request.audioFrames.empty()) throw OrvidError::emptyAudio();
  checkCancellation(stop);
  switch (api_) {
    case CloudTranscriptionProviderAPI::openAICompatible:
      return transcribeOpenAICompatible(request, stop);
    case CloudTranscriptionProviderAPI::doubao:
      throw OrvidProviderError::unsupportedProvider("Doubao batch transcription is not wired yet.");
    case CloudTranscriptionProviderAPI::deepgram:
    case CloudTranscriptionProviderAPI::elevenLabs:
    case CloudTranscriptionProviderAPI::cartesia:
    case CloudTranscriptionProviderAPI::mistral:
    case CloudTranscriptionProviderAPI::soniox:
    case CloudTranscriptionProviderAPI::assemblyAI:
    case CloudTranscriptionProviderAPI::glm:
    case CloudTranscriptionProviderAPI::stepFun:
    case CloudTranscriptionProviderAPI::aliyunCompatible:
      break;
  }
  throw notInThisBuild(api_);
}

ResultStream<TranscriptionPartialResult> CloudBatchTranscriptionProvider::stream(const TranscriptionRequest&,
                                                                                 std::stop_token) {
  throw OrvidError::unsupportedStreaming();
}

TranscriptionResult CloudBatchTranscriptionProvider::transcribeOpenAICompatible(const TranscriptionRequest& request,
                                                                                std::stop_token stop) const {
  std::optional<std::string> prompt = optionString("prompt", request.providerOptions);
  if (!prompt) prompt = request.promptHint;
  std::optional<double> temperature;
  if (auto option = request.providerOptions.find("temperature"); option != request.providerOptions.end()) {
    temperature = option->second.numberValue();
  }
  OrvidHTTPRequest httpRequest =
      openAIRequestBuilder_.request(baseURL_, configurationID_, modelID_, request.audioFrames,
                                    request.languageRoute.providerLanguage, prompt, temperature);
  OrvidHTTPResponse response = httpClient_->data(httpRequest, stop);
  assertSuccess(response, "ASR request");
  return responseParser_.parse(response.body).applying(request.languageRoute);
}

std::string CloudBatchTranscriptionProvider::credential(const std::string& name) const {
  const bool isAPIKey = name.empty() || name == "api-key";
  const std::string reference = "provider." + configurationID_ + (isAPIKey ? ".api-key" : "." + name);
  if (auto value = credentialStore_->readCredential(reference); value && !value->empty()) return *value;
  if (!isAPIKey) {
    if (auto value = credentialStore_->readCredential(reference + ".api-key"); value && !value->empty()) return *value;
  }
  throw OrvidProviderError::missingCredential();
}

void CloudBatchTranscriptionProvider::assertSuccess(const OrvidHTTPResponse& response, std::string_view prefix) {
  if (response.isSuccess()) return;
  throw OrvidProviderError::unsupportedProvider(std::string(prefix) + " failed with HTTP " +
                                                std::to_string(response.statusCode) + ": " +
                                                SecretRedactor::redact(internal::decodeUTF8OrEmpty(response.body)));
}

std::optional<std::string> CloudBatchTranscriptionProvider::optionString(const std::string& key,
                                                                         const TranscriptionProviderOptions& options) {
  auto option = options.find(key);
  if (option == options.end()) return std::nullopt;
  auto text = option->second.textValue();
  if (!text) return std::nullopt;
  std::string value(internal::trimUnicodeWhitespace(*text));
  if (value.empty()) return std::nullopt;
  return value;
}

}  // namespace orvid
