#pragma once

#include <exception>
#include <string>

namespace orvid {

// The error shared by the automation clients (script executor, computer-use,
// browser-use and agent clients).
class AutomationClientError : public std::exception {
 public:
  enum class Case { executableMissing, timedOut, unsupportedProposal };

  // "<name> is not installed or is not executable."
  static AutomationClientError executableMissing(std::string name);
  // "Automation timed out after <seconds> seconds."
  static AutomationClientError timedOut(int seconds);
  // The message itself.
  static AutomationClientError unsupportedProposal(std::string message);

  Case errorCase() const { return case_; }
  // The tool name of executableMissing, the message of unsupportedProposal; empty otherwise.
  const std::string& text() const { return text_; }
  // The seconds of timedOut; 0 otherwise.
  int seconds() const { return seconds_; }
  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const AutomationClientError& other) const {
    return case_ == other.case_ && text_ == other.text_ && seconds_ == other.seconds_;
  }

 private:
  AutomationClientError(Case errorCase, std::string text, int seconds, std::string message)
      : case_(errorCase), text_(std::move(text)), seconds_(seconds), message_(std::move(message)) {}

  Case case_;
  std::string text_;
  int seconds_;
  std::string message_;
};

}  // namespace orvid
