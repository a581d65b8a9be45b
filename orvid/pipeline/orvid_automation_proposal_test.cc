#include "orvid/pipeline/orvid_automation_proposal.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {

inline void PrintTo(const OrvidAutomationProposal& proposal, std::ostream* stream) {
  *stream << nlohmann::json(proposal).dump();
}

namespace {

const UUID kRequestID = UUID::parse("0C5C7A3E-2B7F-4D1E-9A51-3F0C2E9D4B11").value();

OrvidAutomationProposal proposal(AIAutomationMethod method, std::string instruction) {
  OrvidAutomationProposal result;
  result.requestID = kRequestID;
  result.method = method;
  result.recognizedText = "open notes";
  result.cleanedText = "Open Notes";
  result.proposedInstruction = std::move(instruction);
  return result;
}

TEST(OrvidAutomationProposalTest, WarnsAboutLowConfidenceWithRoundedPercentages) {
  struct Case { std::optional<double> confidence; double minimum; std::optional<std::string> warning; };
  const std::vector<Case> cases = {
      {0.42, 0.55,
       "Low transcription confidence: 42% is below the 55% threshold. Confirm only if the request is correct."},
      // Half a percent rounds away from zero.
      {0.125, 0.5,
       "Low transcription confidence: 13% is below the 50% threshold. Confirm only if the request is correct."},
      // A decoded proposal may hold any number: printed whole, never converted out of range.
      {-0.004, 1e20,
       "Low transcription confidence: 0% is below the 10000000000000000000000% threshold. Confirm only if the "
       "request is correct."},
      {0.55, 0.55, std::nullopt},
      {std::nullopt, 0.55, std::nullopt},
  };
  for (const Case& c : cases) {
    OrvidAutomationProposal value = proposal(AIAutomationMethod::computerUse, "x");
    value.transcriptionConfidence = c.confidence;
    value.minimumTranscriptionConfidence = c.minimum;
    EXPECT_EQ(value.requiresLowConfidenceConfirmation(), c.warning.has_value()) << c.confidence.value_or(-1);
    EXPECT_EQ(value.lowConfidenceWarning(), c.warning) << c.confidence.value_or(-1);
  }
}

TEST(OrvidAutomationProposalTest, SummarisesTheModelAndProviderFromTrimmedIdentifiers) {
  struct Case {
    std::optional<std::string> providerID;
    std::optional<std::string> modelID;
    std::optional<std::string> summary;
  };
  const std::vector<Case> cases = {
      {" openai\n", "\tgpt-4o ", "Model: gpt-4o via openai"},
      {"openai", " \n", "Provider: openai"},
      {"", "qwen3", "Model: qwen3"},
      {" ", std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    OrvidAutomationProposal value = proposal(AIAutomationMethod::computerUse, "x");
    value.providerID = c.providerID;
    value.modelID = c.modelID;
    EXPECT_EQ(value.selectedModelProviderSummary(), c.summary)
        << c.providerID.value_or("-") << " " << c.modelID.value_or("-");
  }
}

TEST(OrvidAutomationProposalTest, ConfirmationTextDependsOnTheMethodAndTheInstruction) {
  struct Case { AIAutomationMethod method; std::string instruction; std::string expected; };
  const std::string scriptJSON = R"({"title": "Tidy Downloads", "command": "rm ~/Downloads/*.dmg"})";
  const std::vector<Case> cases = {
      {AIAutomationMethod::computerUse, "\n  {\"summary\": \" Open Notes \", \"calls\": [1, 2]}  ", " Open Notes "},
      {AIAutomationMethod::computerUse, R"({"summary": " ", "calls": [{"tool": "click"}, {"tool": "type"}]})",
       "Run 2 Computer Use actions."},
      {AIAutomationMethod::computerUse, R"({"summary": 5, "calls": [{}]})", "Run 1 Computer Use action."},
      // Anything but a JSON object with a summary or calls is shown as it is.
      {AIAutomationMethod::computerUse, R"({"calls": []})", R"({"calls": []})"},
      {AIAutomationMethod::computerUse, "Open Safari {", "Open Safari {"},
      {AIAutomationMethod::script, scriptJSON, "Tidy Downloads"},
      {AIAutomationMethod::script, "no script here", "no script here"},
      {AIAutomationMethod::automatic, scriptJSON, scriptJSON},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(proposal(c.method, c.instruction).confirmationDisplayText(), c.expected) << c.instruction;
  }
}

TEST(OrvidAutomationProposalTest, DecodesAScriptProposalForTheScriptMethodOnly) {
  const std::string instruction = "Here it is:\n```json\n{\"title\": \"List\", \"command\": \"ls -la\"}\n```";
  EXPECT_EQ(proposal(AIAutomationMethod::script, instruction).decodedScriptProposal(),
            (AutomationScriptProposal{"List", "ls -la", std::nullopt}));
  EXPECT_EQ(proposal(AIAutomationMethod::computerUse, instruction).decodedScriptProposal(), std::nullopt);
  EXPECT_EQ(proposal(AIAutomationMethod::script, "plain words").decodedScriptProposal(), std::nullopt);
}

TEST(OrvidAutomationProposalTest, DecodingFillsDefaultsAndRequiresTheTexts) {
  nlohmann::json json = nlohmann::json::parse(R"({"requestID": "0C5C7A3E-2B7F-4D1E-9A51-3F0C2E9D4B11",
      "recognizedText": "a", "cleanedText": "b", "proposedInstruction": "c"})");
  OrvidAutomationProposal expected = proposal(AIAutomationMethod::computerUse, "c");
  expected.recognizedText = "a";
  expected.cleanedText = "b";
  EXPECT_EQ(json.get<OrvidAutomationProposal>(), expected);
  for (const char* required : {"requestID", "recognizedText", "cleanedText", "proposedInstruction"}) {
    nlohmann::json missing = json;
    missing.erase(required);
    EXPECT_THROW(missing.get<OrvidAutomationProposal>(), nlohmann::json::exception) << required;
  }
}

}  // namespace
}  // namespace orvid
