#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/platform/url.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime/stepfun_realtime_transcription_session.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Opens dictations with StepFun's real-time transcription service: one WebSocket
// to `baseURL` per session, an OpenAI-like event protocol with base64 audio.
// Immutable; sessions may be opened from several threads at once.
class StepFunRealtimeTranscriptionProvider final : public RealtimeTranscriptionProvider {
 public:
  // `baseURL` is the service's WebSocket URL, used as it is; `configurationID`
  // names the key ("provider." + configurationID + ".api-key").
  StepFunRealtimeTranscriptionProvider(URL baseURL, std::string configurationID, std::string modelID,
                                       std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                       std::shared_ptr<OrvidWebSocketConnector> connector);

  // Connects with "Authorization: Bearer <key>" and a 60-second timeout, starts
  // reading, sends the session update (the model, the route's providerLanguage,
  // the prompt hint) and returns the session without waiting for the service's
  // confirmation. Throws OrvidProviderError::missingCredential when no non-empty
  // key is stored, the store's, the connector's and the connection's errors, and
  // CancellationError once `stop` is requested.
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
