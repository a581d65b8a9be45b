#include "orvid/pipeline/orvid_automation_proposal.h"

#include <cmath>
#include <cstdio>
#include <functional>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/hash.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

std::optional<std::string> nonBlankTrimmed(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  std::string trimmed(internal::trimUnicodeWhitespace(*text));
  if (trimmed.empty()) return std::nullopt;
  return trimmed;
}

// The fraction as a whole percentage, rounded half away from zero. A decoded proposal
// may carry any double, so this never converts to an integer type.
std::string percent(double fraction) {
  double rounded = std::round(fraction * 100) + 0.0;  // + 0.0 turns -0 into 0
  char text[400];
  std::snprintf(text, sizeof text, "%.0f", rounded);
  return text;
}

}  // namespace

bool OrvidAutomationProposal::requiresLowConfidenceConfirmation() const {
  return transcriptionConfidence && *transcriptionConfidence < minimumTranscriptionConfidence;
}

std::optional<std::string> OrvidAutomationProposal::lowConfidenceWarning() const {
  if (!requiresLowConfidenceConfirmation()) return std::nullopt;
  return "Low transcription confidence: " + percent(*transcriptionConfidence) + "% is below the " +
         percent(minimumTranscriptionConfidence) +
         "% threshold. Confirm only if the request is correct.";
}

std::optional<std::string> OrvidAutomationProposal::selectedModelProviderSummary() const {
  std::optional<std::string> provider = nonBlankTrimmed(providerID);
  std::optional<std::string> model = nonBlankTrimmed(modelID);
  if (provider && model) return "Model: " + *model + " via " + *provider;
  if (provider) return "Provider: " + *provider;
  if (model) return "Model: " + *model;
  return std::nullopt;
}

std::string OrvidAutomationProposal::methodDisplaySummary() const { return "Method: " + displayName(method); }

std::optional<AutomationScriptProposal> OrvidAutomationProposal::decodedScriptProposal() const {
  if (method != AIAutomationMethod::script) return std::nullopt;
  return AutomationScriptDecoder::structuredProposal(proposedInstruction);
}

std::string OrvidAutomationProposal::confirmationDisplayText() const {
  switch (method) {
    case AIAutomationMethod::computerUse: {
      nlohmann::json instruction = nlohmann::json::parse(internal::trimUnicodeWhitespace(proposedInstruction),
                                                         nullptr, /*allow_exceptions=*/false);
      if (!instruction.is_object()) return proposedInstruction;
      if (auto summary = json_support::stringMember(instruction, "summary");
          summary && !internal::trimUnicodeWhitespace(*summary).empty()) {
        return *summary;
      }
      if (auto calls = instruction.find("calls"); calls != instruction.end() && calls->is_array() && !calls->empty()) {
        std::size_t count = calls->size();
        return "Run " + std::to_string(count) + " Computer Use action" + (count == 1 ? "" : "s") + ".";
      }
      return proposedInstruction;
    }
    case AIAutomationMethod::script:
      if (auto script = decodedScriptProposal()) return script->title;
      return proposedInstruction;
    case AIAutomationMethod::automatic:
    case AIAutomationMethod::browserUse:
      break;
  }
  return proposedInstruction;
}

void to_json(nlohmann::json& json, const OrvidAutomationProposal& proposal) {
  json = nlohmann::json::object();
  json["requestID"] = proposal.requestID;
  json["method"] = proposal.method;
  json["recognizedText"] = proposal.recognizedText;
  json["cleanedText"] = proposal.cleanedText;
  json["proposedInstruction"] = proposal.proposedInstruction;
  json_support::putOptional(json, "taskTitle", proposal.taskTitle);
  json_support::putOptional(json, "providerID", proposal.providerID);
  json_support::putOptional(json, "modelID", proposal.modelID);
  json_support::putOptional(json, "promptDurationMilliseconds", proposal.promptDurationMilliseconds);
  json_support::putOptional(json, "audioRecordingFilename", proposal.audioRecordingFilename);
  json_support::putOptional(json, "transcriptionConfidence", proposal.transcriptionConfidence);
  json["minimumTranscriptionConfidence"] = proposal.minimumTranscriptionConfidence;
  json["requiresConfirmation"] = proposal.requiresConfirmation;
}

void from_json(const nlohmann::json& json, OrvidAutomationProposal& proposal) {
  proposal = {};
  json.at("requestID").get_to(proposal.requestID);
  json_support::getIfPresent(json, "method", proposal.method);
  json.at("recognizedText").get_to(proposal.recognizedText);
  json.at("cleanedText").get_to(proposal.cleanedText);
  json.at("proposedInstruction").get_to(proposal.proposedInstruction);
  json_support::getOptional(json, "taskTitle", proposal.taskTitle);
  json_support::getOptional(json, "providerID", proposal.providerID);
  json_support::getOptional(json, "modelID", proposal.modelID);
  json_support::getOptional(json, "promptDurationMilliseconds", proposal.promptDurationMilliseconds);
  json_support::getOptional(json, "audioRecordingFilename", proposal.audioRecordingFilename);
  json_support::getOptional(json, "transcriptionConfidence", proposal.transcriptionConfidence);
  json_support::getIfPresent(json, "minimumTranscriptionConfidence", proposal.minimumTranscriptionConfidence);
  json_support::getIfPresent(json, "requiresConfirmation", proposal.requiresConfirmation);
}

}  // namespace orvid

std::size_t std::hash<orvid::OrvidAutomationProposal>::operator()(
    const orvid::OrvidAutomationProposal& proposal) const noexcept {
  return orvid::internal::hashCombinedValues(
      std::hash<decltype(proposal.requestID)>{}(proposal.requestID), proposal.method, proposal.recognizedText,
      proposal.cleanedText, proposal.proposedInstruction, proposal.taskTitle, proposal.providerID, proposal.modelID,
      proposal.promptDurationMilliseconds, proposal.audioRecordingFilename, proposal.transcriptionConfidence,
      proposal.minimumTranscriptionConfidence, proposal.requiresConfirmation);
}
