// orvid automate FILE.wav --provider ID [--base-url URL] [--model M] [--language xx]
//   [--rewrite-prompt ID --ai-provider ID [--ai-model M] [--ai-base-url URL]]
//   [--executable PATH] [--timeout SECONDS] [--yes]
// A recorded request becomes a computer-use instruction that cua-driver runs once
// the user has confirmed it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "orvid/ai/ai_provider_request_builder.h"
#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/automation/process_cua_driver_client.h"
#include "orvid/core/corelib/automation_records.h"
#include "orvid/core/orvid_error.h"
#include "orvid/core/orvid_transcription_coordinator.h"
#include "orvid/pipeline/orvid_automation_pipeline.h"
#include "orvid/pipeline/prompt_post_processing.h"
#include "orvid/platform/cancellation.h"
#include "orvid/textprocessing/prompt_post_processor.h"
#include "orvid/textprocessing/transcript_cleanup_engine.h"
#include "orvid/transcription/cloud_batch/cloud_batch_transcription_provider.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

struct AutomateOptions {
  std::string file;
  ServiceOptions transcription;
  std::string rewritePrompt;
  std::string aiProvider;
  std::string aiModel;
  std::string aiBaseURL;
  std::string executable;
  int timeoutSeconds = 300;
  bool yes = false;
};

// Sends every request with the language route chosen on the command line (the
// pipeline asks with an unspecified one) and turns a missing API key into advice
// on storing it.
class CommandLineTranscriptionProvider final : public TranscriptionProvider {
 public:
  CommandLineTranscriptionProvider(std::shared_ptr<TranscriptionProvider> provider, ResolvedASRLanguageRoute route)
      : provider_(std::move(provider)), route_(std::move(route)) {}

  std::string id() const override { return provider_->id(); }

  TranscriptionResult transcribe(const TranscriptionRequest& request, std::stop_token stop = {}) override {
    try {
      return provider_->transcribe(routed(request), stop);
    } catch (const OrvidProviderError& error) {
      if (error.errorCase() != OrvidProviderError::Case::missingCredential) throw;
      throw std::runtime_error(std::string(error.what()) + " Store the API key with: orvid credentials set provider." +
                               provider_->id() + ".api-key");
    }
  }

  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest& request,
                                                 std::stop_token stop = {}) override {
    return provider_->stream(routed(request), stop);
  }

 private:
  TranscriptionRequest routed(const TranscriptionRequest& request) const {
    TranscriptionRequest copy = request;
    copy.languageRoute = route_;
    return copy;
  }

  std::shared_ptr<TranscriptionProvider> provider_;
  ResolvedASRLanguageRoute route_;
};

// The rewrite through the language model, with the provider's failures named so
// that the user can act on them.
struct CommandLineRewriter {
  PromptPostProcessor processor;

  std::optional<PromptPostProcessResult> process(const std::string& cleanedTranscript,
                                                 const TranscriptionPrompt& prompt,
                                                 const AIProviderDescriptor& provider,
                                                 const AIProviderConfiguration& configuration,
                                                 const std::optional<std::string>& defaultModelID,
                                                 std::stop_token stop) const {
    try {
      return processor.process(cleanedTranscript, prompt, provider, configuration, defaultModelID, stop);
    } catch (const OrvidProviderError& error) {
      if (error.errorCase() == OrvidProviderError::Case::missingCredential) {
        throw std::runtime_error("no API key for AI provider \"" + provider.id +
                                 "\": store one with `orvid credentials set " +
                                 AIProviderRequestBuilder::credentialReference(configuration.id, "api-key") + "`");
      }
      throw std::runtime_error(provider.id + ": " + error.what());
    }
  }
};

// Where the user answers the confirmation question: standard input when it is a
// terminal (the question goes to standard error), else the controlling terminal.
class ConfirmationTerminal {
 public:
  // Absent when there is no terminal to ask on.
  static std::unique_ptr<ConfirmationTerminal> open() {
    if (::isatty(STDIN_FILENO)) {
      return std::unique_ptr<ConfirmationTerminal>(new ConfirmationTerminal(STDIN_FILENO, STDERR_FILENO, false));
    }
    int fd = ::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return nullptr;
    return std::unique_ptr<ConfirmationTerminal>(new ConfirmationTerminal(fd, fd, true));
  }

  ConfirmationTerminal(const ConfirmationTerminal&) = delete;
  ConfirmationTerminal& operator=(const ConfirmationTerminal&) = delete;
  ~ConfirmationTerminal() {
    if (owned_) ::close(readFD_);
  }

  // Asks `question` and reads one line: true for "y" or "yes" in any case; anything
  // else, and the end of input, is no.
  bool confirm(std::string_view question) {
    write(question);
    std::string answer;
    char c = 0;
    for (;;) {
      ssize_t count = ::read(readFD_, &c, 1);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) {
        write("\n");
        break;
      }
      if (c == '\n') {
        // A terminal has echoed the line end; a question written elsewhere ends here.
        if (::isatty(writeFD_) == 0) write("\n");
        break;
      }
      answer.push_back(c);
    }
    const auto first = answer.find_first_not_of(" \t\r");
    if (first == std::string::npos) return false;
    std::string word = answer.substr(first, answer.find_last_not_of(" \t\r") - first + 1);
    for (char& letter : word) {
      if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    return word == "y" || word == "yes";
  }

