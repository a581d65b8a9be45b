#include "orvid/ai/orvid_credential_store.h"

namespace orvid {

OrvidCredentialStoreError OrvidCredentialStoreError::secretServiceFailure(int code, std::string detail) {
  return OrvidCredentialStoreError(Case::secretServiceFailure, code,
                                   "Keyring error " + std::to_string(code) + ": " + detail);
}

OrvidCredentialStoreError OrvidCredentialStoreError::fileFailure(std::string detail) {
  return OrvidCredentialStoreError(Case::fileFailure, 0, "Credentials file error: " + detail);
}

OrvidCredentialStoreError OrvidCredentialStoreError::invalidData() {
  return OrvidCredentialStoreError(Case::invalidData, 0, "Stored credential data is invalid.");
}

InMemoryOrvidCredentialStore::InMemoryOrvidCredentialStore(std::map<std::string, std::string> initialValues)
    : storage_(std::make_shared<Storage>()) {
  storage_->values = std::move(initialValues);
}

std::optional<std::string> InMemoryOrvidCredentialStore::readCredential(const std::string& reference) const {
  std::lock_guard guard(storage_->lock);
  auto it = storage_->values.find(reference);
  if (it == storage_->values.end()) return std::nullopt;
  return it->second;
}

void InMemoryOrvidCredentialStore::writeCredential(const std::string& value, const std::string& reference) {
  std::lock_guard guard(storage_->lock);
  storage_->values[reference] = value;
}

void InMemoryOrvidCredentialStore::deleteCredential(const std::string& reference) {
  std::lock_guard guard(storage_->lock);
  storage_->values.erase(reference);
}

std::vector<std::string> InMemoryOrvidCredentialStore::credentialReferences() const {
  std::lock_guard guard(storage_->lock);
  std::vector<std::string> references;
  references.reserve(storage_->values.size());
  for (const auto& entry : storage_->values) references.push_back(entry.first);
  return references;
}

}  // namespace orvid
