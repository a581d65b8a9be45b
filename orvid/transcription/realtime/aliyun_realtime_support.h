#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"

// The two real-time protocols of Aliyun Bailian's speech service: the task protocol
// of its fun-ASR and Paraformer models and the event protocol of its Qwen models;
// their socket requests, client messages and event names.
namespace orvid::AliyunRealtimeSupport {

// Which protocol a dictation speaks.
struct Kind {
  enum class Protocol { fun, qwen };
  Protocol protocol = Protocol::qwen;
  // For fun: this dictation's task identifier, 32 lower-case hexadecimal digits.
  std::string taskID;

  static Kind fun(std::string taskID) { return {Protocol::fun, std::move(taskID)}; }
  static Kind qwen() { return {Protocol::qwen, {}}; }
  bool isFun() const { return protocol == Protocol::fun; }
  bool operator==(const Kind&) const = default;
};

// The request for `modelID`: a model whose trimmed, lower-cased identifier starts
// with "fun-asr" or "paraformer-realtime" speaks the task protocol (a new task
// identifier) at resolvedFunEndpoint(), any other the event protocol at
// resolvedQwenEndpoint(); "Authorization: Bearer <key>" and a 60-second timeout.
// Throws OrvidProviderError::missingCredential when no non-empty key is stored,
// the store's own errors, and OrvidProviderError::missingBaseURL when the
// endpoint cannot be parsed.
std::pair<OrvidHTTPRequest, Kind> websocketRequest(const URL& baseURL, const std::string& configurationID,
                                                   const std::string& modelID,
                                                   const OrvidCredentialStore& credentialStore);

// baseURL as wss: kept whole when its path ends in "/api-ws/v1/inference";
// "/api-ws/v1/realtime" becomes "/api-ws/v1/inference"; any other path becomes
// exactly that; in both latter cases the query is dropped.
std::string resolvedFunEndpoint(const URL& baseURL);

// baseURL as wss with the path "/api-ws/v1/realtime" (kept when it already ends so)
// and its query, plus "model" = `modelID` when the query names no model.
std::string resolvedQwenEndpoint(const URL& baseURL, const std::string& modelID);

// The rate the audio of `modelID` is sent at, and declared at: 8,000 Hz when its
// lower-cased identifier contains "8k", else 16,000 Hz.
int sampleRate(const std::string& modelID);

// The run-task command: a duplex "asr" recognition task of `modelID` at
// `sampleRate`, format "pcm", with the hints (trimmed, without blanks and "auto",
// "zh-Hans" and "zh-Hant" as "zh") as "language_hints" when any remain.
std::string runTask(const std::string& taskID, const std::string& modelID,
                    const std::vector<std::string>& languageHints, int sampleRate);

// The finish-task command of `taskID`.
std::string finishTask(const std::string& taskID);

// The event protocol's "session.update": text only, "pcm" at `sampleRate`, server
// VAD (threshold 0.0, 400 ms of silence), and "input_audio_transcription" with
// "model" = "qwen3-asr-flash-realtime" for Qwen Omni models and "language" = the
// normalised `language` when there is one.
std::string sessionUpdate(const std::string& modelID, const std::optional<std::string>& language, int sampleRate);

// The event protocol's "session.finish", written as {"event_id":"…","type":"session.finish"}.
std::string sessionFinish();

// The event's name: the first string of "header"."event", "event" and "type",
// trimmed and lower-cased; empty when there is none.
std::string event(const nlohmann::json& object);

}  // namespace orvid::AliyunRealtimeSupport
