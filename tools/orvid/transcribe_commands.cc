// orvid transcribe FILE.wav --provider ID [--base-url URL] [--model M] [--language xx] [--prompt TEXT]
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

struct TranscribeOptions {
  std::string file;
  ServiceOptions service;
  std::string prompt;
};

std::string transcribeFile(const TranscribeOptions& options) {
  CloudTranscriptionSetup setup = transcriptionService(options.service);
  TranscriptionRequest request;
  request.audioFrames = readWAVFrames(options.file);
  request.languageRoute = setup.languageRoute;
  if (!options.prompt.empty()) {
    request.promptHint = options.prompt;
    // Soniox and Mistral read vocabulary from options of their own (split at commas).
    request.providerOptions["context_terms"] = TranscriptionProviderOptionValue::text(options.prompt);
    request.providerOptions["context_bias"] = TranscriptionProviderOptionValue::text(options.prompt);
  }
  try {
    InterruptScope interrupts;
    return setup.provider->transcribe(request, interrupts.token()).text;
  } catch (const OrvidProviderError& error) {
    if (error.errorCase() != OrvidProviderError::Case::missingCredential) throw;
    throw CommandError{std::string(error.what()) + " Store the API key with: orvid credentials set provider." +
                       setup.providerID + ".api-key"};
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
  transcribe->add_option("--provider", options->service.provider, "A transcription provider of the catalogue, e.g. openai, deepgram, soniox")
      ->required();
  transcribe->add_option("--base-url", options->service.baseURL, "The service's API base instead of the catalogue's");
  transcribe->add_option("--model", options->service.model, "The model instead of the provider's default");
  transcribe->add_option("--language", options->service.language, "The spoken language, e.g. en or zh-Hans");
  transcribe->add_option("--prompt", options->prompt,
                         "Context or vocabulary for the service, e.g. dictionary terms separated by commas");
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
