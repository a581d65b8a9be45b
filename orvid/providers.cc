#include "orvid/providers.h"

#include "orvid/ai/http_chat_completion_client.h"
#include "orvid/ai/system_credential_store.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/transcription/ai_provider_registry.h"
#include "orvid/transcription/asr_language_routing_resolver.h"
#include "orvid/transcription/transcription_provider_registry.h"

namespace orvid {
namespace {

// `text` as an absolute http(s) URL; absent when not given.
std::optional<URL> httpURL(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  auto url = URL::parse(*text);
  if (!url || (url->scheme() != "http" && url->scheme() != "https")) {
    throw ProviderSetupError(ProviderSetupError::Case::invalidBaseURL,
                             "The base URL \"" + *text + "\" is not an http or https URL.");
  }
  return url;
}

ProviderSetupError missingBaseURL(const std::string& providerID) {
  return ProviderSetupError(ProviderSetupError::Case::missingBaseURL,
                            "The provider \"" + providerID + "\" has no address of its own: give it a base URL.");
}

}  // namespace

ProviderEnvironment ProviderEnvironment::system(const std::string& credentialService) {
  return {std::make_shared<CurlOrvidHTTPClient>(), makeSystemCredentialStore(credentialService)};
}

CloudTranscriptionSetup makeCloudTranscription(const CloudTranscriptionChoice& choice,
                                               const ProviderEnvironment& environment) {
  auto descriptor = TranscriptionProviderRegistry::descriptor(choice.providerID);
  if (!descriptor) {
    throw ProviderSetupError(ProviderSetupError::Case::unknownProvider,
                             "There is no transcription provider \"" + choice.providerID + "\".");
  }
  const auto* cloud = descriptor->backend.cloudDescriptor();
  if (cloud == nullptr) {
    throw ProviderSetupError(ProviderSetupError::Case::notACloudService,
                             "\"" + choice.providerID + "\" runs on this machine, not as a cloud speech service.");
  }
  std::optional<URL> baseURL = choice.baseURL ? httpURL(choice.baseURL) : cloud->baseURL;
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
  setup.configuration.baseURL = httpURL(choice.baseURL);
  if (!setup.configuration.baseURL && !descriptor->defaultBaseURL) throw missingBaseURL(descriptor->id);
  if (choice.modelID) {
    setup.configuration.selectedModelID = choice.modelID;
    setup.configuration.modelIDs = {*choice.modelID};
  }
  setup.client = std::make_shared<HTTPChatCompletionClient>(environment.httpClient, environment.credentialStore);
  return setup;
}

}  // namespace orvid
