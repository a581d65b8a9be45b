#pragma once

#include <memory>
#include <string>

#include "orvid/ai/orvid_credential_store.h"

namespace orvid {

// The credential store of the current user on this machine, for `service` (the
// host's name for its credentials):
// - the desktop keyring (SecretServiceOrvidCredentialStore) when the session bus
//   offers a Secret Service;
// - otherwise the owner-only credentials file (FileOrvidCredentialStore) at
//   FileOrvidCredentialStore::defaultFile().
// The environment variable ORVID_CREDENTIAL_STORE set to "keyring" or "file"
// forces one of the two.
std::shared_ptr<EnumerableOrvidCredentialStore> makeSystemCredentialStore(const std::string& service);

}  // namespace orvid
