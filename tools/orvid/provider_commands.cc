// orvid providers [--ai] [--json] | providers validate ID [--ai] | providers models ID | route
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stop_token>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "orvid/ai/ai_model_discovery.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/core/corelib/asr_language.h"
#include "orvid/platform/joined.h"
#include "orvid/transcription/ai_provider_registry.h"
#include "orvid/transcription/asr_language_routing_resolver.h"
#include "orvid/transcription/cloud_batch/cloud_transcription_validation_client.h"
#include "orvid/transcription/transcription_provider_registry.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

struct ProviderOptions {
  bool json = false;
  bool ai = false;
  std::string provider;
  std::string languages;
  std::string transport = "batch";
  std::string model;
  std::string baseURL;
};

std::string orDash(const std::optional<std::string>& text) { return text && !text->empty() ? *text : "-"; }

// The comma-separated codes, each trimmed; empty pieces dropped.
std::vector<std::string> splitCodes(const std::string& text) {
  std::vector<std::string> codes;
  std::stringstream stream(text);
  std::string piece;
  while (std::getline(stream, piece, ',')) {
    auto begin = piece.find_first_not_of(" \t");
    if (begin == std::string::npos) continue;
    auto end = piece.find_last_not_of(" \t");
    codes.push_back(piece.substr(begin, end - begin + 1));
  }
  return codes;
}

void printCatalogue(bool json) {
  const auto& providers = TranscriptionProviderRegistry::descriptors();
  if (json) {
    std::cout << nlohmann::json(providers).dump(2) << "\n";
    return;
  }
  for (const auto& provider : providers) {
    std::cout << provider.id << "\n";
    std::cout << "  name: " << provider.name << "\n";
    std::cout << "  backend: " << rawValue(provider.backend.kind()) << "\n";
    if (const auto* cloud = provider.backend.cloudDescriptor()) {
      std::cout << "  api: " << rawValue(cloud->api) << "\n";
      std::cout << "  base URL: " << (cloud->baseURL ? cloud->baseURL->absoluteString() : "- (set by the host)")
                << "\n";
      std::cout << "  default model: " << cloud->defaultModelID << "\n";
      std::cout << "  models: " << joined(cloud->modelIDs, ", ") << "\n";
      if (cloud->realtimeBaseURL) {
        std::cout << "  realtime URL: " << cloud->realtimeBaseURL->absoluteString() << "\n";
        std::cout << "  realtime models: " << joined(cloud->realtimeModelIDs, ", ") << "\n";
      }
    } else {
      const auto& model = *provider.backend.localModel();
      std::cout << "  engine: " << rawValue(model.engineType) << " (" << rawValue(model.artifactFormat) << ")\n";
      if (model.downloadURL) {
        std::cout << "  download URL: " << model.downloadURL->absoluteString() << "\n";
      } else if (model.repositoryID) {
        std::cout << "  repository: " << *model.repositoryID << "\n";
      }
      std::cout << "  default model: " << model.id << "\n";
      std::cout << "  size: about " << model.approximateSizeMB << " MB\n";
    }
    std::cout << "  languages: " << joined(provider.supportedLanguageCodes, ",") << "\n";
  }
}

const char* yesNo(bool value) { return value ? "yes" : "no"; }

void printAICatalogue(bool json) {
  const auto& providers = AIProviderRegistry::descriptors();
  if (json) {
    std::cout << nlohmann::json(providers).dump(2) << "\n";
    return;
  }
  for (const auto& provider : providers) {
    std::cout << provider.id << "\n";
    std::cout << "  name: " << provider.displayName << "\n";
    std::cout << "  api style: " << rawValue(provider.apiStyle) << "\n";
    std::cout << "  base URL: "
              << (provider.defaultBaseURL ? provider.defaultBaseURL->absoluteString() : "- (set by the user)") << "\n";
    std::cout << "  model discovery: "
              << (provider.supportsModelDiscovery ? "yes (" + provider.modelListPath + ")" : std::string("no")) << "\n";
    std::cout << "  structured output: " << yesNo(provider.supportsStructuredOutput) << "\n";
    std::cout << "  reasoning: effort " << yesNo(provider.supportsReasoningEffort) << ", object "
              << yesNo(provider.supportsReasoningObject) << "\n";
    for (const auto& header : provider.defaultHeaders) {
      std::cout << "  header: " << header.name << ": " << header.value << "\n";
    }
  }
}

