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
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/transcription_prompt.h"
#include "orvid/textprocessing/prompt_output_parser.h"
#include "orvid/textprocessing/prompt_post_processor.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

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
  AIProviderSetup setup =
      aiProviderSetup(options.provider, options.baseURL.value_or(""), options.model.value_or(""), "--base-url");
  const AIProviderDescriptor& provider = setup.descriptor;
  const AIProviderConfiguration& configuration = setup.configuration;
  PromptPostProcessor processor(setup.client);
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
