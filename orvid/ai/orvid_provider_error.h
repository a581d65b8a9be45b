#pragma once

#include <exception>
#include <string>

namespace orvid {

// The error of everything that talks to a language-model provider. what() and
// validationFailureMessage() give the user-facing message.
class OrvidProviderError : public std::exception {
 public:
  enum class Case {
    unsupportedProvider,
    missingBaseURL,
    missingModel,
    missingCredential,
    invalidResponse,
    providerNotValidated,
  };

  // `message`: a provider's identifier, or a service's own failure text with
  // secrets already redacted. The message is shown as it is.
  static OrvidProviderError unsupportedProvider(std::string message);
  static OrvidProviderError missingBaseURL();
  static OrvidProviderError missingModel();
  static OrvidProviderError missingCredential();
  static OrvidProviderError invalidResponse();
  static OrvidProviderError providerNotValidated();

  Case errorCase() const { return case_; }
  // The payload of unsupportedProvider; empty for the other cases.
  const std::string& payload() const { return payload_; }
  // The payload for unsupportedProvider, else "Missing base URL.", "Missing model.",
  // "Missing credential.", "Invalid provider response.", "Provider is not validated.".
  const std::string& validationFailureMessage() const { return message_; }
  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const OrvidProviderError& other) const {
    return case_ == other.case_ && payload_ == other.payload_;
  }

 private:
  OrvidProviderError(Case errorCase, std::string payload, std::string message)
      : case_(errorCase), payload_(std::move(payload)), message_(std::move(message)) {}

  Case case_;
  std::string payload_;
  std::string message_;
};

}  // namespace orvid
