#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"
#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"
#include "orvid/transcription/cloud_batch/deepgram_batch_transcription_request_builder.h"
#include "orvid/transcription/cloud_batch/openai_compatible_batch_transcription_request_builder.h"
#include "orvid/transcription/transcription_provider.h"

namespace orvid {

// The one TranscriptionProvider for every cloud batch service: it holds the
// connection parameters and takes the path of the service's protocol (`api`).
// Immutable after construction; any number of transcriptions may run at once.
// Every request has a 60 s timeout; multipart bodies use the boundary
// "Brindle-<random upper-case UUID>" and end with the recording as the part "file"
// ("tesselhost.wav", audio/wav). The prompt is the provider option "prompt" (text,
// trimmed, when not blank) or else the request's promptHint; the language is the
// route's providerLanguage.
//
// Paths by API (URLs are baseURL + the path given):
// - openAICompatible: multipart to "/audio/transcriptions" with "model",
//   "language", "prompt" and the number option "temperature" (Bearer key).
// - deepgram: the WAV as the body of a POST to "/listen"
//   (DeepgramBatchTranscriptionRequestBuilder, prompt as "keywords"); the answer
//   is read by parseDeepgram.
// - elevenLabs: multipart to "/speech-to-text" with "model_id", "language_code"
//   (ElevenLabsLanguageSupport) and "diarize" for the Boolean option
//   "enable_speaker_diarization"; key in "xi-api-key".
// - cartesia: multipart to "/stt" with "model" and "language"; Bearer key and
//   "Cartesia-Version: 2026-03-01".
// - mistral: multipart to "/v1/audio/transcriptions" with "model", "language",
//   "temperature", "diarize" (Boolean option "diarize") and "context_bias" (the
//   comma-separated option "context_bias" as a JSON array); Bearer key.
// - soniox: upload to "/files", a job at "/transcriptions" (with "context" terms
//   from the option "context_terms" and the text "context_description"), polls of
//   "/transcriptions/<id>", then "/transcriptions/<id>/transcript".
// - assemblyAI: raw upload to "/v2/upload", a job at "/v2/transcript" (the prompt
//   split at commas as "keyterms_prompt"), polls of "/v2/transcript/<id>"; the bare
//   key in "Authorization".
// - glm: multipart to baseURL itself with "model", "stream" = "true" and "prompt";
//   the event-stream answer is read while it arrives.
// - stepFun: JSON with the samples as base64 PCM to baseURL itself, answered as an
//   event stream read while it arrives; the prompt goes along for
//   "stepaudio-2-asr-pro" only.
// - aliyunCompatible: a chat-completions request to baseURL itself carrying the
//   WAV as an "input_audio" part.
// - doubao: fails at once with OrvidProviderError::unsupportedProvider
//   ("Doubao batch transcription is not wired yet.").
// Job-based services pause 500 ms before each poll and give up after 120 polls
// ("Soniox transcription timed out.", "AssemblyAI transcription timed out."); an
// abandoned job is left to the service.
class CloudBatchTranscriptionProvider final : public TranscriptionProvider {
 public:
  // `configurationID` names the credentials ("provider." + configurationID +
  // ".api-key"); `modelID` is sent to the service as it is.
  CloudBatchTranscriptionProvider(std::string id, URL baseURL, CloudTranscriptionProviderAPI api,
                                  std::string configurationID, std::string modelID,
                                  std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                  std::shared_ptr<OrvidHTTPClient> httpClient,
                                  CloudTranscriptionResponseParser responseParser = {});

  // Waits `pause` between the polls of a job, returning early by throwing
  // CancellationError once `stop` is requested. Tests give one that does not wait.
  using JobPause = std::function<void(std::chrono::milliseconds pause, std::stop_token stop)>;

  // As above, with the job-based services pausing through `jobPause` instead of
  // waiting on the steady clock.
  CloudBatchTranscriptionProvider(std::string id, URL baseURL, CloudTranscriptionProviderAPI api,
                                  std::string configurationID, std::string modelID,
                                  std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                  std::shared_ptr<OrvidHTTPClient> httpClient,
                                  CloudTranscriptionResponseParser responseParser, JobPause jobPause);

  // The pause before each poll of a job and the most polls made.
  static constexpr std::chrono::milliseconds kJobPollPause{500};
  static constexpr int kJobPollLimit = 120;

  std::string id() const override { return id_; }

