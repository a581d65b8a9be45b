#pragma once

#include <exception>
#include <string>

#include "orvid/core/corelib/cua_driver_status.h"

namespace orvid {

// The framework's top-level error. what() is the user-facing message; errorCase()
// and the payload accessors tell the cases apart.
class OrvidError : public std::exception {
 public:
  enum class Case {
    cuaDriverNotReady,
    privacyRestricted,
    busy,
    invalidTransition,
    requestMismatch,
    emptyAudio,
    missingTranscriptionProvider,
    missingAutomationModel,
    confirmationRequired,
    unsupportedStreaming,
  };

  static OrvidError cuaDriverNotReady(CUADriverReadiness readiness);
  static OrvidError privacyRestricted(std::string message);
  static OrvidError busy();
  static OrvidError invalidTransition();
  static OrvidError requestMismatch();
  static OrvidError emptyAudio();
  static OrvidError missingTranscriptionProvider();
  static OrvidError missingAutomationModel();
  static OrvidError confirmationRequired();
  static OrvidError unsupportedStreaming();

  Case errorCase() const { return case_; }
  // The readiness of cuaDriverNotReady; notInstalled for the other cases.
  CUADriverReadiness readiness() const { return readiness_; }
  const char* what() const noexcept override { return message_.c_str(); }

  // Compares case and payload.
  bool operator==(const OrvidError& other) const {
    return case_ == other.case_ && readiness_ == other.readiness_ && message_ == other.message_;
  }

 private:
  OrvidError(Case errorCase, std::string message, CUADriverReadiness readiness = CUADriverReadiness::notInstalled)
      : case_(errorCase), readiness_(readiness), message_(std::move(message)) {}

  Case case_;
  CUADriverReadiness readiness_;
  std::string message_;
};

}  // namespace orvid
