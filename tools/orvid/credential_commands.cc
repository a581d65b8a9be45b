// orvid credentials set | delete | list
#include <termios.h>
#include <unistd.h>

#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "orvid/ai/file_orvid_credential_store.h"
#include "orvid/ai/secret_service_orvid_credential_store.h"
#include "orvid/ai/system_credential_store.h"
#include "tools/orvid/commands.h"

namespace orvid::cli {
namespace {

struct CredentialOptions {
  std::string service = kCredentialService;
  std::string store = "auto";
  std::string reference;
};

std::shared_ptr<EnumerableOrvidCredentialStore> openStore(const CredentialOptions& options) {
  if (options.store == "keyring") {
    if (!SecretServiceOrvidCredentialStore::isAvailable()) {
      throw CommandError{"no desktop keyring (Secret Service) is reachable on the session bus"};
    }
    return std::make_shared<SecretServiceOrvidCredentialStore>(options.service);
  }
  if (options.store == "file") {
    return std::make_shared<FileOrvidCredentialStore>(FileOrvidCredentialStore::defaultFile(), options.service);
  }
  return makeSystemCredentialStore(options.service);
}

std::string checkedReference(const std::string& reference) {
  if (reference.empty() || reference.find_first_of(" \t\r\n") != std::string::npos) {
    throw CommandError{"a credential reference is one word, e.g. provider.my-config.api-key"};
  }
  return reference;
}

// The secret from standard input: typed without echo on a terminal, otherwise
// everything piped in, without one final line end.
std::string readSecret(const std::string& reference) {
  std::string secret;
  if (::isatty(STDIN_FILENO)) {
    std::cerr << "Secret for " << reference << ": " << std::flush;
    termios original{};
    const bool canHide = ::tcgetattr(STDIN_FILENO, &original) == 0;
    if (canHide) {
      termios hidden = original;
      hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    std::getline(std::cin, secret);
    if (canHide) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &original);
    std::cerr << "\n";
  } else {
    secret.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    if (!secret.empty() && secret.back() == '\n') secret.pop_back();
    if (!secret.empty() && secret.back() == '\r') secret.pop_back();
  }
  if (secret.empty()) throw CommandError{"no secret on standard input"};
  return secret;
}

}  // namespace

void addCredentialCommands(CLI::App& app) {
  auto options = std::make_shared<CredentialOptions>();
  auto* credentials = app.add_subcommand("credentials", "Store, remove and list API keys and other secrets");
  credentials->require_subcommand(1);
  credentials->add_option("--service", options->service, "Name under which the secrets are kept")
      ->capture_default_str();
  credentials->add_option("--store", options->store,
                          "auto: the desktop keyring when available, else the owner-only credentials file")
      ->check(CLI::IsMember({"auto", "keyring", "file"}))
      ->capture_default_str();

  auto* set = credentials->add_subcommand("set", "Store the secret read from standard input under REFERENCE");
  set->add_option("reference", options->reference, "e.g. provider.my-config.api-key")->required();
  set->callback([options] {
    const auto reference = checkedReference(options->reference);
    auto store = openStore(*options);
    store->writeCredential(readSecret(reference), reference);
    std::cout << "Stored " << reference << ".\n";
  });

  auto* remove = credentials->add_subcommand("delete", "Remove the secret stored under REFERENCE");
  remove->add_option("reference", options->reference, "e.g. provider.my-config.api-key")->required();
  remove->callback([options] {
    const auto reference = checkedReference(options->reference);
    openStore(*options)->deleteCredential(reference);
    std::cout << "Deleted " << reference << ".\n";
  });

  auto* list = credentials->add_subcommand("list", "Print the references that have a stored secret (never the secrets)");
  list->callback([options] {
    for (const auto& reference : openStore(*options)->credentialReferences()) std::cout << reference << "\n";
  });
}

}  // namespace orvid::cli
