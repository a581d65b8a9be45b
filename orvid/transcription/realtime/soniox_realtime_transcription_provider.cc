#include "orvid/transcription/realtime/soniox_realtime_transcription_provider.h"

#include <optional>
#include <utility>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_messages.h"

namespace orvid {
namespace {

constexpr std::chrono::milliseconds kRequestTimeout{60'000};

}  // namespace

SonioxRealtimeTranscriptionProvider::SonioxRealtimeTranscriptionProvider(
    URL baseURL, std::string configurationID, std::string modelID, TranscriptionProviderOptions providerOptions,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidWebSocketConnector> connector,
    std::chrono::milliseconds finalizationTimeout)
    : baseURL_(std::move(baseURL)),
      configurationID_(std::move(configurationID)),
      modelID_(std::move(modelID)),
      providerOptions_(std::move(providerOptions)),
      credentialStore_(std::move(credentialStore)),
      connector_(std::move(connector)),
      finalizationTimeout_(finalizationTimeout) {}

std::shared_ptr<RealtimeTranscriptionSession> SonioxRealtimeTranscriptionProvider::startSession(
    const RealtimeTranscriptionStartRequest& request, std::stop_token stop) {
  checkCancellation(stop);
  std::optional<std::string> key = credentialStore_->readCredential("provider." + configurationID_ + ".api-key");
  if (!key || key->empty()) throw OrvidProviderError::missingCredential();

  OrvidHTTPRequest socketRequest;
  socketRequest.url = baseURL_;
  socketRequest.timeout = kRequestTimeout;
  socketRequest.setHeader("Authorization", "Bearer " + *key);
  std::shared_ptr<OrvidWebSocketConnection> connection = connector_->connect(socketRequest, stop);
  try {
    connection->send(SonioxRealtimeStartMessageBuilder::message(modelID_, request.languageRoute, providerOptions_,
                                                               request.promptHint, 16'000, 1),
                     stop);
  } catch (...) {
    connection->cancel();
    throw;
  }
  auto session = std::make_shared<SonioxRealtimeTranscriptionSession>(std::move(connection), finalizationTimeout_);
  session->startReading();
  return session;
}

}  // namespace orvid
