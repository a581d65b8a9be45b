#include "orvid/automation/automation_client_error.h"

#include <utility>

namespace orvid {

AutomationClientError AutomationClientError::executableMissing(std::string name) {
  std::string message = name + " is not installed or is not executable.";
  return {Case::executableMissing, std::move(name), 0, std::move(message)};
}

AutomationClientError AutomationClientError::timedOut(int seconds) {
  return {Case::timedOut, {}, seconds, "Automation timed out after " + std::to_string(seconds) + " seconds."};
}

AutomationClientError AutomationClientError::unsupportedProposal(std::string message) {
  std::string text = message;
  return {Case::unsupportedProposal, std::move(text), 0, std::move(message)};
}

}  // namespace orvid
