#pragma once

#include <string>

namespace CLI {
class App;
}

namespace orvid::cli {

// Each group of subcommands registers itself on the root command.
void addWavCommands(CLI::App& app);
void addDemoCommands(CLI::App& app);
void addCredentialCommands(CLI::App& app);
void addTranscribeCommands(CLI::App& app);
void addListenCommands(CLI::App& app);
void addChatCommands(CLI::App& app);
void addProviderCommands(CLI::App& app);
void addCleanCommands(CLI::App& app);
void addRewriteCommands(CLI::App& app);
void addCuaCommands(CLI::App& app);
void addAutomateCommands(CLI::App& app);
void addModelsCommands(CLI::App& app);

// The credential store's service name: API keys live under it.
inline constexpr const char* kCredentialService = "orvid";

// A failure the user can act on: printed as one line on stderr, exit status 1.
struct CommandError {
  std::string message;
};

}  // namespace orvid::cli
