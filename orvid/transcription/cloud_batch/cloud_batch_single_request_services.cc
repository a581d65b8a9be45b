// The single-request services of CloudBatchTranscriptionProvider: Deepgram,
// ElevenLabs, Cartesia and Mistral take the whole recording in one POST and answer
// with the transcript.
#include <nlohmann/json.hpp>

#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"
#include "orvid/transcription/cloud_batch/eleven_labs_language_support.h"

namespace orvid {
namespace {

// True when options[key] is the Boolean case and true.
bool booleanOption(const TranscriptionProviderOptions& options, const std::string& key) {
  auto option = options.find(key);
  return option != options.end() && option->second.booleanValue().value_or(false);
}

std::optional<double> numberOption(const TranscriptionProviderOptions& options, const std::string& key) {
  auto option = options.find(key);
  return option == options.end() ? std::nullopt : option->second.numberValue();
}

}  // namespace

TranscriptionResult CloudBatchTranscriptionProvider::transcribeSingleRequest(const TranscriptionRequest& request,
                                                                             std::stop_token stop) const {
  OrvidHTTPRequest httpRequest;
  switch (api_) {
    case CloudTranscriptionProviderAPI::deepgram:
      httpRequest = deepgramRequestBuilder_.request(baseURL_, configurationID_, modelID_, request.audioFrames,
                                                    request.languageRoute.providerLanguage, promptOf(request));
      break;
    case CloudTranscriptionProviderAPI::elevenLabs:
      httpRequest = elevenLabsRequest(request);
      break;
    case CloudTranscriptionProviderAPI::cartesia:
      httpRequest = cartesiaRequest(request);
      break;
    default:
      httpRequest = mistralRequest(request);
      break;
  }
  OrvidHTTPResponse response = httpClient_->data(httpRequest, stop);
  assertSuccess(response, "ASR request", &httpRequest);
  TranscriptionResult result = api_ == CloudTranscriptionProviderAPI::deepgram
                                   ? responseParser_.parseDeepgram(response.body)
                                   : responseParser_.parse(response.body);
  return result.applying(request.languageRoute);
}

OrvidHTTPRequest CloudBatchTranscriptionProvider::elevenLabsRequest(const TranscriptionRequest& request) const {
  Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  std::vector<std::pair<std::string, std::string>> fields = {{"model_id", modelID_}};
  if (auto code = ElevenLabsLanguageSupport::normalized(request.languageRoute.providerLanguage)) {
    fields.emplace_back("language_code", *code);
  }
  if (booleanOption(request.providerOptions, "enable_speaker_diarization")) fields.emplace_back("diarize", "true");
  return multipartRequest(baseURL_.appendingPathComponent("speech-to-text"), {{"xi-api-key", credential("api-key")}},
                          fields, wav);
}

OrvidHTTPRequest CloudBatchTranscriptionProvider::cartesiaRequest(const TranscriptionRequest& request) const {
  Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  std::vector<std::pair<std::string, std::string>> fields = {{"model", modelID_}};
  if (const auto& language = request.languageRoute.providerLanguage) fields.emplace_back("language", *language);
  return multipartRequest(baseURL_.appendingPathComponent("stt"),
                          {{"Authorization", "Bearer " + credential("api-key")}, {"Cartesia-Version", "2026-03-01"}},
                          fields, wav);
}

OrvidHTTPRequest CloudBatchTranscriptionProvider::mistralRequest(const TranscriptionRequest& request) const {
  Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  std::vector<std::pair<std::string, std::string>> fields = {{"model", modelID_}};
  if (const auto& language = request.languageRoute.providerLanguage) fields.emplace_back("language", *language);
  if (auto temperature = numberOption(request.providerOptions, "temperature")) {
    fields.emplace_back("temperature", OpenAICompatibleBatchTranscriptionRequestBuilder::decimalText(*temperature));
  }
  if (booleanOption(request.providerOptions, "diarize")) fields.emplace_back("diarize", "true");
  if (auto bias = optionString("context_bias", request.providerOptions)) {
    nlohmann::json terms = nlohmann::json::array();
    std::string_view rest = *bias;
    while (!rest.empty()) {
      const std::size_t comma = rest.find(',');
      std::string_view piece = internal::trimUnicodeWhitespace(rest.substr(0, comma));
      if (!piece.empty()) terms.push_back(std::string(piece));
      rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    }
    fields.emplace_back("context_bias", terms.dump());
  }
  return multipartRequest(baseURL_.appendingPathComponent("v1/audio/transcriptions"),
                          {{"Authorization", "Bearer " + credential("api-key")}}, fields, wav);
}

}  // namespace orvid
