// orvid rewrite: one text rewritten by a language model with a built-in prompt.
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "orvid/ai/ai_provider_request_builder.h"
#include "orvid/ai/http_chat_completion_client.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/system_credential_store.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/transcription_prompt.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/textprocessing/prompt_output_parser.h"
#include "orvid/textprocessing/prompt_post_processor.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

// The service name under which `orvid credentials` keeps secrets by default.
constexpr const char* kCredentialService = "orvid";

struct RewriteOptions {
  std::string text;
  std::string prompt;
  std::string provider;
  std::optional<std::string> model;
  std::optional<std::string> baseURL;
  bool alternatives = false;
  bool stats = false;
};

std::string formatStats(const PromptPostProcessResult& result) {
  std::string line = "model " + result.modelID + ", " + std::to_string(result.elapsedMilliseconds) + " ms";
  if (result.inputTokens) line += ", " + std::to_string(*result.inputTokens) + " tokens in";
  if (result.outputTokens) line += ", " + std::to_string(*result.outputTokens) + " tokens out";
  if (result.tokensPerSecond) line += ", " + formatNumber(*result.tokensPerSecond, 1) + " tokens/s";
  return line;
}

void runRewrite(const RewriteOptions& options) {
  std::string text = options.text;
  if (text == "-") text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  TranscriptionPrompt prompt = builtInPrompt(options.prompt);
  if (options.alternatives) prompt.rewritesAsAlternatives = true;
  const AIProviderDescriptor provider = catalogueAIProvider(options.provider);

  // The configuration is named after the provider, so its API key is the one
  // stored with `orvid credentials set provider.<provider>.api-key`.
  AIProviderConfiguration configuration;
  configuration.id = provider.id;
  configuration.providerID = provider.id;
  configuration.displayName = provider.displayName;
  configuration.selectedModelID = options.model;
  if (options.model) configuration.modelIDs = {*options.model};
  if (options.baseURL) {
    configuration.baseURL = URL::parse(*options.baseURL);
    if (!configuration.baseURL) throw CommandError{"--base-url: not an absolute URL: " + *options.baseURL};
  }
  if (!configuration.baseURL && !provider.defaultBaseURL) {
    throw CommandError{"provider \"" + provider.id + "\" has no address of its own: pass --base-url"};
  }

  auto client = std::make_shared<HTTPChatCompletionClient>(std::make_shared<CurlOrvidHTTPClient>(),
                                                           makeSystemCredentialStore(kCredentialService));
  PromptPostProcessor processor(client);
  std::optional<PromptPostProcessResult> result;
  try {
    InterruptScope interrupts;
    result = processor.process(text, prompt, provider, configuration, std::nullopt, interrupts.token());
  } catch (const OrvidProviderError& error) {
    switch (error.errorCase()) {
      case OrvidProviderError::Case::missingModel:
        throw CommandError{"no model chosen: pass --model with one of the provider's models"};
      case OrvidProviderError::Case::missingCredential:
        throw CommandError{"no API key for provider \"" + provider.id + "\": store one with `orvid credentials set " +
                           AIProviderRequestBuilder::credentialReference(configuration.id, "api-key") + "`"};
      default:
        throw CommandError{provider.id + ": " + error.what()};
    }
  }
  if (!result) throw CommandError{"nothing to rewrite: the text is empty"};

  std::optional<std::vector<RewriteChoice>> choices;
  if (prompt.rewritesAsAlternatives) choices = PromptOutputParser::parseMultipleChoicesStructured(result->text, text);
  if (choices) {
    for (size_t i = 0; i < choices->size(); ++i) std::cout << (i + 1) << ". " << (*choices)[i].text << "\n";
  } else {
    std::cout << result->text << "\n";
  }
  if (options.stats) std::cerr << formatStats(*result) << "\n";
}

}  // namespace

void addRewriteCommands(CLI::App& app) {
  auto options = std::make_shared<RewriteOptions>();
  auto* rewrite = app.add_subcommand("rewrite", "Rewrite a text with a built-in prompt through a language model");
  rewrite->add_option("text", options->text, "The text to rewrite (- for standard input)")->required();
  rewrite->add_option("--prompt", options->prompt, "Built-in prompt, e.g. default_correct")->required();
  rewrite->add_option("--provider", options->provider, "AI provider from the catalogue, e.g. openai")->required();
  rewrite->add_option("--model", options->model, "Model to use");
  rewrite->add_option("--base-url", options->baseURL, "The provider's address, replacing the catalogue's");
  rewrite->add_flag("--alternatives", options->alternatives, "Ask for several alternative rewrites");
  rewrite->add_flag("--stats", options->stats, "Print the model, time and token counts on standard error");
  rewrite->callback([options] {
    try {
      runRewrite(*options);
    } catch (const CommandError& error) {
      throw CommandError{redactedLine(error.message)};
    } catch (const std::exception& error) {
      throw CommandError{redactedLine(error.what())};
    }
  });
}

}  // namespace orvid::cli