 private:
  ConfirmationTerminal(int readFD, int writeFD, bool owned) : readFD_(readFD), writeFD_(writeFD), owned_(owned) {}

  void write(std::string_view text) {
    while (!text.empty()) {
      ssize_t count = ::write(writeFD_, text.data(), text.size());
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return;
      text.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  int readFD_;
  int writeFD_;
  bool owned_;
};

// "label: text", later lines of a text of several lines indented under the first.
void printField(std::string_view label, std::string_view text) {
  std::cout << label << ":";
  if (text.empty()) {
    std::cout << "\n";
    return;
  }
  std::cout << " ";
  for (char c : text) {
    std::cout << c;
    if (c == '\n') std::cout << "  ";
  }
  std::cout << "\n";
}

void printProposal(const OrvidAutomationProposal& proposal) {
  printField("heard", proposal.recognizedText);
  printField("cleaned", proposal.cleanedText);
  printField("instruction", proposal.proposedInstruction);
  if (proposal.taskTitle) printField("title", *proposal.taskTitle);
  std::cout << proposal.methodDisplaySummary() << "\n";
  if (auto summary = proposal.selectedModelProviderSummary()) std::cout << *summary << "\n";
  if (proposal.promptDurationMilliseconds) {
    std::cout << "rewrite time: " << *proposal.promptDurationMilliseconds << " ms\n";
  }
  if (proposal.transcriptionConfidence) {
    std::cout << "confidence: " << std::llround(*proposal.transcriptionConfidence * 100) << "%\n";
  }
  printField("confirm", proposal.confirmationDisplayText());
  if (auto warning = proposal.lowConfidenceWarning()) std::cout << *warning << "\n";
}

// One output of the driver, redacted, each line indented; "(none)" when empty.
void printOutput(std::string_view label, const std::string& output) {
  std::string text = SecretRedactor::redact(output);
  if (text.empty()) {
    std::cout << label << ": (none)\n";
    return;
  }
  if (text.back() == '\n') text.pop_back();
  std::cout << label << ":\n  ";
  for (char c : text) {
    std::cout << c;
    if (c == '\n') std::cout << "  ";
  }
  std::cout << "\n";
}

// The rewrite of the request through a language model, when the user asked for one.
struct Rewrite {
  TranscriptionPrompt prompt;
  AIProviderSetup provider;
};

std::optional<Rewrite> rewriteFor(const AutomateOptions& options) {
  if (options.rewritePrompt.empty()) return std::nullopt;
  Rewrite rewrite{builtInPrompt(options.rewritePrompt),
                  aiProviderSetup(options.aiProvider, options.aiBaseURL, options.aiModel, "--ai-base-url")};
  if (!rewrite.provider.configuration.selectedModelID && !rewrite.prompt.modelID) {
    throw CommandError{"the rewrite needs a model: pass --ai-model with one of the provider's models"};
  }
  return rewrite;
}

// Computer use with confirmation; the model that made the instruction is the
// rewrite's, or without one the speech model whose words the instruction is.
AIAutomationConfiguration automationFor(const std::optional<Rewrite>& rewrite,
                                        const CloudTranscriptionSetup& transcription) {
  AIAutomationConfiguration automation;
  automation.computerUseEnabled = true;
  automation.method = AIAutomationMethod::computerUse;
  automation.requiresConfirmation = true;
  AIModelReference model;
  if (rewrite) {
    model.providerID = rewrite->provider.descriptor.id;
    const auto& configuration = rewrite->provider.configuration;
    model.modelID = configuration.selectedModelID ? *configuration.selectedModelID : *rewrite->prompt.modelID;
  } else {
    model.providerID = transcription.providerID;
    model.modelID = transcription.modelID;
  }
  model.displayName = model.modelID;
  automation.automationModel = model;
  return automation;
}

OrvidAutomationProposal propose(OrvidAutomationPipeline& pipeline, const std::vector<PCMFrame>& frames,
                                const std::optional<Rewrite>& rewrite, const AIAutomationConfiguration& automation,
                                const AutomateOptions& options) {
  std::optional<AIProviderDescriptor> aiProvider;
  std::optional<AIProviderConfiguration> aiConfiguration;
  if (rewrite) {
    aiProvider = rewrite->provider.descriptor;
    aiConfiguration = rewrite->provider.configuration;
  }
  try {
    InterruptScope interrupts;
    return pipeline.prepareAutomation(frames, TranscriptCleanupConfiguration{},
                                      rewrite ? rewrite->prompt : TranscriptionPrompt{}, aiProvider, aiConfiguration,
                                      automation, interrupts.token());
  } catch (const OrvidError& error) {
    if (error.errorCase() != OrvidError::Case::cuaDriverNotReady) throw;
    throw CommandError{std::string(error.what()) + " See what it reports with: orvid cua status" +
                       (options.executable.empty() ? std::string(" (cua-driver is looked up on PATH)")
                                                   : " --executable " + options.executable)};
  }
}

// Runs the confirmed proposal and prints what the driver said.
void runConfirmed(OrvidAutomationPipeline& pipeline, const OrvidAutomationProposal& proposal,
                  const AutomateOptions& options) {
  CUAExecutionResult result;
  InterruptScope interrupts;
  try {
    result = pipeline.confirmAutomation(proposal.requestID, options.timeoutSeconds, interrupts.token());
  } catch (const CUADriverClientError& error) {
    throw CommandError{"cua-driver did not finish within " + std::to_string(error.seconds()) + " s and was stopped"};
  }
  std::cout << "exit code: " << result.exitCode << "\n";
  printOutput("stdout", result.stdout);
  printOutput("stderr", result.stderr);
  std::cout << std::flush;
  if (interrupts.interrupted()) throw CancellationError();
  if (result.exitCode != 0) throw CommandError{"cua-driver exited with status " + std::to_string(result.exitCode)};
}

void runAutomate(const AutomateOptions& options) {
  std::optional<Rewrite> rewrite = rewriteFor(options);
  std::vector<std::string> candidates = cuaDriverCandidates(options.executable);
  std::vector<PCMFrame> frames = readWAVFrames(options.file);
  std::unique_ptr<ConfirmationTerminal> terminal;
  if (!options.yes) {
    terminal = ConfirmationTerminal::open();
    if (!terminal) throw CommandError{"no terminal to confirm on: run orvid automate in a terminal or pass --yes"};
  }

  CloudTranscriptionSetup transcription = transcriptionService(options.transcription);
  std::shared_ptr<PromptPostProcessing> rewriter;
  if (rewrite) {
    rewriter = std::make_shared<PromptPostProcessorAdapter<CommandLineRewriter>>(
        CommandLineRewriter{PromptPostProcessor(rewrite->provider.client)});
  }
  OrvidAutomationPipeline pipeline(
      std::make_shared<OrvidTranscriptionCoordinator>(),
      std::make_shared<CommandLineTranscriptionProvider>(transcription.provider, transcription.languageRoute),
      TranscriptCleanupEngine(), rewriter, std::make_shared<ProcessCUADriverClient>(std::move(candidates)));

  OrvidAutomationProposal proposal = propose(pipeline, frames, rewrite, automationFor(rewrite, transcription), options);
  printProposal(proposal);
  std::cout << std::flush;
  if (terminal && !terminal->confirm("Run this instruction with cua-driver? [y/N] ")) {
    pipeline.cancelAutomation(proposal.requestID);
    throw CommandError{"not confirmed; nothing was run"};
  }
  // Between the two scopes nothing runs on our behalf, so an interrupt at the
  // question simply ends the tool.
  runConfirmed(pipeline, proposal, options);
}

}  // namespace

void addAutomateCommands(CLI::App& app) {
  auto options = std::make_shared<AutomateOptions>();
  auto* automate = app.add_subcommand(
      "automate",
      "Turn a recorded request into a computer-use instruction: transcribe it with a cloud speech service, clean "
      "it (and rewrite it with a prompt), show the proposal, and run it through cua-driver once confirmed");
  automate->add_option("file", options->file, "The recorded request, a 16-bit PCM WAV file")->required();
  automate->add_option("--provider", options->transcription.provider,
                       "A cloud transcription provider of the catalogue, e.g. openai")
      ->required();
  automate->add_option("--base-url", options->transcription.baseURL, "The speech service's API base");
  automate->add_option("--model", options->transcription.model, "The speech model instead of the provider's default");
  automate->add_option("--language", options->transcription.language, "The spoken language, e.g. en or zh-Hans");
  auto* rewritePrompt =
      automate->add_option("--rewrite-prompt", options->rewritePrompt, "Rewrite the request with this built-in prompt");
  auto* aiProvider =
      automate->add_option("--ai-provider", options->aiProvider, "The AI provider of the rewrite, e.g. openai");
  rewritePrompt->needs(aiProvider);
  aiProvider->needs(rewritePrompt);
  automate->add_option("--ai-model", options->aiModel, "The rewrite's model")->needs(aiProvider);
  automate->add_option("--ai-base-url", options->aiBaseURL, "The AI provider's address, replacing the catalogue's")
      ->needs(aiProvider);
  automate->add_option("--executable", options->executable, "The cua-driver program (found on PATH otherwise)");
  automate->add_option("--timeout", options->timeoutSeconds, "Seconds cua-driver may take before it is stopped")
      ->check(CLI::Range(1, 86400))
      ->capture_default_str();
  automate->add_flag("--yes,-y", options->yes, "Run without asking for confirmation");
  automate->callback([options] {
    try {
      runAutomate(*options);
    } catch (const CommandError& error) {
      throw CommandError{redactedLine(error.message)};
    } catch (const std::exception& error) {
      throw CommandError{redactedLine(error.what())};
    }
  });
}

}  // namespace orvid::cli
