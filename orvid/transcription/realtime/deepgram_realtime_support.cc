#include "orvid/transcription/realtime/deepgram_realtime_support.h"

#include <array>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"
#include "orvid/transcription/realtime/internal/realtime_language_support.h"

namespace orvid::DeepgramRealtimeSupport {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};

// `path` without any "/" at either end.
std::string_view stripSlashes(std::string_view path) {
  std::size_t first = path.find_first_not_of('/');
  if (first == std::string_view::npos) return {};
  return path.substr(first, path.find_last_not_of('/') - first + 1);
}

std::string listenPath(const std::string& path) {
  if (internal::lowercaseASCII(path).ends_with("/listen")) return path;
  std::string_view stripped = stripSlashes(path);
  return stripped.empty() ? "/listen" : "/" + std::string(stripped) + "/listen";
}

}  // namespace

OrvidHTTPRequest websocketRequest(const URL& baseURL, const std::string& configurationID, const std::string& modelID,
                                  const std::optional<std::string>& language,
                                  const TranscriptionProviderOptions& providerOptions,
                                  const OrvidCredentialStore& credentialStore) {
  std::optional<std::string> key = credentialStore.readCredential("provider." + configurationID + ".api-key");
  if (!key || key->empty()) throw OrvidProviderError::missingCredential();

  std::string text = "wss://";
  if (!baseURL.userInfo().empty()) text += baseURL.userInfo() + "@";
  text += baseURL.host();
  if (baseURL.port()) text += ":" + std::to_string(*baseURL.port());
  text += listenPath(baseURL.path());
  std::optional<URL> url = URL::parse(text);
  if (!url) throw OrvidProviderError::missingBaseURL();

  std::vector<URLQueryItem> query = {
      {"model", modelID}, {"encoding", "linear16"}, {"sample_rate", "16000"}, {"channels", "1"},
      {"interim_results", "true"},
  };
  if (auto normalized = RealtimeLanguageSupport::normalized(language)) query.push_back({"language", *normalized});
  static constexpr std::array<std::string_view, 3> kFlags = {"smart_format", "punctuate", "diarize"};
  for (std::string_view flag : kFlags) {
    auto found = providerOptions.find(std::string(flag));
    if (found == providerOptions.end()) continue;
    if (auto value = found->second.booleanValue()) query.push_back({std::string(flag), *value ? "true" : "false"});
  }

  OrvidHTTPRequest request;
  request.url = url->settingQueryItems(query);
  request.timeout = kRequestTimeout;
  request.setHeader("Authorization", "Token " + *key);
  return request;
}

std::optional<TranscriptionPartialResult> partial(const nlohmann::json& event) {
  const nlohmann::json* type = RealtimeJSON::member(event, "type");
  if (type == nullptr || *type != "Results") return std::nullopt;
  const nlohmann::json* channel = RealtimeJSON::member(event, "channel");
  const nlohmann::json* alternatives = RealtimeJSON::member(channel, "alternatives");
  if (alternatives == nullptr || !alternatives->is_array() || alternatives->empty()) return std::nullopt;
  std::optional<std::string> text = RealtimeJSON::string(RealtimeJSON::member(alternatives->front(), "transcript"));
  if (!text) return std::nullopt;
  bool isFinal = RealtimeJSON::boolean(RealtimeJSON::member(event, "is_final")).value_or(false);
  return TranscriptionPartialResult{std::move(*text), isFinal, std::nullopt};
}

}  // namespace orvid::DeepgramRealtimeSupport
