#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_request_builder.h"

#include <charconv>
#include <chrono>
#include <system_error>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/platform/uuid.h"

namespace orvid {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};
constexpr const char* kFileName = "tesselhost.wav";
constexpr std::string_view kLineEnd = "\r\n";

void append(Bytes& body, std::string_view text) { body.insert(body.end(), text.begin(), text.end()); }

void appendLine(Bytes& body, std::string_view text) {
  append(body, text);
  append(body, kLineEnd);
}

// The text fields that are present and not empty, in order.
std::vector<std::pair<std::string, std::string>> presentFields(
    const std::vector<std::pair<std::string, std::optional<std::string>>>& fields) {
  std::vector<std::pair<std::string, std::string>> present;
  for (const auto& [name, value] : fields) {
    if (value && !value->empty()) present.emplace_back(name, *value);
  }
  return present;
}

}  // namespace

OpenAICompatibleBatchTranscriptionRequestBuilder::OpenAICompatibleBatchTranscriptionRequestBuilder(
    std::shared_ptr<const OrvidCredentialStore> credentialStore)
    : credentialStore_(std::move(credentialStore)) {}

OrvidHTTPRequest OpenAICompatibleBatchTranscriptionRequestBuilder::request(
    const URL& baseURL, const std::string& configurationID, const std::string& modelID,
    const std::vector<PCMFrame>& audioFrames, const std::optional<std::string>& language,
    const std::optional<std::string>& prompt, std::optional<double> temperature) const {
  Bytes wav = AudioWAVEncoder::encodePCM16(audioFrames);
  std::optional<std::string> temperatureText;
  if (temperature) temperatureText = decimalText(*temperature);
  auto fields = presentFields({{"model", modelID}, {"language", language}, {"prompt", prompt},
                               {"temperature", temperatureText}});
  return upload(baseURL, configurationID, fields, wav);
}

OrvidHTTPRequest OpenAICompatibleBatchTranscriptionRequestBuilder::validationRequest(
    const URL& baseURL, const std::string& configurationID, const std::string& modelID) const {
  Bytes wav = AudioWAVEncoder::silentWAV(16000, 80);
  return upload(baseURL, configurationID, presentFields({{"model", modelID}}), wav);
}

OrvidHTTPRequest OpenAICompatibleBatchTranscriptionRequestBuilder::upload(
    const URL& baseURL, const std::string& configurationID,
    const std::vector<std::pair<std::string, std::string>>& fields, const Bytes& wav) const {
  auto key = credentialStore_->readCredential("provider." + configurationID + ".api-key");
  if (!key || key->empty()) throw OrvidProviderError::missingCredential();

  const std::string boundary = "Brindle-" + UUID::random().uuidString();
  OrvidHTTPRequest request;
  request.method = "POST";
  request.url = baseURL.appendingPathComponent("audio/transcriptions");
  request.timeout = kRequestTimeout;
  request.setHeader("Authorization", "Bearer " + *key);
  request.setHeader("Content-Type", "multipart/form-data; boundary=" + boundary);
  request.body = multipartBody(boundary, fields, kFileName, wav);
  return request;
}

Bytes OpenAICompatibleBatchTranscriptionRequestBuilder::multipartBody(
    const std::string& boundary, const std::vector<std::pair<std::string, std::string>>& fields,
    const std::string& fileName, const Bytes& wav) {
  Bytes body;
  std::size_t size = wav.size() + 256 + boundary.size() * (fields.size() + 2);
  for (const auto& [name, value] : fields) size += name.size() + value.size() + 64;
  body.reserve(size);
  for (const auto& [name, value] : fields) {
    appendLine(body, "--" + boundary);
    appendLine(body, "Content-Disposition: form-data; name=\"" + name + "\"");
    appendLine(body, "");
    appendLine(body, value);
  }
  appendLine(body, "--" + boundary);
  appendLine(body, "Content-Disposition: form-data; name=\"file\"; filename=\"" + fileName + "\"");
  appendLine(body, "Content-Type: audio/wav");
  appendLine(body, "");
  body.insert(body.end(), wav.begin(), wav.end());
  append(body, kLineEnd);
  appendLine(body, "--" + boundary + "--");
  return body;
}

std::string OpenAICompatibleBatchTranscriptionRequestBuilder::decimalText(double value) {
  char buffer[64];
  auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  if (error != std::errc()) return std::string();  // 64 bytes always hold the shortest form
  std::string text(buffer, end);
  // A whole number comes out as bare digits ("0", "-3"); "inf", "nan" and forms with
  // a point or an exponent are kept as they are.
  if (text.find_first_not_of("-0123456789") == std::string::npos) text += ".0";
  return text;
}

}  // namespace orvid
