#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "orvid/ai/orvid_credential_store.h"

namespace orvid {

// Credentials in a JSON file readable only by its owner (mode 0600, in a folder
// created with mode 0700), for machines without a desktop keyring. Values are
// grouped by `service` so that several hosts can share one file. Every change is
// a read-modify-write under an exclusive lock on "<file>.lock", and the file is
// replaced atomically, so other processes see either the old or the new file.
// Throws OrvidCredentialStoreError (fileFailure, invalidData).
class FileOrvidCredentialStore : public EnumerableOrvidCredentialStore {
 public:
  FileOrvidCredentialStore(std::filesystem::path file, std::string service);

  // "credentials.json" in UserDefaults::configDirectory().
  static std::filesystem::path defaultFile();

  const std::filesystem::path& file() const { return file_; }
  const std::string& service() const { return service_; }

  std::optional<std::string> readCredential(const std::string& reference) const override;
  void writeCredential(const std::string& value, const std::string& reference) override;
  void deleteCredential(const std::string& reference) override;
  std::vector<std::string> credentialReferences() const override;

 private:
  std::filesystem::path file_;
  std::string service_;
};

}  // namespace orvid