void printRoute(const ProviderOptions& options) {
  auto provider = TranscriptionProviderRegistry::descriptor(options.provider);
  if (!provider) throw CommandError{"unknown provider '" + options.provider + "' (see orvid providers)"};
  const auto transport =
      options.transport == "realtime" ? ASRTranscriptionTransport::realtime : ASRTranscriptionTransport::batch;
  const std::optional<std::string> model = options.model.empty() ? std::nullopt : std::optional(options.model);
  const ASRLanguageSelection selection{splitCodes(options.languages)};

  const auto capability = ASRLanguageCapabilityResolver::capability(*provider, transport, model);
  const auto route = ASRLanguageRoutingResolver::resolve(selection, *provider, transport, model);

  std::string capabilityText = rawValue(capability.kind);
  if (capability.kind == ASRLanguageInputCapability::Kind::singleLanguage) {
    capabilityText += " (without a selection: " + rawValue(capability.whenUnspecified) + ")";
  }
  if (capability.value) capabilityText += " [" + *capability.value + "]";

  std::cout << "provider: " << route.providerID << "\n";
  std::cout << "model: " << route.modelID.value_or("default") << "\n";
  std::cout << "transport: " << rawValue(route.transport) << "\n";
  std::cout << "capability: " << capabilityText << "\n";
  std::cout << "strategy: " << rawValue(route.strategy) << "\n";
  std::cout << "selected: " << (route.selectedLanguageCodes.empty() ? "-" : joined(route.selectedLanguageCodes, ","))
            << "\n";
  std::cout << "language: " << orDash(route.providerLanguage) << "\n";
  std::cout << "language hints: "
            << (route.providerLanguageHints.empty() ? "-" : joined(route.providerLanguageHints, ",")) << "\n";
  std::cout << "expected languages: "
            << (route.expectedLanguages.empty() ? "-" : joined(route.expectedLanguages, ",")) << "\n";
  std::cout << "cleanup language: " << orDash(route.effectivePostProcessingLanguage) << "\n";
  std::cout << "diagnostics:" << (route.diagnostics.empty() ? " -" : "") << "\n";
  for (const auto& line : route.diagnostics) std::cout << "  " << line << "\n";
  std::cout << "summary: " << route.diagnosticSummary() << "\n";
}

// Runs `work` with Ctrl-C stopping its token; every failure becomes one redacted line.
template <typename Work>
void runRedacted(const Work& work) {
  try {
    InterruptScope interrupts;
    work(interrupts.token());
  } catch (const CommandError& error) {
    throw CommandError{redactedLine(error.message)};
  } catch (const std::exception& error) {
    throw CommandError{redactedLine(error.what())};
  }
}

void printValidation(const std::string& provider, const AIProviderValidationState& state, bool json) {
  if (json) {
    std::cout << nlohmann::json{{"provider", provider}, {"state", nlohmann::json(state)}}.dump(2) << "\n";
  } else if (state.isValidated()) {
    std::cout << provider << ": validated\n";
  } else {
    std::cout << provider << ": failed: " << redactedLine(state.message.value_or("")) << "\n";
  }
  if (!state.isValidated()) throw CommandError{provider + " did not validate"};
}

// A speech-to-text provider, proven by transcribing 80 ms of silence.
void validateTranscription(const ProviderOptions& options, std::stop_token stop) {
  auto descriptor = TranscriptionProviderRegistry::descriptor(options.provider);
  if (!descriptor) throw CommandError{"unknown provider '" + options.provider + "' (see orvid providers)"};
  std::optional<std::string> model = options.model.empty() ? std::nullopt : std::optional(options.model);
  AIProviderValidationState state;
  if (descriptor->backend.cloudDescriptor() == nullptr) {
    state = AIProviderValidationState::validated(std::chrono::system_clock::now());
  } else {
    CloudTranscriptionSetup setup = transcriptionService({options.provider, options.baseURL, options.model, ""});
    auto cloud = *descriptor->backend.cloudDescriptor();
    cloud.baseURL = setup.provider->baseURL();
    descriptor->backend = TranscriptionProviderBackend::cloud(cloud);
    CloudTranscriptionValidationClient client(setup.provider->credentialStore(), setup.provider->httpClient());
    state = client.validate(*descriptor, std::nullopt, model, std::chrono::system_clock::now(), stop);
  }
  printValidation(options.provider, state, options.json);
}

