#include "orvid/ai/system_credential_store.h"

#include <cstdlib>
#include <string_view>

#include "orvid/ai/file_orvid_credential_store.h"
#include "orvid/ai/secret_service_orvid_credential_store.h"

namespace orvid {

std::shared_ptr<EnumerableOrvidCredentialStore> makeSystemCredentialStore(const std::string& service) {
  const char* forced = std::getenv("ORVID_CREDENTIAL_STORE");
  const std::string_view choice = forced ? forced : "";
  const bool useKeyring = choice == "keyring" || (choice != "file" && SecretServiceOrvidCredentialStore::isAvailable());
  if (useKeyring) return std::make_shared<SecretServiceOrvidCredentialStore>(service);
  return std::make_shared<FileOrvidCredentialStore>(FileOrvidCredentialStore::defaultFile(), service);
}

}  // namespace orvid
