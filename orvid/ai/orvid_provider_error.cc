#include "orvid/ai/orvid_provider_error.h"

namespace orvid {

OrvidProviderError OrvidProviderError::unsupportedProvider(std::string message) {
  std::string text = message;
  return OrvidProviderError(Case::unsupportedProvider, std::move(message), std::move(text));
}

OrvidProviderError OrvidProviderError::missingBaseURL() {
  return OrvidProviderError(Case::missingBaseURL, "", "Missing base URL.");
}

OrvidProviderError OrvidProviderError::missingModel() {
  return OrvidProviderError(Case::missingModel, "", "Missing model.");
}

OrvidProviderError OrvidProviderError::missingCredential() {
  return OrvidProviderError(Case::missingCredential, "", "Missing credential.");
}

OrvidProviderError OrvidProviderError::invalidResponse() {
  return OrvidProviderError(Case::invalidResponse, "", "Invalid provider response.");
}

OrvidProviderError OrvidProviderError::providerNotValidated() {
  return OrvidProviderError(Case::providerNotValidated, "", "Provider is not validated.");
}

}  // namespace orvid
