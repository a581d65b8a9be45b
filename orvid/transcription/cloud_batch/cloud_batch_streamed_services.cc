// The streamed-answer and chat-style services of CloudBatchTranscriptionProvider:
// GLM and StepFun answer as an event stream, read while it arrives; the
// Aliyun-compatible service answers a chat-completions request.
#include <nlohmann/json.hpp>

#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/platform/base64.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

namespace orvid {
namespace {

using nlohmann::json;

constexpr std::size_t kWAVHeaderSize = 44;

}  // namespace

TranscriptionResult CloudBatchTranscriptionProvider::transcribeGLM(const TranscriptionRequest& request,
                                                                   std::stop_token stop) const {
  const std::string key = credential("api-key");
  const Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  std::vector<std::pair<std::string, std::string>> fields = {{"model", modelID_}, {"stream", "true"}};
  if (auto prompt = promptOf(request)) fields.emplace_back("prompt", *prompt);
  return streamFragments(multipartRequest(baseURL_, {{"Authorization", "Bearer " + key}}, fields, wav), "GLM request",
                         stop);
}

TranscriptionResult CloudBatchTranscriptionProvider::transcribeStepFunSSE(const TranscriptionRequest& request,
                                                                          std::stop_token stop) const {
  const std::string key = credential("api-key");
  const Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  const std::span<const std::uint8_t> samples =
      wav.size() > kWAVHeaderSize ? std::span<const std::uint8_t>(wav).subspan(kWAVHeaderSize)
                                  : std::span<const std::uint8_t>(wav);

  json transcription = {{"model", modelID_},
                        {"language", request.languageRoute.providerLanguage.value_or("zh")},
                        {"enable_itn", true}};
  auto prompt = promptOf(request);
  if (internal::lowercaseASCII(modelID_) == "stepaudio-2-asr-pro" && prompt && !prompt->empty()) {
    transcription["prompt"] = *prompt;
  }
  json body = {{"audio",
                {{"data", Base64::encode(samples)},
                 {"input",
                  {{"transcription", transcription},
                   {"format", {{"type", "pcm"}, {"codec", "pcm_s16le"}, {"rate", 16000}, {"bits", 16}, {"channel", 1}}}}}}}};
  OrvidHTTPRequest httpRequest =
      jsonRequest(baseURL_,
                  {{"Authorization", "Bearer " + key}, {"Content-Type", "application/json"}, {"Accept", "text/event-stream"}},
                  body.dump());
  return streamFragments(httpRequest, "StepFun request", stop);
}

TranscriptionResult CloudBatchTranscriptionProvider::transcribeAliyunCompatible(const TranscriptionRequest& request,
                                                                                std::stop_token stop) const {
  const std::string key = credential("api-key");
  const Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  json part = {{"type", "input_audio"},
               {"input_audio", {{"data", "data:audio/wav;base64," + Base64::encode(wav)}, {"format", "wav"}}}};
  json body = {{"model", modelID_},
               {"messages", json::array({{{"role", "user"}, {"content", json::array({part})}}})},
               {"stream", false}};
  OrvidHTTPRequest httpRequest =
      jsonRequest(baseURL_,
                  {{"Authorization", "Bearer " + key}, {"Content-Type", "application/json"}, {"Accept", "application/json"}},
                  body.dump());
  OrvidHTTPResponse response = httpClient_->data(httpRequest, stop);
  assertSuccess(response, "Aliyun ASR", &httpRequest);
  return responseParser_.parse(response.body);
}

}  // namespace orvid
