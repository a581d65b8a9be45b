#include "orvid/core/orvid_error.h"

namespace orvid {

OrvidError OrvidError::cuaDriverNotReady(CUADriverReadiness readiness) {
  return {Case::cuaDriverNotReady, "CUA Driver is not ready (" + rawValue(readiness) + ").", readiness};
}
OrvidError OrvidError::privacyRestricted(std::string message) { return {Case::privacyRestricted, std::move(message)}; }
OrvidError OrvidError::busy() { return {Case::busy, "Voice capture or transcription is currently busy."}; }
OrvidError OrvidError::invalidTransition() {
  return {Case::invalidTransition, "Invalid state transition in Orvid workflow."};
}
OrvidError OrvidError::requestMismatch() { return {Case::requestMismatch, "Voice capture request mismatch."}; }
OrvidError OrvidError::emptyAudio() {
  return {Case::emptyAudio,
          "No audio was captured. Please hold the microphone button while speaking and ensure the remote is "
          "connected."};
}
OrvidError OrvidError::missingTranscriptionProvider() {
  return {Case::missingTranscriptionProvider, "No transcription provider is selected or configured."};
}
OrvidError OrvidError::missingAutomationModel() {
  return {Case::missingAutomationModel, "No AI model selected for automation."};
}
OrvidError OrvidError::confirmationRequired() {
  return {Case::confirmationRequired, "Automation requires confirmation."};
}
OrvidError OrvidError::unsupportedStreaming() {
  return {Case::unsupportedStreaming, "Streaming is not supported by the selected provider."};
}

}  // namespace orvid
