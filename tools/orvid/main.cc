// The orvid command-line tool: a thin shell over the library.
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include "orvid/ai/secret_redactor.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace {

// Errors reach the terminal as one line with every secret-looking value masked,
// whatever the failing layer put into its message.
void printError(std::string_view message) {
  std::string line = orvid::SecretRedactor::redact(message);
  for (char& c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  std::cerr << "orvid: " << line << "\n";
}

// Work stopped by a signal ends with the shell's status for it.
int interruptedStatus() {
  const int signal = orvid::cli::InterruptWatcher::interruptingSignal();
  if (signal == 0) return 0;
  std::cerr << "orvid: interrupted\n";
  return 128 + signal;
}

}  // namespace

int main(int argc, char** argv) {
  orvid::cli::InterruptWatcher interrupts;
  CLI::App app{"orvid: Brindle's voice engine on the command line"};
  app.require_subcommand(1);
  orvid::cli::addDemoCommands(app);
  orvid::cli::addWavCommands(app);
  orvid::cli::addTranscribeCommands(app);
  orvid::cli::addListenCommands(app);
  orvid::cli::addModelsCommands(app);
  orvid::cli::addChatCommands(app);
  orvid::cli::addCleanCommands(app);
  orvid::cli::addRewriteCommands(app);
  orvid::cli::addProviderCommands(app);
  orvid::cli::addCredentialCommands(app);
  orvid::cli::addCuaCommands(app);
  orvid::cli::addAutomateCommands(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    printError(std::string(error.what()) + " (see orvid --help)");
    return error.get_exit_code() == 0 ? 2 : error.get_exit_code();
  } catch (const orvid::cli::CommandError& error) {
    if (int status = interruptedStatus()) return status;
    printError(error.message);
    return 1;
  } catch (const std::exception& error) {
    if (int status = interruptedStatus()) return status;
    printError(error.what());
    return 1;
  }
  return interruptedStatus();
}
