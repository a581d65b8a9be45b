#pragma once

#include <chrono>
#include <memory>
#include <stop_token>
#include <string>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_session.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Opens dictations with Soniox's real-time speech service: one WebSocket to
// `baseURL` per session, raw 16 kHz mono audio, tokens back. Immutable; sessions
// may be opened from several threads at once.
class SonioxRealtimeTranscriptionProvider final : public RealtimeTranscriptionProvider {
 public:
  // `baseURL` is the service's WebSocket URL, used as it is; `configurationID`
  // names the key ("provider." + configurationID + ".api-key"); `providerOptions`
  // give the start message's flags and context (SonioxRealtimeStartMessageBuilder);
  // `finalizationTimeout` bounds each session's wait for its final result.
  SonioxRealtimeTranscriptionProvider(
      URL baseURL, std::string configurationID, std::string modelID, TranscriptionProviderOptions providerOptions,
      std::shared_ptr<const OrvidCredentialStore> credentialStore, std::shared_ptr<OrvidWebSocketConnector> connector,
      std::chrono::milliseconds finalizationTimeout = SonioxRealtimeTranscriptionSession::kFinalizationTimeout);

  // Connects with "Authorization: Bearer <key>" and a 60-second timeout, sends the
  // start message (16 kHz, one channel, the route's language hints, the prompt
  // hint as context) and returns a session that reads on. Throws
  // OrvidProviderError::missingCredential when no non-empty key is stored, the
  // store's, the connector's and the connection's errors, and CancellationError
  // once `stop` is requested.
  std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                             std::stop_token stop = {}) override;

 private:
  URL baseURL_;
  std::string configurationID_;
  std::string modelID_;
  TranscriptionProviderOptions providerOptions_;
  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
  std::shared_ptr<OrvidWebSocketConnector> connector_;
  std::chrono::milliseconds finalizationTimeout_;
};

}  // namespace orvid
