// The orvid command-line tool: a thin shell over the library.
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "tools/orvid/commands.h"

int main(int argc, char** argv) {
  CLI::App app{"orvid: Brindle's voice engine on the command line"};
  app.require_subcommand(1);
  orvid::cli::addDemoCommands(app);
  orvid::cli::addWavCommands(app);
  orvid::cli::addCredentialCommands(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    std::cerr << "orvid: " << error.what() << " (see orvid --help)\n";
    return error.get_exit_code() == 0 ? 2 : error.get_exit_code();
  } catch (const orvid::cli::CommandError& error) {
    std::cerr << "orvid: " << error.message << "\n";
    return 1;
  } catch (const std::exception& error) {
    std::cerr << "orvid: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
