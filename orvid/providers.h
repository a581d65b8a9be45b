#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvid/ai/chat_completion_client.h"
#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/asr_language_route.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"
#include "orvid/transcription/realtime/orvid_websocket.h"
#include "orvid/transcription/realtime_transcription_provider.h"

// From a catalogue entry to a provider that works: the step every host takes
// before its first transcription or chat.
namespace orvid {

// A choice that cannot become a provider. what() is one sentence for the user.
class ProviderSetupError : public std::exception {
 public:
  enum class Case {
    // No entry of the catalogue has the identifier.
    unknownProvider,
    // The provider runs on this machine; a cloud service was asked for.
    notACloudService,
    // The base URL given is not an absolute http or https URL.
    invalidBaseURL,
    // Neither the choice nor the catalogue gives the provider an address.
    missingBaseURL,
    // The service has no real-time endpoint; a real-time provider was asked for.
    noRealtimeService,
    // The service streams, but this build has no session for its protocol yet.
    notAvailableInThisBuild,
  };

  ProviderSetupError(Case errorCase, std::string message)
      : case_(errorCase), message_(std::move(message)) {}

  Case errorCase() const { return case_; }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  Case case_;
  std::string message_;
};

// What the providers made here share: the HTTP and WebSocket transports and where
// API keys live.
struct ProviderEnvironment {
  std::shared_ptr<OrvidHTTPClient> httpClient;
  std::shared_ptr<const OrvidCredentialStore> credentialStore;
  std::shared_ptr<OrvidWebSocketConnector> webSocketConnector;

  // libcurl for HTTP, Beast for WebSockets (trusting the system's certificate
  // authorities) and the system credential store (makeSystemCredentialStore) under
  // `credentialService`.
  static ProviderEnvironment system(const std::string& credentialService = "orvid");
};

// A cloud speech service of the catalogue as the host chose it. Absent fields take
// the catalogue's values.
struct CloudTranscriptionChoice {
  std::string providerID;
  std::optional<std::string> baseURL;
  std::optional<std::string> modelID;
  // The languages the user speaks, most likely first; empty: the service detects it.
  std::vector<std::string> languageCodes;
};

// A cloud speech service ready to transcribe.
struct CloudTranscriptionSetup {
  std::shared_ptr<CloudBatchTranscriptionProvider> provider;
  // The route to put on each TranscriptionRequest.
  ResolvedASRLanguageRoute languageRoute;
  std::string providerID;
  std::string modelID;
};

// The provider for `choice`. Its API key is the credential "provider." + the
// provider's identifier + ".api-key" in the environment's store. Throws
// ProviderSetupError for an unknown or on-device provider, a base URL that is not
// http(s), and a provider without any address.
CloudTranscriptionSetup makeCloudTranscription(const CloudTranscriptionChoice& choice,
                                               const ProviderEnvironment& environment = ProviderEnvironment::system());

// A real-time speech service ready to open sessions.
struct RealtimeTranscriptionSetup {
  std::shared_ptr<RealtimeTranscriptionProvider> provider;
  // The route to put on each RealtimeTranscriptionStartRequest.
  ResolvedASRLanguageRoute languageRoute;
  std::string providerID;
  std::string modelID;
};

// The real-time provider for `choice` (its modelID one of the catalogue's real-time
// models, the first by default; its baseURL http(s) or ws(s)). The API key is read
// as for makeCloudTranscription. Throws ProviderSetupError as makeCloudTranscription
// does, and for a service without a real-time endpoint or whose real-time protocol
// this build does not speak.
RealtimeTranscriptionSetup makeRealtimeTranscription(const CloudTranscriptionChoice& choice,
                                                     const ProviderEnvironment& environment =
                                                         ProviderEnvironment::system());

// A language-model provider of the catalogue as the host chose it.
struct AIProviderChoice {
  std::string providerID;
  std::optional<std::string> baseURL;
  std::optional<std::string> modelID;
};

// A language-model provider ready for ChatCompletionClient::complete.
struct AIProviderSetup {
  AIProviderDescriptor descriptor;
  // Named after the provider, so its key is "provider." + the identifier + ".api-key".
  AIProviderConfiguration configuration;
  std::shared_ptr<ChatCompletionClient> client;
};

// The provider for `choice`. Throws ProviderSetupError for an unknown provider, a
// base URL that is not http(s), and a provider without any address.
AIProviderSetup makeAIProvider(const AIProviderChoice& choice,
                               const ProviderEnvironment& environment = ProviderEnvironment::system());

}  // namespace orvid
