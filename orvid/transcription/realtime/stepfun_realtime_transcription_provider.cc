#include "orvid/transcription/realtime/stepfun_realtime_transcription_provider.h"

#include <chrono>
#include <optional>
#include <utility>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/transcription/realtime/stepfun_realtime_support.h"

namespace orvid {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};

}  // namespace

StepFunRealtimeTranscriptionProvider::StepFunRealtimeTranscriptionProvider(
    URL baseURL, std::string configurationID, std::string modelID,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidWebSocketConnector> connector)
    : baseURL_(std::move(baseURL)),
      configurationID_(std::move(configurationID)),
      modelID_(std::move(modelID)),
      credentialStore_(std::move(credentialStore)),
      connector_(std::move(connector)) {}

std::shared_ptr<RealtimeTranscriptionSession> StepFunRealtimeTranscriptionProvider::startSession(
    const RealtimeTranscriptionStartRequest& request, std::stop_token stop) {
  checkCancellation(stop);
  std::optional<std::string> key = credentialStore_->readCredential("provider." + configurationID_ + ".api-key");
  if (!key || key->empty()) throw OrvidProviderError::missingCredential();

  OrvidHTTPRequest socketRequest;
  socketRequest.url = baseURL_;
  socketRequest.timeout = kRequestTimeout;
  socketRequest.setHeader("Authorization", "Bearer " + *key);
  std::shared_ptr<OrvidWebSocketConnection> connection = connector_->connect(socketRequest, stop);
  // The session owns the connection and cancels it should the update fail.
  auto session = std::make_shared<StepFunRealtimeTranscriptionSession>(connection);
  session->startReading();
  connection->send(StepFunRealtimeSupport::sessionUpdate(modelID_, request.languageRoute.providerLanguage,
                                                         request.promptHint),
                   stop);
  return session;
}

}  // namespace orvid
