#include "orvid/transcription/realtime/openai_realtime_transcription_provider.h"

#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_messages.h"

namespace orvid {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};

// `path` without any "/" at either end.
std::string_view stripSlashes(std::string_view path) {
  std::size_t first = path.find_first_not_of('/');
  if (first == std::string_view::npos) return {};
  return path.substr(first, path.find_last_not_of('/') - first + 1);
}

}  // namespace

OpenAIRealtimeTranscriptionProvider::OpenAIRealtimeTranscriptionProvider(
    URL baseURL, std::string configurationID, std::string modelID,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidWebSocketConnector> connector)
    : baseURL_(std::move(baseURL)),
      configurationID_(std::move(configurationID)),
      modelID_(std::move(modelID)),
      credentialStore_(std::move(credentialStore)),
      connector_(std::move(connector)) {}

OrvidHTTPRequest OpenAIRealtimeTranscriptionProvider::websocketRequest() const {
  std::optional<std::string> key = credentialStore_->readCredential("provider." + configurationID_ + ".api-key");
  if (!key || key->empty()) throw OrvidProviderError::missingCredential();

  std::string_view basePath = stripSlashes(baseURL_.path());
  std::string text = "wss://";
  if (!baseURL_.userInfo().empty()) text += baseURL_.userInfo() + "@";
  text += baseURL_.host();
  if (baseURL_.port()) text += ":" + std::to_string(*baseURL_.port());
  text += "/";
  if (!basePath.empty()) text += std::string(basePath) + "/";
  text += "realtime?intent=transcription";
  std::optional<URL> url = URL::parse(text);
  if (!url) throw OrvidProviderError::missingBaseURL();

  OrvidHTTPRequest request;
  request.url = std::move(*url);
  request.timeout = kRequestTimeout;
  request.setHeader("Authorization", "Bearer " + *key);
  request.setHeader("OpenAI-Beta", "realtime=v1");
  return request;
}

void OpenAIRealtimeTranscriptionProvider::waitForInitialSessionEvent(OrvidWebSocketConnection& connection,
                                                                     std::stop_token stop) {
  nlohmann::json event = nlohmann::json::parse(connection.receive(stop), nullptr, /*allow_exceptions=*/false);
  const nlohmann::json* type = RealtimeJSON::member(event, "type");
  if (type == nullptr || (*type != "session.created" && *type != "transcription_session.created")) {
    throw OrvidProviderError::invalidResponse();
  }
}

std::shared_ptr<RealtimeTranscriptionSession> OpenAIRealtimeTranscriptionProvider::startSession(
    const RealtimeTranscriptionStartRequest& request, std::stop_token stop) {
  checkCancellation(stop);
  OrvidHTTPRequest socketRequest = websocketRequest();
  std::shared_ptr<OrvidWebSocketConnection> connection = connector_->connect(socketRequest, stop);
  try {
    waitForInitialSessionEvent(*connection, stop);
  } catch (...) {
    connection->cancel();
    throw;
  }
  // From here on the session owns the connection and cancels it if it is dropped.
  auto session = std::make_shared<OpenAIRealtimeTranscriptionSession>(connection);
  connection->send(OpenAIRealtimeTranscriptionMessageBuilder::sessionUpdate(
                       modelID_, request.languageRoute.providerLanguage, request.promptHint),
                   stop);
  session->startReading();
  return session;
}

}  // namespace orvid
