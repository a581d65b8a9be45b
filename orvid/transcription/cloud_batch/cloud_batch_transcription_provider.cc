#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

#include <condition_variable>
#include <mutex>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/uuid.h"
#include "orvid/transcription/cloud_batch/server_sent_event_fragment_reader.h"

namespace orvid {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};

}  // namespace

CloudBatchTranscriptionProvider::CloudBatchTranscriptionProvider(
    std::string id, URL baseURL, CloudTranscriptionProviderAPI api, std::string configurationID, std::string modelID,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidHTTPClient> httpClient,
    CloudTranscriptionResponseParser responseParser)
    : CloudBatchTranscriptionProvider(std::move(id), std::move(baseURL), api, std::move(configurationID),
                                      std::move(modelID), std::move(credentialStore), std::move(httpClient),
                                      responseParser, JobPause()) {}

CloudBatchTranscriptionProvider::CloudBatchTranscriptionProvider(
    std::string id, URL baseURL, CloudTranscriptionProviderAPI api, std::string configurationID, std::string modelID,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidHTTPClient> httpClient,
    CloudTranscriptionResponseParser responseParser, JobPause jobPause)
    : id_(std::move(id)),
      baseURL_(std::move(baseURL)),
      api_(api),
      configurationID_(std::move(configurationID)),
      modelID_(std::move(modelID)),
      credentialStore_(std::move(credentialStore)),
      openAIRequestBuilder_(credentialStore_),
      deepgramRequestBuilder_(credentialStore_),
      httpClient_(std::move(httpClient)),
      responseParser_(responseParser),
      jobPause_(std::move(jobPause)) {}

TranscriptionResult CloudBatchTranscriptionProvider::transcribe(const TranscriptionRequest& request,
                                                                std::stop_token stop) {
  if (request.audioFrames.empty()) throw OrvidError::emptyAudio();
  checkCancellation(stop);
  switch (api_) {
    case CloudTranscriptionProviderAPI::openAICompatible:
      return transcribeOpenAICompatible(request, stop);
    case CloudTranscriptionProviderAPI::deepgram:
    case CloudTranscriptionProviderAPI::elevenLabs:
    case CloudTranscriptionProviderAPI::cartesia:
    case CloudTranscriptionProviderAPI::mistral:
      return transcribeSingleRequest(request, stop);
    case CloudTranscriptionProviderAPI::soniox:
      return transcribeSoniox(request, stop).applying(request.languageRoute);
    case CloudTranscriptionProviderAPI::assemblyAI:
      return transcribeAssemblyAI(request, stop).applying(request.languageRoute);
    case CloudTranscriptionProviderAPI::glm:
      return transcribeGLM(request, stop).applying(request.languageRoute);
    case CloudTranscriptionProviderAPI::stepFun:
      return transcribeStepFunSSE(request, stop).applying(request.languageRoute);
    case CloudTranscriptionProviderAPI::aliyunCompatible:
      return transcribeAliyunCompatible(request, stop).applying(request.languageRoute);
    case CloudTranscriptionProviderAPI::doubao:
      break;
  }
  throw OrvidProviderError::unsupportedProvider("Doubao batch transcription is not wired yet.");
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
  assertSuccess(response, "ASR request", &httpRequest);
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

void CloudBatchTranscriptionProvider::assertSuccess(const OrvidHTTPResponse& response, std::string_view prefix,
                                                    const OrvidHTTPRequest* sent) {
  if (response.isSuccess()) return;
  std::string body = SecretRedactor::redact(internal::decodeUTF8OrEmpty(response.body));
  if (sent != nullptr) {
    for (const auto& header : sent->headers) {
      if (!httpHeaderNamesEqual(header.name, "Authorization") && !httpHeaderNamesEqual(header.name, "xi-api-key")) {
        continue;
      }
      // The whole value and its last word (the key after "Bearer " or "Token ").
      const std::string& value = header.value;
      for (std::string secret : {value, value.substr(value.rfind(' ') == std::string::npos ? 0 : value.rfind(' ') + 1)}) {
        if (secret.size() < 8) continue;
        for (auto at = body.find(secret); at != std::string::npos; at = body.find(secret, at)) {
          body.replace(at, secret.size(), "[REDACTED]");
        }
      }
    }
  }
  throw OrvidProviderError::unsupportedProvider(std::string(prefix) + " failed with HTTP " +
                                                std::to_string(response.statusCode) + ": " + body);
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

std::optional<std::string> CloudBatchTranscriptionProvider::promptOf(const TranscriptionRequest& request) {
  if (auto prompt = optionString("prompt", request.providerOptions)) return prompt;
  return request.promptHint;
}

OrvidHTTPRequest CloudBatchTranscriptionProvider::multipartRequest(
    URL url, std::vector<OrvidHTTPHeader> headers, const std::vector<std::pair<std::string, std::string>>& fields,
    const Bytes& wav) {
  const std::string boundary = "Brindle-" + UUID::random().uuidString();
  OrvidHTTPRequest request;
  request.method = "POST";
  request.url = std::move(url);
  request.timeout = kRequestTimeout;
  request.headers = std::move(headers);
  request.setHeader("Content-Type", "multipart/form-data; boundary=" + boundary);
  request.body = OpenAICompatibleBatchTranscriptionRequestBuilder::multipartBody(boundary, fields, "tesselhost.wav", wav);
  return request;
}

OrvidHTTPRequest CloudBatchTranscriptionProvider::jsonRequest(URL url, std::vector<OrvidHTTPHeader> headers,
                                                              const std::string& body) {
  OrvidHTTPRequest request;
  request.method = "POST";
  request.url = std::move(url);
  request.timeout = kRequestTimeout;
  request.headers = std::move(headers);
  request.body = Bytes(body.begin(), body.end());
  return request;
}

TranscriptionResult CloudBatchTranscriptionProvider::streamFragments(const OrvidHTTPRequest& request,
                                                                     std::string_view prefix,
                                                                     std::stop_token stop) const {
  ServerSentEventFragmentReader reader;
  OrvidHTTPResponse response =
      httpClient_->stream(request, [&reader](std::span<const std::uint8_t> piece) { reader.append(piece); }, stop);
  assertSuccess(response, prefix, &request);
  return reader.finish();
}

void CloudBatchTranscriptionProvider::pauseBeforePoll(std::stop_token stop) const {
  if (jobPause_) {
    jobPause_(kJobPollPause, stop);
  } else {
    std::mutex mutex;
    std::condition_variable_any woken;
    std::unique_lock lock(mutex);
    woken.wait_for(lock, stop, kJobPollPause, [] { return false; });
  }
  checkCancellation(stop);
}

}  // namespace orvid
