#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/platform/url.h"
#include "orvid/transcription/realtime/deepgram_realtime_transcription_session.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Opens dictations with Deepgram's live transcription service: one WebSocket per
// session whose URL carries every setting, raw 16 kHz audio, no opening event.
// Immutable; sessions may be opened from several threads at once.
class DeepgramRealtimeTranscriptionProvider final : public RealtimeTranscriptionProvider {
 public:
  // `baseURL` is the service's listen endpoint or its API root; `configurationID`
  // names the key ("provider." + configurationID + ".api-key"); the Boolean
  // `providerOptions` "smart_format", "punctuate" and "diarize" go into the query.
  DeepgramRealtimeTranscriptionProvider(URL baseURL, std::string configurationID, std::string modelID,
                                        TranscriptionProviderOptions providerOptions,
                                        std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                        std::shared_ptr<OrvidWebSocketConnector> connector);

  // Connects (DeepgramRealtimeSupport::websocketRequest with the route's
  // providerLanguage; the prompt hint is not used) and returns a session that
  // reads on; nothing is sent or awaited first. Throws the request's, the
  // connector's errors, and CancellationError once `stop` is requested.
  std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                             std::stop_token stop = {}) override;

 private:
  URL baseURL_;
  std::string configurationID_;
  std::string modelID_;
  TranscriptionProviderOptions providerOptions_;
  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
  std::shared_ptr<OrvidWebSocketConnector> connector_;
};

}  // namespace orvid
