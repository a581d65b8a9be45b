#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/corelib/automation_records.h"
#include "orvid/core/corelib/automation_script_decoder.h"
#include "orvid/platform/uuid.h"

namespace orvid {

// A spoken automation request made ready for the user's confirmation: what was
// heard, what it was cleaned to and the instruction that will run, with the
// details the host's confirmation screen shows.
struct OrvidAutomationProposal {
  UUID requestID;
  AIAutomationMethod method = AIAutomationMethod::computerUse;
  std::string recognizedText;
  std::string cleanedText;
  std::string proposedInstruction;
  std::optional<std::string> taskTitle;
  std::optional<std::string> providerID;
  std::optional<std::string> modelID;
  std::optional<long long> promptDurationMilliseconds;
  std::optional<std::string> audioRecordingFilename;
  // The transcription provider's confidence in 0…1, where it reports one.
  std::optional<double> transcriptionConfidence;
  double minimumTranscriptionConfidence = 0.55;
  bool requiresConfirmation = true;

  // A confidence is known and is below the minimum.
  bool requiresLowConfidenceConfirmation() const;

  // When requiresLowConfidenceConfirmation(): "Low transcription confidence: 42% is
  // below the 55% threshold. Confirm only if the request is correct." (percentages
  // rounded half away from zero). Absent otherwise.
  std::optional<std::string> lowConfidenceWarning() const;

  // "Model: <model> via <provider>", "Provider: <provider>" or "Model: <model>",
  // from the trimmed identifiers (blank ones count as absent); absent without either.
  std::optional<std::string> selectedModelProviderSummary() const;

  // "Method: " + the method's display name ("Auto", "Computer Use", "Browser Use",
  // "Script Automation").
  std::string methodDisplaySummary() const;

  // For the script method, the structured script proposal decoded from the
  // instruction; absent for other methods and when nothing decodes.
  std::optional<AutomationScriptProposal> decodedScriptProposal() const;

  // What the confirmation screen names as the action. Computer use: the trimmed
  // instruction read as JSON — its non-blank "summary" text, else "Run <n> Computer
  // Use action(s)." for a non-empty "calls" array, else the instruction as it is.
  // Script: the decoded proposal's title, else the instruction. Other methods: the
  // instruction.
  std::string confirmationDisplayText() const;

  bool operator==(const OrvidAutomationProposal&) const = default;
};

// Keys are the field names; absent optionals are omitted. Decoding requires
// "requestID", "recognizedText", "cleanedText" and "proposedInstruction"; a
// missing "method" reads as computer use, a missing "minimumTranscriptionConfidence"
// as 0.55 and a missing "requiresConfirmation" as true.
void to_json(nlohmann::json& json, const OrvidAutomationProposal& proposal);
void from_json(const nlohmann::json& json, OrvidAutomationProposal& proposal);

}  // namespace orvid

template <>
struct std::hash<orvid::OrvidAutomationProposal> {
  std::size_t operator()(const orvid::OrvidAutomationProposal& proposal) const noexcept;
};
