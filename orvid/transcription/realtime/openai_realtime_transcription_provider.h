#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_session.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Opens dictations with OpenAI's real-time transcription service: one WebSocket to
// baseURL's "realtime" endpoint per session. Immutable; sessions may be opened
// from several threads at once.
class OpenAIRealtimeTranscriptionProvider final : public RealtimeTranscriptionProvider {
 public:
  // `baseURL` is the API root (e.g. https://api.openai.com/v1); `configurationID`
  // names the key ("provider." + configurationID + ".api-key"); `modelID` is the
  // transcription model, sent as it is.
  OpenAIRealtimeTranscriptionProvider(URL baseURL, std::string configurationID, std::string modelID,
                                      std::shared_ptr<const OrvidCredentialStore> credentialStore,
                                      std::shared_ptr<OrvidWebSocketConnector> connector);

  // Connects, waits for the service's first event, which must announce the
  // session, configures the session with the model, the route's providerLanguage
  // and the request's promptHint, and returns an OpenAIRealtimeTranscriptionSession
  // that reads on. Throws websocketRequest()'s and waitForInitialSessionEvent()'s
  // errors, the connector's and the connection's, and CancellationError once `stop`
  // is requested. A connection opened before a failure is cancelled.
  std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                             std::stop_token stop = {}) override;

  // A GET of wss://<baseURL's user, host and port>/<baseURL's path>/realtime
  // ?intent=transcription (the base URL's scheme, query and fragment are replaced
  // or dropped) with "Authorization: Bearer <key>", "OpenAI-Beta: realtime=v1" and
  // a 60-second timeout. Throws OrvidProviderError::missingCredential when no
  // non-empty key is stored, the store's own errors, and
  // OrvidProviderError::missingBaseURL when no URL can be formed.
  OrvidHTTPRequest websocketRequest() const;

  // Receives one message, which must be a JSON object whose "type" is
  // "session.created" or "transcription_session.created"; throws
  // OrvidProviderError::invalidResponse otherwise (without quoting the message),
  // and what the connection throws.
  static void waitForInitialSessionEvent(OrvidWebSocketConnection& connection, std::stop_token stop = {});

  const URL& baseURL() const { return baseURL_; }
  const std::string& configurationID() const { return configurationID_; }
  const std::string& modelID() const { return modelID_; }
  const std::shared_ptr<const OrvidCredentialStore>& credentialStore() const { return credentialStore_; }
  const std::shared_ptr<OrvidWebSocketConnector>& connector() const { return connector_; }

 private:
  URL baseURL_;
  std::string configurationID_;
  std::string modelID_;
  std::shared_ptr<const OrvidCredentialStore> credentialStore_;
  std::shared_ptr<OrvidWebSocketConnector> connector_;
};

}  // namespace orvid
