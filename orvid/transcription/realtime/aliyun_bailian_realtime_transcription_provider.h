#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/platform/url.h"
#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_session.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Opens dictations with Aliyun Bailian's speech service, in the task protocol for
// fun-ASR and Paraformer models and in the event protocol for the Qwen real-time
// models (AliyunRealtimeSupport::websocketRequest picks it from the model).
// Immutable; sessions may be opened from several threads at once.
class AliyunBailianRealtimeTranscriptionProvider final : public RealtimeTranscriptionProvider {
 public:
  // Only `baseURL`'s path and query are interpreted (the scheme becomes wss);
  // `configurationID` names the key ("provider." + configurationID + ".api-key").
  AliyunBailianRealtimeTranscriptionProvider(URL baseURL, std::string configurationID, std::string modelID,
                                             std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                             std::shared_ptr<OrvidWebSocketConnector> connector);

  // Connects, starts reading, sends run-task (with the route's language hints) or
  // session.update (with its providerLanguage) and returns the session without
  // waiting for the acknowledgement; the prompt hint is not used. Throws the
  // request's, the connector's and the connection's errors, and CancellationError
  // once `stop` is requested.
  std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                             std::stop_token stop = {}) override;

 private:
  URL baseURL_;
  std::string configurationID_;
  std::string modelID_;
  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
  std::shared_ptr<OrvidWebSocketConnector> connector_;
};

}  // namespace orvid
