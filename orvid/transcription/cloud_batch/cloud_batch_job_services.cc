// The job-based services of CloudBatchTranscriptionProvider: Soniox and AssemblyAI
// take an upload, a job that refers to it, and polls until the job has finished.
#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"

namespace orvid {
namespace {

using nlohmann::json;

bool booleanOption(const TranscriptionProviderOptions& options, const std::string& key) {
  auto option = options.find(key);
  return option != options.end() && option->second.booleanValue().value_or(false);
}

// The body as JSON; anything but an object or an array is invalidResponse, whose
// text never quotes the body.
json jsonDocument(const Bytes& body) {
  json value = json::parse(body.begin(), body.end(), nullptr, false);
  if (value.is_discarded() || !(value.is_object() || value.is_array())) throw OrvidProviderError::invalidResponse();
  return value;
}

// The string member `key` of a JSON object answer; invalidResponse otherwise.
std::string requiredString(const Bytes& body, const char* key) {
  json value = jsonDocument(body);
  if (value.is_object()) {
    auto member = value.find(key);
    if (member != value.end() && member->is_string()) return member->get<std::string>();
  }
  throw OrvidProviderError::invalidResponse();
}

// The "status" of a poll answer when it is an object with a string status.
std::optional<std::string> statusOf(const json& answer) {
  if (!answer.is_object()) return std::nullopt;
  auto status = answer.find("status");
  if (status == answer.end() || !status->is_string()) return std::nullopt;
  return status->get<std::string>();
}

// The pieces of `text` between any of `separators`, trimmed, blanks dropped.
std::vector<std::string> terms(std::string_view text, std::string_view separators) {
  std::vector<std::string> pieces;
  while (true) {
    const std::size_t end = text.find_first_of(separators);
    std::string_view piece = internal::trimUnicodeWhitespace(text.substr(0, end));
    if (!piece.empty()) pieces.emplace_back(piece);
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

OrvidHTTPRequest getRequest(URL url, std::vector<OrvidHTTPHeader> headers) {
  OrvidHTTPRequest request;
  request.method = "GET";
  request.url = std::move(url);
  request.timeout = std::chrono::milliseconds(60'000);
  request.headers = std::move(headers);
  return request;
}

}  // namespace

TranscriptionResult CloudBatchTranscriptionProvider::transcribeSoniox(const TranscriptionRequest& request,
                                                                      std::stop_token stop) const {
  const std::string key = credential("api-key");
  const Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  const std::vector<OrvidHTTPHeader> authorization = {{"Authorization", "Bearer " + key}};

  const OrvidHTTPRequest uploadRequest = multipartRequest(baseURL_.appendingPathComponent("files"), authorization, {}, wav);
  OrvidHTTPResponse upload = httpClient_->data(uploadRequest, stop);
  assertSuccess(upload, "Soniox file upload", &uploadRequest);
  const std::string fileID = requiredString(upload.body, "id");

  json body = {{"file_id", fileID},
               {"model", modelID_ == "stt-rt-v4" || modelID_ == "stt-async-v4" ? "stt-async-v5" : modelID_}};
  if (!request.languageRoute.providerLanguageHints.empty()) {
    body["language_hints"] = request.languageRoute.providerLanguageHints;
  }
  json context = json::object();
  if (auto contextTerms = optionString("context_terms", request.providerOptions)) {
    if (auto pieces = terms(*contextTerms, ",\n"); !pieces.empty()) context["terms"] = pieces;
  }
  if (auto description = optionString("context_description", request.providerOptions)) context["text"] = *description;
  if (!context.empty()) body["context"] = context;
  for (const char* flag : {"language_hints_strict", "enable_speaker_diarization", "enable_language_identification"}) {
    if (booleanOption(request.providerOptions, flag)) body[flag] = true;
  }
  std::vector<OrvidHTTPHeader> jsonHeaders = authorization;
  jsonHeaders.push_back({"Content-Type", "application/json"});
  const OrvidHTTPRequest createRequest =
      jsonRequest(baseURL_.appendingPathComponent("transcriptions"), jsonHeaders, body.dump());
  OrvidHTTPResponse created = httpClient_->data(createRequest, stop);
  assertSuccess(created, "Soniox transcription create", &createRequest);
  const std::string jobID = requiredString(created.body, "id");

  const URL jobURL = baseURL_.appendingPathComponent("transcriptions/" + jobID);
  for (int poll = 0; poll < kJobPollLimit; ++poll) {
    pauseBeforePoll(stop);
    const OrvidHTTPRequest pollRequest = getRequest(jobURL, authorization);
    OrvidHTTPResponse answer = httpClient_->data(pollRequest, stop);
    assertSuccess(answer, "Soniox transcription poll", &pollRequest);
    auto status = statusOf(jsonDocument(answer.body));
    if (status == "error") {
      throw OrvidProviderError::unsupportedProvider("Soniox transcription poll failed: " +
                                                    SecretRedactor::redact(internal::decodeUTF8OrEmpty(answer.body)));
    }
    if (status != "completed") continue;
    const OrvidHTTPRequest fetchRequest = getRequest(jobURL.appendingPathComponent("transcript"), authorization);
    OrvidHTTPResponse transcript = httpClient_->data(fetchRequest, stop);
    assertSuccess(transcript, "Soniox transcript fetch", &fetchRequest);
    return responseParser_.parse(transcript.body);
  }
  throw OrvidProviderError::unsupportedProvider("Soniox transcription timed out.");
}

TranscriptionResult CloudBatchTranscriptionProvider::transcribeAssemblyAI(const TranscriptionRequest& request,
                                                                          std::stop_token stop) const {
  const std::string key = credential("api-key");
  const Bytes wav = AudioWAVEncoder::encodePCM16(request.audioFrames);
  const std::vector<OrvidHTTPHeader> authorization = {{"Authorization", key}};

  OrvidHTTPRequest uploadRequest;
  uploadRequest.method = "POST";
  uploadRequest.url = baseURL_.appendingPathComponent("v2/upload");
  uploadRequest.timeout = std::chrono::milliseconds(60'000);
  uploadRequest.headers = {{"Authorization", key}, {"Content-Type", "application/octet-stream"}};
  uploadRequest.body = wav;
  OrvidHTTPResponse upload = httpClient_->data(uploadRequest, stop);
  assertSuccess(upload, "AssemblyAI upload", &uploadRequest);
  const std::string uploadURL = requiredString(upload.body, "upload_url");

  const auto& route = request.languageRoute;
  json body = {{"audio_url", uploadURL}, {"speech_models", json::array({modelID_})}};
  if (!route.expectedLanguages.empty()) {
    body["language_detection"] = true;
    body["language_detection_options"] = {{"expected_languages", route.expectedLanguages}};
  } else if (route.strategy != ASRLanguageRoutingStrategy::automatic) {
    if (route.providerLanguage) body["language_code"] = *route.providerLanguage;
  } else {
    body["language_detection"] = true;
  }
  if (booleanOption(request.providerOptions, "speaker_labels")) body["speaker_labels"] = true;
  if (auto prompt = promptOf(request)) body["keyterms_prompt"] = terms(*prompt, ",");
  const OrvidHTTPRequest createRequest =
      jsonRequest(baseURL_.appendingPathComponent("v2/transcript"),
                  {{"Authorization", key}, {"Content-Type", "application/json"}}, body.dump());
  OrvidHTTPResponse created = httpClient_->data(createRequest, stop);
  assertSuccess(created, "AssemblyAI transcript create", &createRequest);
  const std::string transcriptID = requiredString(created.body, "id");

  const URL pollURL = baseURL_.appendingPathComponent("v2/transcript/" + transcriptID);
  for (int poll = 0; poll < kJobPollLimit; ++poll) {
    pauseBeforePoll(stop);
    const OrvidHTTPRequest pollRequest = getRequest(pollURL, authorization);
    OrvidHTTPResponse answer = httpClient_->data(pollRequest, stop);
    assertSuccess(answer, "AssemblyAI transcript poll", &pollRequest);
    json document = jsonDocument(answer.body);
    auto status = statusOf(document);
    if (status == "completed") return responseParser_.parse(answer.body);
    if (status == "error") {
      auto error = document.find("error");
      throw OrvidProviderError::unsupportedProvider(
          "AssemblyAI transcription failed: " +
          SecretRedactor::redact(error != document.end() && error->is_string() ? error->get<std::string>()
                                                                                : std::string("unknown")));
    }
  }
  throw OrvidProviderError::unsupportedProvider("AssemblyAI transcription timed out.");
}

}  // namespace orvid
