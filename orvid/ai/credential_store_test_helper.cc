// A second process for the credential store tests: performs one store operation
// and exits, so that tests can check what another process wrote.
//
//   credential_store_test_helper STORE SERVICE COMMAND [REFERENCE]
//   STORE:   file (FileOrvidCredentialStore::defaultFile()), keyring, or system
//   COMMAND: write (value from standard input), read, delete, list, available
//
// Exit status: 0 done; 3 nothing stored (read); 77 the keyring is not available;
// 1 a store error (its message on standard error); 2 bad usage.
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include "orvid/ai/file_orvid_credential_store.h"
#include "orvid/ai/secret_service_orvid_credential_store.h"
#include "orvid/ai/system_credential_store.h"

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: " << argv[0] << " STORE SERVICE COMMAND [REFERENCE]\n";
    return 2;
  }
  const std::string storeKind = argv[1];
  const std::string service = argv[2];
  const std::string command = argv[3];
  const std::string reference = argc > 4 ? argv[4] : "";

  const bool keyringAvailable = storeKind != "keyring" || orvid::SecretServiceOrvidCredentialStore::isAvailable();
  if (command == "available") return keyringAvailable ? 0 : 77;
  if (!keyringAvailable) return 77;

  std::shared_ptr<orvid::EnumerableOrvidCredentialStore> store;
  if (storeKind == "file") {
    store = std::make_shared<orvid::FileOrvidCredentialStore>(orvid::FileOrvidCredentialStore::defaultFile(), service);
  } else if (storeKind == "keyring") {
    store = std::make_shared<orvid::SecretServiceOrvidCredentialStore>(service);
  } else if (storeKind == "system") {
    store = orvid::makeSystemCredentialStore(service);
  } else {
    std::cerr << "unknown store " << storeKind << "\n";
    return 2;
  }

  try {
    if (command == "write") {
      std::string value((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
      store->writeCredential(value, reference);
    } else if (command == "read") {
      auto value = store->readCredential(reference);
      if (!value) return 3;
      std::cout << *value;
    } else if (command == "delete") {
      store->deleteCredential(reference);
    } else if (command == "list") {
      for (const auto& each : store->credentialReferences()) std::cout << each << "\n";
    } else {
      std::cerr << "unknown command " << command << "\n";
      return 2;
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
  return 0;
}
