#include "orvid/transcription/realtime/deepgram_realtime_transcription_provider.h"

#include <utility>

#include "orvid/platform/cancellation.h"
#include "orvid/transcription/realtime/deepgram_realtime_support.h"

namespace orvid {

DeepgramRealtimeTranscriptionProvider::DeepgramRealtimeTranscriptionProvider(
    URL baseURL, std::string configurationID, std::string modelID, TranscriptionProviderOptions providerOptions,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidWebSocketConnector> connector)
    : baseURL_(std::move(baseURL)),
      configurationID_(std::move(configurationID)),
      modelID_(std::move(modelID)),
      providerOptions_(std::move(providerOptions)),
      credentialStore_(std::move(credentialStore)),
      connector_(std::move(connector)) {}

std::shared_ptr<RealtimeTranscriptionSession> DeepgramRealtimeTranscriptionProvider::startSession(
    const RealtimeTranscriptionStartRequest& request, std::stop_token stop) {
  checkCancellation(stop);
  OrvidHTTPRequest socketRequest =
      DeepgramRealtimeSupport::websocketRequest(baseURL_, configurationID_, modelID_,
                                                request.languageRoute.providerLanguage, providerOptions_,
                                                *credentialStore_);
  auto session = std::make_shared<DeepgramRealtimeTranscriptionSession>(connector_->connect(socketRequest, stop));
  session->startReading();
  return session;
}

}  // namespace orvid
