#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "orvid/ai/orvid_credential_store.h"

namespace orvid {

// Credentials in the desktop keyring through the Secret Service (GNOME Keyring,
// KWallet) over the session bus. Each credential is a password item of the schema
// "org.orvid.Credential" with the attributes "service" = `service` and
// "account" = the reference, stored in the default collection as UTF-8 text; the
// "service" attribute also lists the references. Writing an existing reference
// replaces its item. Throws OrvidCredentialStoreError (secretServiceFailure with
// the keyring's error code and message).
class SecretServiceOrvidCredentialStore : public EnumerableOrvidCredentialStore {
 public:
  explicit SecretServiceOrvidCredentialStore(std::string service);

  // True when a session bus is reachable and a Secret Service runs on it or can
  // be started by it. Waits at most `timeout` for the bus to answer.
  static bool isAvailable(std::chrono::milliseconds timeout = std::chrono::milliseconds(2000));

  const std::string& service() const { return service_; }

  // Absent also when the stored text is not valid UTF-8.
  std::optional<std::string> readCredential(const std::string& reference) const override;
  void writeCredential(const std::string& value, const std::string& reference) override;
  void deleteCredential(const std::string& reference) override;
  std::vector<std::string> credentialReferences() const override;

 private:
  std::string service_;
};

}  // namespace orvid
