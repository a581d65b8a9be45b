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
  struct Case {
    std::optional<double> confidence;
    double minimum;
    std::optional<std::string> warning;
  };
  const std::vector<Case> cases = {
      {0.42, 0.55,
       "Low transcription confidence: 42% is below the 55% threshold. Confirm only if the request is correct."},
      {0.125, 0.5,
       "Low transcription confidence: 13% is below the 50% threshold. Confirm only if the request is correct."},
      {0.0, 0.005,
       "Low transcription confidence: 0% is below the 1% threshold. Confirm only if the request is correct."},
      {0.55, 0.55, std::nullopt},
      {0.9, 0.55, std::nullopt},
      {std::nullopt, 0.55, std::nullopt},
      {0.0, 0.0, std::nullopt},
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
      {"openai", std::nullopt, "Provider: openai"},
      {"openai", " \n", "Provider: openai"},
      {std::nullopt, "qwen3", "Model: qwen3"},
      {"", "qwen3", "Model: qwen3"},
      {" ", "", std::nullopt},
      {std::nullopt, std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    OrvidAutomationProposal value = proposal(AIAutomationMethod::computerUse, "x");
    value.providerID = c.providerID;
    value.modelID = c.modelID;
    EXPECT_EQ(value.selectedModelProviderSummary(), c.summary);
  }
}

TEST(OrvidAutomationProposalTest, NamesTheMethod) {
  const std::vector<std::pair<AIAutomationMethod, std::string>> cases = {
      {AIAutomationMethod::automatic, "Method: Auto"},
      {AIAutomationMethod::computerUse, "Method: Computer Use"},
      {AIAutomationMethod::browserUse, "Method: Browser Use"},
      {AIAutomationMethod::script, "Method: Script Automation"},
  };
  for (const auto& [method, summary] : cases) {
    EXPECT_EQ(proposal(method, "x").methodDisplaySummary(), summary);
  }
}

TEST(OrvidAutomationProposalTest, ConfirmationTextDependsOnTheMethodAndTheInstruction) {
  struct Case {
    AIAutomationMethod method;
    std::string instruction;
    std::string expected;
  };
  const std::string scriptJSON = R"({"title": "Tidy Downloads", "command": "rm ~/Downloads/*.dmg"})";
  const std::vector<Case> cases = {
      {AIAutomationMethod::computerUse, "\n  {\"summary\": \" Open Notes \", \"calls\": [1, 2]}  ", " Open Notes "},
      {AIAutomationMethod::computerUse, R"({"summary": " ", "calls": [{"tool": "click"}, {"tool": "type"}]})",
       "Run 2 Computer Use actions."},
      {AIAutomationMethod::computerUse, R"({"summary": 5, "calls": [{}]})", "Run 1 Computer Use action."},
      {AIAutomationMethod::computerUse, R"({"calls": []})", R"({"calls": []})"},
      {AIAutomationMethod::computerUse, R"({"calls": {"a": 1}})", R"({"calls": {"a": 1}})"},
      {AIAutomationMethod::computerUse, R"(["summary"])", R"(["summary"])"},
      {AIAutomationMethod::computerUse, "Open Safari {", "Open Safari {"},
      {AIAutomationMethod::script, scriptJSON, "Tidy Downloads"},
      {AIAutomationMethod::script, "no script here", "no script here"},
      {AIAutomationMethod::browserUse, R"({"summary": "Search"})", R"({"summary": "Search"})"},
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

TEST(OrvidAutomationProposalTest, SerialisesWithFieldNamesOmittingAbsentOptionals) {
  OrvidAutomationProposal full = proposal(AIAutomationMethod::script, "run it");
  full.taskTitle = "Run";
  full.providerID = "openai";
  full.modelID = "gpt-4o";
  full.promptDurationMilliseconds = 812;
  full.audioRecordingFilename = "request.wav";
  full.transcriptionConfidence = 0.5;
  full.minimumTranscriptionConfidence = 0.6;
  full.requiresConfirmation = false;
  nlohmann::json encoded = full;
  EXPECT_EQ(encoded, nlohmann::json::parse(R"({
      "requestID": "0C5C7A3E-2B7F-4D1E-9A51-3F0C2E9D4B11", "method": "script", "recognizedText": "open notes",
      "cleanedText": "Open Notes", "proposedInstruction": "run it", "taskTitle": "Run", "providerID": "openai",
      "modelID": "gpt-4o", "promptDurationMilliseconds": 812, "audioRecordingFilename": "request.wav",
      "transcriptionConfidence": 0.5, "minimumTranscriptionConfidence": 0.6, "requiresConfirmation": false})"));
  EXPECT_EQ(encoded.get<OrvidAutomationProposal>(), full);

  OrvidAutomationProposal minimal = proposal(AIAutomationMethod::browserUse, "go");
  nlohmann::json minimalJSON = minimal;
  for (const char* key : {"taskTitle", "providerID", "modelID", "promptDurationMilliseconds", "audioRecordingFilename",
                          "transcriptionConfidence"}) {
    EXPECT_FALSE(minimalJSON.contains(key)) << key;
  }
  EXPECT_EQ(minimalJSON.get<OrvidAutomationProposal>(), minimal);
}

TEST(OrvidAutomationProposalTest, DecodingFillsDefaultsAndRequiresTheTexts) {
  nlohmann::json json = nlohmann::json::parse(R"({"requestID": "0C5C7A3E-2B7F-4D1E-9A51-3F0C2E9D4B11",
      "recognizedText": "a", "cleanedText": "b", "proposedInstruction": "c"})");
  OrvidAutomationProposal decoded = json.get<OrvidAutomationProposal>();
  EXPECT_EQ(decoded.method, AIAutomationMethod::computerUse);
  EXPECT_EQ(decoded.minimumTranscriptionConfidence, 0.55);
  EXPECT_TRUE(decoded.requiresConfirmation);
  EXPECT_EQ(decoded.taskTitle, std::nullopt);
  EXPECT_EQ(decoded.proposedInstruction, "c");
  for (const char* required : {"requestID", "recognizedText", "cleanedText", "proposedInstruction"}) {
    nlohmann::json missing = json;
    missing.erase(required);
    EXPECT_THROW(missing.get<OrvidAutomationProposal>(), nlohmann::json::exception) << required;
  }
}

TEST(OrvidAutomationProposalTest, EqualProposalsHashAlike) {
  OrvidAutomationProposal a = proposal(AIAutomationMethod::computerUse, "x");
  OrvidAutomationProposal b = a;
  EXPECT_EQ(std::hash<OrvidAutomationProposal>{}(a), std::hash<OrvidAutomationProposal>{}(b));
  b.transcriptionConfidence = 0.3;
  EXPECT_NE(a, b);
  EXPECT_NE(std::hash<OrvidAutomationProposal>{}(a), std::hash<OrvidAutomationProposal>{}(b));
}

}  // namespace
}  // namespace orvid