// A language-model provider, proven by one tiny chat request.
void validateAI(const ProviderOptions& options, std::stop_token stop) {
  AIProviderSetup setup = aiProviderSetup(options.provider, options.baseURL, options.model, "--base-url");
  AIProviderValidationState state;
  try {
    state = AIProviderValidationClient(setup.client).validate(setup.descriptor, setup.configuration, stop);
  } catch (const OrvidProviderError& error) {
    state = AIProviderValidationState::failed(SecretRedactor::redact(error.validationFailureMessage()));
  }
  printValidation(options.provider, state, options.json);
}

void listModels(const ProviderOptions& options, std::stop_token stop) {
  AIProviderSetup setup = aiProviderSetup(options.provider, options.baseURL, "", "--base-url");
  auto environment = ProviderEnvironment::system(kCredentialService);
  HTTPAIModelDiscoveryClient client(environment.httpClient, environment.credentialStore);
  auto models = client.discoverModels(setup.descriptor, setup.configuration, stop);
  if (options.json) {
    std::cout << nlohmann::json(models).dump(2) << "\n";
    return;
  }
  for (const auto& model : models) std::cout << model.modelID << "\n";
}

}  // namespace

void addProviderCommands(CLI::App& app) {
  auto options = std::make_shared<ProviderOptions>();

  auto* providers =
      app.add_subcommand("providers", "List the speech-to-text providers and on-device models (--ai: language models)");
  providers->add_flag("--json", options->json, "print the whole catalogue as JSON");
  providers->add_flag("--ai", options->ai, "list the language-model providers instead");
  providers->callback([options, providers] {
    if (!providers->get_subcommands().empty()) return;
    if (options->ai) {
      printAICatalogue(options->json);
    } else {
      printCatalogue(options->json);
    }
  });

  auto* validate = providers->add_subcommand(
      "validate", "Check that a provider works: a speech-to-text provider transcribes 80 ms of silence (--ai: a "
                  "language model answers one tiny request); the API key is read from the credential store");
  validate->add_option("provider", options->provider, "provider identifier, as orvid providers lists it")->required();
  validate->add_flag("--ai", options->ai, "validate a language-model provider (orvid providers --ai)");
  validate->add_option("--base-url", options->baseURL, "the service's address instead of the catalogue's");
  validate->add_option("--model", options->model, "the model instead of the provider's default");
  validate->add_flag("--json", options->json, "print the validation state as JSON");
  validate->callback([options] {
    runRedacted([&](std::stop_token stop) {
      if (options->ai) {
        validateAI(*options, stop);
      } else {
        validateTranscription(*options, stop);
      }
    });
  });

  auto* models = providers->add_subcommand("models", "List the models a language-model provider offers");
  models->add_option("provider", options->provider, "AI provider identifier, as orvid providers --ai lists it")
      ->required();
  models->add_option("--base-url", options->baseURL, "the provider's address instead of the catalogue's");
  models->add_flag("--json", options->json, "print the model references as JSON");
  models->callback([options] { runRedacted([&](std::stop_token stop) { listModels(*options, stop); }); });

  auto* route = app.add_subcommand("route", "Show how a language selection reaches a provider");
  route->add_option("--provider", options->provider, "provider identifier, as orvid providers lists it")->required();
  route->add_option("--languages", options->languages, "selected language codes, comma-separated (none: automatic)");
  route->add_option("--transport", options->transport, "batch or realtime")
      ->check(CLI::IsMember({"batch", "realtime"}))
      ->capture_default_str();
  route->add_option("--model", options->model, "model identifier (default: the provider's default)");
  route->callback([options] { printRoute(*options); });
}

}  // namespace orvid::cli
