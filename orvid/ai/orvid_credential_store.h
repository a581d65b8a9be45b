#pragma once

#include <exception>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvid {

// A store of secrets (API keys and the like) by reference. References are plain
// keys; the framework's are "provider." + configuration identifier + "." + suffix,
// e.g. "provider.my-config.api-key". Every operation is synchronous.
class OrvidCredentialStore {
 public:
  virtual ~OrvidCredentialStore() = default;

  // The stored value; absent when nothing is stored under `reference`.
  virtual std::optional<std::string> readCredential(const std::string& reference) const = 0;
  // Stores `value`, replacing what was stored under `reference`.
  virtual void writeCredential(const std::string& value, const std::string& reference) = 0;
  // Removes the value; removing a missing one succeeds.
  virtual void deleteCredential(const std::string& reference) = 0;
};

// A store that can also tell which references it holds (never the values).
class EnumerableOrvidCredentialStore : public OrvidCredentialStore {
 public:
  // The references with a stored value, sorted.
  virtual std::vector<std::string> credentialReferences() const = 0;
};

// A failure of a credential store's backend. Messages never contain a secret.
class OrvidCredentialStoreError : public std::exception {
 public:
  enum class Case {
    // The desktop keyring (Secret Service) refused or failed; `code` is its error code.
    secretServiceFailure,
    // The credentials file could not be read or written.
    fileFailure,
    // A stored item exists but its payload is not a usable value.
    invalidData,
  };

  static OrvidCredentialStoreError secretServiceFailure(int code, std::string detail);
  static OrvidCredentialStoreError fileFailure(std::string detail);
  static OrvidCredentialStoreError invalidData();

  Case errorCase() const { return case_; }
  int code() const { return code_; }
  // "Keyring error <code>: <detail>", "Credentials file error: <detail>" or
  // "Stored credential data is invalid.".
  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const OrvidCredentialStoreError& other) const {
    return case_ == other.case_ && code_ == other.code_ && message_ == other.message_;
  }

 private:
  OrvidCredentialStoreError(Case errorCase, int code, std::string message)
      : case_(errorCase), code_(code), message_(std::move(message)) {}

  Case case_;
  int code_;
  std::string message_;
};

// A store in memory, for tests and previews. Copies share the same storage; every
// access is serialised by one lock. Nothing throws.
class InMemoryOrvidCredentialStore : public EnumerableOrvidCredentialStore {
 public:
  explicit InMemoryOrvidCredentialStore(std::map<std::string, std::string> initialValues = {});
  InMemoryOrvidCredentialStore(std::initializer_list<std::pair<const std::string, std::string>> initialValues)
      : InMemoryOrvidCredentialStore(std::map<std::string, std::string>(initialValues)) {}

  std::optional<std::string> readCredential(const std::string& reference) const override;
  void writeCredential(const std::string& value, const std::string& reference) override;
  void deleteCredential(const std::string& reference) override;
  std::vector<std::string> credentialReferences() const override;

 private:
  struct Storage {
    std::mutex lock;
    std::map<std::string, std::string> values;
  };
  std::shared_ptr<Storage> storage_;
};

}  // namespace orvid
