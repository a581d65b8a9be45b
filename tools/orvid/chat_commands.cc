// orvid chat --provider ID [--model M] [--base-url URL] [--system TEXT] [--effort E] TEXT...
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

struct ChatOptions {
  std::string provider;
  std::string model;
  std::string baseURL;
  std::string system;
  std::string effort;
  std::vector<std::string> words;
};

// What the user can do about a provider error the library detects before sending.
std::string withAdvice(const OrvidProviderError& error, const std::string& providerID) {
  switch (error.errorCase()) {
    case OrvidProviderError::Case::missingCredential:
      return std::string(error.what()) + " Store the API key with: orvid credentials set provider." + providerID +
             ".api-key";
    case OrvidProviderError::Case::missingModel:
      return std::string(error.what()) + " Pass --model MODEL.";
    case OrvidProviderError::Case::missingBaseURL:
      return std::string(error.what()) + " Pass --base-url URL.";
    default:
      return error.what();
  }
}

ChatCompletionResult chat(const ChatOptions& options) {
  AIProviderSetup provider = aiProviderSetup(options.provider, options.baseURL, "", "--base-url");
  ChatCompletionRequest request;
  request.providerID = provider.descriptor.id;
  request.modelID = options.model;
  if (!options.system.empty()) request.systemPrompt = options.system;
  for (const auto& word : options.words) request.userText += (request.userText.empty() ? "" : " ") + word;
  if (!options.effort.empty()) request.reasoningEffort = aiReasoningEffortFromRawValue(options.effort);
  try {
    InterruptScope interrupts;
    return provider.client->complete(request, provider.descriptor, provider.configuration, interrupts.token());
  } catch (const OrvidProviderError& error) {
    throw CommandError{withAdvice(error, provider.descriptor.id)};
  }
}

}  // namespace

void addChatCommands(CLI::App& app) {
  auto options = std::make_shared<ChatOptions>();
  auto* command = app.add_subcommand(
      "chat",
      "Send one message to a language model and print its reply; the API key is read from the credential store "
      "(orvid credentials set provider.<ID>.api-key; ORVID_CREDENTIAL_STORE=keyring|file picks the store)");
  command->add_option("--provider", options->provider, "An AI provider of the catalogue, e.g. openai")->required();
  command->add_option("--model", options->model, "The model to ask, e.g. gpt-4o-mini");
  command->add_option("--base-url", options->baseURL, "The provider's API base instead of the catalogue's");
  command->add_option("--system", options->system, "System instructions");
  std::vector<std::string> efforts;
  for (auto effort : allAIReasoningEfforts()) efforts.push_back(rawValue(effort));
  command->add_option("--effort", options->effort, "Reasoning effort, where the provider takes one")
      ->check(CLI::IsMember(efforts));
  command->add_option("text", options->words, "The message")->required();
  command->callback([options] {
    ChatCompletionResult result;
    try {
      result = chat(*options);
    } catch (const CommandError& error) {
      throw CommandError{redactedLine(error.message)};
    } catch (const std::exception& error) {
      throw CommandError{redactedLine(error.what())};
    }
    std::cout << result.content;
    if (result.content.empty() || result.content.back() != '\n') std::cout << "\n";
  });
}

}  // namespace orvid::cli
