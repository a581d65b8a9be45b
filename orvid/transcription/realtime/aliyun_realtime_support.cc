#include "orvid/transcription/realtime/aliyun_realtime_support.h"

#include <chrono>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/uuid.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"
#include "orvid/transcription/realtime/internal/realtime_language_support.h"
#include "orvid/transcription/realtime/stepfun_realtime_support.h"

namespace orvid::AliyunRealtimeSupport {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};
constexpr std::string_view kDefaultHost = "dashscope.aliyuncs.com";
constexpr std::string_view kInferencePath = "/api-ws/v1/inference";
constexpr std::string_view kRealtimePath = "/api-ws/v1/realtime";

// wss://<user@>host<:port> of `url`.
std::string secureOrigin(const URL& url) {
  std::string text = "wss://";
  if (!url.userInfo().empty()) text += url.userInfo() + "@";
  text += url.host();
  if (url.port()) text += ":" + std::to_string(*url.port());
  return text;
}

std::string replacedAll(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace

std::string resolvedFunEndpoint(const URL& baseURL) {
  const std::string fallback = "wss://" + std::string(kDefaultHost) + std::string(kInferencePath);
  const std::string path = internal::lowercaseASCII(baseURL.path());
  std::string text = secureOrigin(baseURL);
  if (path.ends_with(kInferencePath)) {
    text += baseURL.path();
    if (baseURL.query()) text += "?" + *baseURL.query();
  } else if (path.ends_with(kRealtimePath)) {
    text += replacedAll(baseURL.path(), kRealtimePath, kInferencePath);
  } else {
    text += kInferencePath;
  }
  std::optional<URL> url = URL::parse(text);
  return url ? url->absoluteString() : fallback;
}

std::string resolvedQwenEndpoint(const URL& baseURL, const std::string& modelID) {
  const std::vector<URLQueryItem> modelItem = {{"model", modelID}};
  const std::string path = internal::lowercaseASCII(baseURL.path());
  std::optional<URL> url =
      URL::parse(secureOrigin(baseURL) + (path.ends_with(kRealtimePath) ? baseURL.path() : std::string(kRealtimePath)) +
                 (baseURL.query() ? "?" + *baseURL.query() : ""));
  if (!url) {
    return URL::parse("wss://" + std::string(kDefaultHost) + std::string(kRealtimePath))
        ->settingQueryItems(modelItem)
        .absoluteString();
  }
  for (const URLQueryItem& item : url->queryItems()) {
    if (item.name == "model") return url->absoluteString();
  }
  return url->appendingQueryItems(modelItem).absoluteString();
}

std::pair<OrvidHTTPRequest, Kind> websocketRequest(const URL& baseURL, const std::string& configurationID,
                                                   const std::string& modelID,
                                                   const OrvidCredentialStore& credentialStore) {
  std::optional<std::string> key = credentialStore.readCredential("provider." + configurationID + ".api-key");
  if (!key || key->empty()) throw OrvidProviderError::missingCredential();

  const std::string trimmed(internal::trimUnicodeWhitespace(modelID));
  const std::string folded = internal::lowercaseASCII(trimmed);
  const bool fun = folded.starts_with("fun-asr") || folded.starts_with("paraformer-realtime");
  std::optional<URL> url = URL::parse(fun ? resolvedFunEndpoint(baseURL) : resolvedQwenEndpoint(baseURL, trimmed));
  if (!url) throw OrvidProviderError::missingBaseURL();

  OrvidHTTPRequest request;
  request.url = std::move(*url);
  request.timeout = kRequestTimeout;
  request.setHeader("Authorization", "Bearer " + *key);
  if (!fun) return {std::move(request), Kind::qwen()};
  std::string taskID;
  for (char c : internal::lowercaseASCII(UUID::random().uuidString())) {
    if (c != '-') taskID += c;
  }
  return {std::move(request), Kind::fun(std::move(taskID))};
}

int sampleRate(const std::string& modelID) {
  return internal::lowercaseASCII(modelID).find("8k") != std::string::npos ? 8'000 : 16'000;
}

std::string runTask(const std::string& taskID, const std::string& modelID,
                    const std::vector<std::string>& languageHints, int sampleRate) {
  nlohmann::json parameters = {{"sample_rate", sampleRate}, {"format", "pcm"}};
  std::vector<std::string> hints;
  for (const std::string& hint : languageHints) {
    std::string trimmed(internal::trimUnicodeWhitespace(hint));
    if (trimmed.empty() || trimmed == "auto") continue;
    hints.push_back(trimmed == "zh-Hans" || trimmed == "zh-Hant" ? "zh" : trimmed);
  }
  if (!hints.empty()) parameters["language_hints"] = hints;
  return RealtimeJSON::encode({
      {"header", {{"action", "run-task"}, {"task_id", taskID}, {"streaming", "duplex"}}},
      {"payload",
       {{"task_group", "audio"},
        {"task", "asr"},
        {"function", "recognition"},
        {"model", modelID},
        {"parameters", std::move(parameters)},
        {"input", nlohmann::json::object()}}},
  });
}

std::string finishTask(const std::string& taskID) {
  return RealtimeJSON::encode({
      {"header", {{"action", "finish-task"}, {"task_id", taskID}, {"streaming", "duplex"}}},
      {"payload", {{"input", nlohmann::json::object()}}},
  });
}

std::string sessionUpdate(const std::string& modelID, const std::optional<std::string>& language, int sampleRate) {
  nlohmann::json transcription = nlohmann::json::object();
  const std::string folded = internal::lowercaseASCII(modelID);
  if (folded.starts_with("qwen3.5-omni") || folded.starts_with("qwen-omni")) {
    transcription["model"] = "qwen3-asr-flash-realtime";
  }
  if (auto normalized = RealtimeLanguageSupport::normalized(language)) transcription["language"] = *normalized;
  return RealtimeJSON::encode({
      {"event_id", StepFunRealtimeSupport::eventID()},
      {"type", "session.update"},
      {"session",
       {{"modalities", {"text"}},
        {"input_audio_format", "pcm"},
        {"sample_rate", sampleRate},
        {"input_audio_transcription", std::move(transcription)},
        {"turn_detection", {{"type", "server_vad"}, {"threshold", 0.0}, {"silence_duration_ms", 400}}}}},
  });
}

std::string sessionFinish() {
  return R"({"event_id":")" + StepFunRealtimeSupport::eventID() + R"(","type":"session.finish"})";
}

std::string event(const nlohmann::json& object) {
  for (const nlohmann::json* value : {RealtimeJSON::member(RealtimeJSON::member(object, "header"), "event"),
                                      RealtimeJSON::member(object, "event"), RealtimeJSON::member(object, "type")}) {
    if (value != nullptr && value->is_string()) {
      return internal::lowercaseASCII(internal::trimUnicodeWhitespace(value->get_ref<const std::string&>()));
    }
  }
  return "";
}

}  // namespace orvid::AliyunRealtimeSupport
