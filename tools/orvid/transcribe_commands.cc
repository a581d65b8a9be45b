// orvid transcribe FILE.wav --provider ID [--base-url URL] [--model M] [--language xx] [--prompt TEXT]
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/ai/system_credential_store.h"
#include "orvid/core/corelib/asr_language.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/transcription/asr_language_routing_resolver.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"
#include "orvid/transcription/transcription_provider_registry.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"

namespace orvid::cli {
namespace {

struct TranscribeOptions {
  std::string file;
  std::string provider;
  std::string baseURL;
  std::string model;
  std::string language;
  std::string prompt;
};

// `text` redacted and on one line: every line end becomes a space.
std::string redactedLine(const std::string& text) {
  std::string line = SecretRedactor::redact(text);
  for (char& c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return line;
}

std::optional<std::string> nonEmpty(const std::string& text) {
  if (text.empty()) return std::nullopt;
  return text;
}

std::string transcribeFile(const TranscribeOptions& options) {
  auto descriptor = TranscriptionProviderRegistry::descriptor(options.provider);
  if (!descriptor) throw CommandError{"unknown transcription provider '" + options.provider + "'"};
  const auto* cloud = descriptor->backend.cloudDescriptor();
  if (cloud == nullptr) {
    throw CommandError{"'" + options.provider + "' runs on this machine; orvid transcribe talks to cloud services"};
  }

  std::optional<URL> baseURL = cloud->baseURL;
  if (!options.baseURL.empty()) {
    baseURL = URL::parse(options.baseURL);
    if (!baseURL || (baseURL->scheme() != "http" && baseURL->scheme() != "https")) {
      throw CommandError{"--base-url '" + options.baseURL + "' is not an http or https URL"};
    }
  }
  if (!baseURL) throw CommandError{"'" + options.provider + "' has no default address; pass --base-url URL"};
  const std::string model = options.model.empty() ? cloud->defaultModelID : options.model;

  TranscriptionRequest request;
  request.audioFrames = readWAVFrames(options.file);
  ASRLanguageSelection selection;
  if (!options.language.empty()) selection.languageCodes.push_back(options.language);
  request.languageRoute =
      ASRLanguageRoutingResolver::resolve(selection, *descriptor, ASRTranscriptionTransport::batch, model);
  if (!options.language.empty() && !request.languageRoute.providerLanguage) {
    // Asked for explicitly on the command line: sent as given even where the catalogue does not list it.
    request.languageRoute.providerLanguage = options.language;
    request.languageRoute.diagnostics.push_back("language " + options.language + " sent as given on the command line");
  }
  request.promptHint = nonEmpty(options.prompt);

  // The configuration is the catalogue entry itself: its key is "provider." + id + ".api-key".
  CloudBatchTranscriptionProvider provider(descriptor->id, *baseURL, cloud->api, descriptor->id, model,
                                           makeSystemCredentialStore("orvid"),
                                           std::make_shared<CurlOrvidHTTPClient>());
  try {
    return provider.transcribe(request).text;
  } catch (const OrvidProviderError& error) {
    if (error.errorCase() != OrvidProviderError::Case::missingCredential) throw;
    throw CommandError{std::string(error.what()) + " Store the API key with: orvid credentials set provider." +
                       descriptor->id + ".api-key"};
  }
}

}  // namespace

void addTranscribeCommands(CLI::App& app) {
  auto options = std::make_shared<TranscribeOptions>();
  auto* transcribe = app.add_subcommand(
      "transcribe",
      "Transcribe a 16-bit WAV file with a cloud speech service; the API key is read from the credential store "
      "(orvid credentials set provider.<ID>.api-key; ORVID_CREDENTIAL_STORE=keyring|file picks the store)");
  transcribe->add_option("file", options->file, "The recording, a 16-bit PCM WAV file")->required();
  transcribe->add_option("--provider", options->provider, "A transcription provider of the catalogue, e.g. openai")
      ->required();
  transcribe->add_option("--base-url", options->baseURL, "The service's API base instead of the catalogue's");
  transcribe->add_option("--model", options->model, "The model instead of the provider's default");
  transcribe->add_option("--language", options->language, "The spoken language, e.g. en or zh-Hans");
  transcribe->add_option("--prompt", options->prompt, "Context or vocabulary for the service");
  transcribe->callback([options] {
    std::string text;
    try {
      text = transcribeFile(*options);
    } catch (const CommandError& error) {
      throw CommandError{redactedLine(error.message)};
    } catch (const std::exception& error) {
      throw CommandError{redactedLine(error.what())};
    }
    std::cout << text << "\n";
  });
}

}  // namespace orvid::cli
