#include "orvid/providers.h"

#include <initializer_list>
#include <set>
#include <string_view>

#include "orvid/ai/http_chat_completion_client.h"
#include "orvid/ai/system_credential_store.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/transcription/realtime/beast_orvid_websocket_connector.h"
#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/deepgram_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_provider.h"
#include "orvid/transcription/realtime/stepfun_realtime_transcription_provider.h"
#include "orvid/transcription/ai_provider_registry.h"
#include "orvid/transcription/asr_language_routing_resolver.h"
#include "orvid/transcription/transcription_provider_registry.h"

namespace orvid {
namespace {

// `text` as an absolute URL with one of `schemes`; absent when not given.
std::optional<URL> baseURLOf(const std::optional<std::string>& text,
                             std::initializer_list<std::string_view> schemes = {"http", "https"}) {
  if (!text) return std::nullopt;
  auto url = URL::parse(*text);
  bool allowed = false;
  for (auto scheme : schemes) allowed = allowed || (url && url->scheme() == scheme);
  if (!allowed) {
    throw ProviderSetupError(ProviderSetupError::Case::invalidBaseURL,
                             "The base URL \"" + *text + "\" is not an " +
                                 (schemes.size() > 2 ? "http(s) or ws(s)" : "http or https") + " URL.");
  }
  return url;
}

// The catalogue's cloud service `providerID`.
TranscriptionProviderDescriptor cloudService(const std::string& providerID) {
  auto descriptor = TranscriptionProviderRegistry::descriptor(providerID);
  if (!descriptor) {
    throw ProviderSetupError(ProviderSetupError::Case::unknownProvider,
                             "There is no transcription provider \"" + providerID + "\".");
  }
  if (descriptor->backend.cloudDescriptor() == nullptr) {
    throw ProviderSetupError(ProviderSetupError::Case::notACloudService,
                             "\"" + providerID + "\" runs on this machine, not as a cloud speech service.");
  }
  return *descriptor;
}

ProviderSetupError missingBaseURL(const std::string& providerID) {
  return ProviderSetupError(ProviderSetupError::Case::missingBaseURL,
                            "The provider \"" + providerID + "\" has no address of its own: give it a base URL.");
}

}  // namespace

ProviderEnvironment ProviderEnvironment::system(const std::string& credentialService) {
  return {std::make_shared<CurlOrvidHTTPClient>(), makeSystemCredentialStore(credentialService),
          std::make_shared<BeastOrvidWebSocketConnector>()};
}

CloudTranscriptionSetup makeCloudTranscription(const CloudTranscriptionChoice& choice,
                                               const ProviderEnvironment& environment) {
  const auto service = cloudService(choice.providerID);
  const auto* descriptor = &service;
  const auto* cloud = descriptor->backend.cloudDescriptor();
  std::optional<URL> baseURL = choice.baseURL ? baseURLOf(choice.baseURL) : cloud->baseURL;
  if (!baseURL) throw missingBaseURL(choice.providerID);

  CloudTranscriptionSetup setup;
  setup.providerID = descriptor->id;
  setup.modelID = choice.modelID.value_or(cloud->defaultModelID);
  ASRLanguageSelection selection;
  selection.languageCodes = choice.languageCodes;
  setup.languageRoute =
      ASRLanguageRoutingResolver::resolve(selection, *descriptor, ASRTranscriptionTransport::batch, setup.modelID);
  // The configuration is the catalogue entry itself: its key is "provider." + id + ".api-key".
  setup.provider = std::make_shared<CloudBatchTranscriptionProvider>(
      descriptor->id, *baseURL, cloud->api, descriptor->id, setup.modelID, environment.credentialStore,
      environment.httpClient);
  return setup;
}

RealtimeTranscriptionSetup makeRealtimeTranscription(const CloudTranscriptionChoice& choice,
                                                     const ProviderEnvironment& environment) {
  const auto descriptor = cloudService(choice.providerID);
  const auto* cloud = descriptor.backend.cloudDescriptor();
  if (!cloud->realtimeBaseURL) {
    throw ProviderSetupError(ProviderSetupError::Case::noRealtimeService,
                             "\"" + descriptor.id + "\" has no real-time transcription service.");
  }
  static const std::set<std::string> kStreamingServices = {"openai", "soniox", "deepgram", "stepfun",
                                                           "aliyun-bailian"};
  if (!kStreamingServices.contains(descriptor.id)) {
    throw ProviderSetupError(ProviderSetupError::Case::notAvailableInThisBuild,
                             "Real-time transcription with \"" + descriptor.id + "\" is not available in this build.");
  }
  std::optional<URL> baseURL =
      choice.baseURL ? baseURLOf(choice.baseURL, {"http", "https", "ws", "wss"}) : cloud->realtimeBaseURL;
  RealtimeTranscriptionSetup setup;
  setup.providerID = descriptor.id;
  setup.modelID = choice.modelID.value_or(cloud->defaultRealtimeModelID.value_or(cloud->defaultModelID));
  ASRLanguageSelection selection;
  selection.languageCodes = choice.languageCodes;
  setup.languageRoute =
      ASRLanguageRoutingResolver::resolve(selection, descriptor, ASRTranscriptionTransport::realtime, setup.modelID);
  const auto& store = environment.credentialStore;
  const auto& connector = environment.webSocketConnector;
  if (descriptor.id == "soniox") {
    setup.provider = std::make_shared<SonioxRealtimeTranscriptionProvider>(*baseURL, descriptor.id, setup.modelID,
                                                                           TranscriptionProviderOptions{}, store, connector);
  } else if (descriptor.id == "deepgram") {
    setup.provider = std::make_shared<DeepgramRealtimeTranscriptionProvider>(
        *baseURL, descriptor.id, setup.modelID, TranscriptionProviderOptions{}, store, connector);
  } else if (descriptor.id == "stepfun") {
    setup.provider =
        std::make_shared<StepFunRealtimeTranscriptionProvider>(*baseURL, descriptor.id, setup.modelID, store, connector);
  } else if (descriptor.id == "aliyun-bailian") {
    setup.provider = std::make_shared<AliyunBailianRealtimeTranscriptionProvider>(*baseURL, descriptor.id,
                                                                                  setup.modelID, store, connector);
  } else {
    setup.provider =
        std::make_shared<OpenAIRealtimeTranscriptionProvider>(*baseURL, descriptor.id, setup.modelID, store, connector);
  }
  return setup;
}

AIProviderSetup makeAIProvider(const AIProviderChoice& choice, const ProviderEnvironment& environment) {
  auto descriptor = AIProviderRegistry::descriptor(choice.providerID);
  if (!descriptor) {
    throw ProviderSetupError(ProviderSetupError::Case::unknownProvider,
                             "There is no AI provider \"" + choice.providerID + "\".");
  }
  AIProviderSetup setup;
  setup.descriptor = *descriptor;
  setup.configuration.id = descriptor->id;
  setup.configuration.providerID = descriptor->id;
  setup.configuration.displayName = descriptor->displayName;
  setup.configuration.baseURL = baseURLOf(choice.baseURL);
  if (!setup.configuration.baseURL && !descriptor->defaultBaseURL) throw missingBaseURL(descriptor->id);
  if (choice.modelID) {
    setup.configuration.selectedModelID = choice.modelID;
    setup.configuration.modelIDs = {*choice.modelID};
  }
  setup.client = std::make_shared<HTTPChatCompletionClient>(environment.httpClient, environment.credentialStore);
  return setup;
}

}  // namespace orvid