  // Transcribes the recording through the service's path and returns the result
  // stamped with request.languageRoute (TranscriptionResult::applying). Throws:
  // - OrvidError::emptyAudio for a request without frames, before anything else;
  // - CancellationError once `stop` is requested;
  // - OrvidProviderError::missingCredential when no non-empty key is stored, and
  //   the credential store's own errors;
  // - OrvidProviderError::unsupportedProvider("ASR request failed with HTTP " +
  //   status + ": " + the response body redacted by SecretRedactor) for a status
  //   outside 200 to 299 (the job-based and streamed services prefix their own
  //   step: "Soniox file upload", "AssemblyAI transcript poll", "GLM request", ...),
  //   for a job the service reports failed, and for one that does not finish;
  // - OrvidProviderError::invalidResponse for an answer that must be JSON but is
  //   not, and for an upload or job answer without its identifier;
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
  const DeepgramBatchTranscriptionRequestBuilder& deepgramRequestBuilder() const { return deepgramRequestBuilder_; }
  const std::shared_ptr<OrvidHTTPClient>& httpClient() const { return httpClient_; }
  const CloudTranscriptionResponseParser& responseParser() const { return responseParser_; }

 private:
  friend struct CloudBatchTranscriptionProviderTestPeer;

  TranscriptionResult transcribeOpenAICompatible(const TranscriptionRequest& request, std::stop_token stop) const;
  // Deepgram, ElevenLabs, Cartesia and Mistral: one request, one answer.
  TranscriptionResult transcribeSingleRequest(const TranscriptionRequest& request, std::stop_token stop) const;
  OrvidHTTPRequest elevenLabsRequest(const TranscriptionRequest& request) const;
  OrvidHTTPRequest cartesiaRequest(const TranscriptionRequest& request) const;
  OrvidHTTPRequest mistralRequest(const TranscriptionRequest& request) const;
  TranscriptionResult transcribeSoniox(const TranscriptionRequest& request, std::stop_token stop) const;
  TranscriptionResult transcribeAssemblyAI(const TranscriptionRequest& request, std::stop_token stop) const;
  TranscriptionResult transcribeGLM(const TranscriptionRequest& request, std::stop_token stop) const;
  TranscriptionResult transcribeStepFunSSE(const TranscriptionRequest& request, std::stop_token stop) const;
  TranscriptionResult transcribeAliyunCompatible(const TranscriptionRequest& request, std::stop_token stop) const;

  // Sends `request` and reads a 2xx answer as an event stream while it arrives; any
  // other status throws unsupportedProvider(prefix + " failed with HTTP " + ...).
  TranscriptionResult streamFragments(const OrvidHTTPRequest& request, std::string_view prefix,
                                      std::stop_token stop) const;
  // Pauses before a poll: jobPause_ when given, else a wait on the steady clock.
  void pauseBeforePoll(std::stop_token stop) const;

  // The request's prompt: the option "prompt" (trimmed) or else its promptHint.
  static std::optional<std::string> promptOf(const TranscriptionRequest& request);
  // A POST of `url` with `headers`, then Content-Type and the multipart body of
  // `fields` and the recording.
  static OrvidHTTPRequest multipartRequest(URL url, std::vector<OrvidHTTPHeader> headers,
                                           const std::vector<std::pair<std::string, std::string>>& fields,
                                           const Bytes& wav);
  // A POST of `url` with `headers` and the JSON body `body`.
  static OrvidHTTPRequest jsonRequest(URL url, std::vector<OrvidHTTPHeader> headers, const std::string& body);

  // The credential `name` of this configuration: "provider." + configurationID +
  // ".api-key" for an empty name or "api-key", else "provider." + configurationID +
  // "." + name and then that reference + ".api-key". The first non-empty value
  // wins; none throws OrvidProviderError::missingCredential. Store errors propagate.
  std::string credential(const std::string& name) const;

  // Throws OrvidProviderError::unsupportedProvider(prefix + " failed with HTTP " +
  // status + ": " + redacted body) unless the status is 200 to 299. The body is
  // read as UTF-8 (empty when it is not) and passed through SecretRedactor; a
  // credential of `sent` that the body echoes in a form SecretRedactor does not
  // know (a bare key) is replaced by "[REDACTED]" too.
  static void assertSuccess(const OrvidHTTPResponse& response, std::string_view prefix,
                            const OrvidHTTPRequest* sent = nullptr);

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
  DeepgramBatchTranscriptionRequestBuilder deepgramRequestBuilder_;
  std::shared_ptr<OrvidHTTPClient> httpClient_;
  CloudTranscriptionResponseParser responseParser_;
  JobPause jobPause_;
};

}  // namespace orvid
