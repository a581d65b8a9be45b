#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_provider.h"

#include <utility>

#include "orvid/platform/cancellation.h"
#include "orvid/transcription/realtime/aliyun_realtime_support.h"

namespace orvid {

AliyunBailianRealtimeTranscriptionProvider::AliyunBailianRealtimeTranscriptionProvider(
    URL baseURL, std::string configurationID, std::string modelID,
    std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidWebSocketConnector> connector)
    : baseURL_(std::move(baseURL)),
      configurationID_(std::move(configurationID)),
      modelID_(std::move(modelID)),
      credentialStore_(std::move(credentialStore)),
      connector_(std::move(connector)) {}

std::shared_ptr<RealtimeTranscriptionSession> AliyunBailianRealtimeTranscriptionProvider::startSession(
    const RealtimeTranscriptionStartRequest& request, std::stop_token stop) {
  checkCancellation(stop);
  auto [socketRequest, kind] =
      AliyunRealtimeSupport::websocketRequest(baseURL_, configurationID_, modelID_, *credentialStore_);
  std::shared_ptr<OrvidWebSocketConnection> connection = connector_->connect(socketRequest, stop);
  // The session owns the connection and cancels it should the start message fail.
  auto session = std::make_shared<AliyunBailianRealtimeTranscriptionSession>(connection, kind, modelID_);
  session->startReading();
  const int sampleRate = AliyunRealtimeSupport::sampleRate(modelID_);
  connection->send(kind.isFun() ? AliyunRealtimeSupport::runTask(kind.taskID, modelID_,
                                                                 request.languageRoute.providerLanguageHints, sampleRate)
                                : AliyunRealtimeSupport::sessionUpdate(modelID_, request.languageRoute.providerLanguage,
                                                                       sampleRate),
                   stop);
  return session;
}

}  // namespace orvid
