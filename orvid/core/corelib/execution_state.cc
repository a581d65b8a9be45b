#include "orvid/core/corelib/execution_state.h"

#include <array>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"

namespace orvid {
namespace {

constexpr std::array<std::pair<VoiceCaptureStage::Kind, const char*>, 8> kStageNames{{
    {VoiceCaptureStage::Kind::recording, "recording"},
    {VoiceCaptureStage::Kind::transcribing, "transcribing"},
    {VoiceCaptureStage::Kind::processing, "processing"},
    {VoiceCaptureStage::Kind::awaitingConfirmation, "awaitingConfirmation"},
    {VoiceCaptureStage::Kind::executing, "executing"},
    {VoiceCaptureStage::Kind::inserting, "inserting"},
    {VoiceCaptureStage::Kind::failed, "failed"},
    {VoiceCaptureStage::Kind::idle, "idle"},
}};

}  // namespace

std::string rawValue(VoiceCapturePurpose purpose) {
  return purpose == VoiceCapturePurpose::dictation ? "dictation" : "automation";
}

std::string rawValue(VoiceCaptureStage::Kind kind) {
  for (const auto& [k, name] : kStageNames) {
    if (k == kind) return name;
  }
  return "idle";
}

VoiceCaptureStage VoiceCaptureStage::recording(UUID requestID, VoiceCapturePurpose purpose) {
  return {Kind::recording, requestID, purpose, {}};
}
VoiceCaptureStage VoiceCaptureStage::transcribing(UUID requestID, VoiceCapturePurpose purpose) {
  return {Kind::transcribing, requestID, purpose, {}};
}
VoiceCaptureStage VoiceCaptureStage::processing(UUID requestID, VoiceCapturePurpose purpose) {
  return {Kind::processing, requestID, purpose, {}};
}
VoiceCaptureStage VoiceCaptureStage::awaitingConfirmation(UUID requestID) {
  return {Kind::awaitingConfirmation, requestID, std::nullopt, {}};
}
VoiceCaptureStage VoiceCaptureStage::executing(UUID requestID) { return {Kind::executing, requestID, std::nullopt, {}}; }
VoiceCaptureStage VoiceCaptureStage::inserting(UUID requestID) { return {Kind::inserting, requestID, std::nullopt, {}}; }
VoiceCaptureStage VoiceCaptureStage::failed(std::optional<UUID> requestID, std::string message) {
  return {Kind::failed, requestID, std::nullopt, std::move(message)};
}
VoiceCaptureStage VoiceCaptureStage::idle() { return {}; }

void to_json(nlohmann::json& json, const VoiceCapturePurpose& purpose) { json = rawValue(purpose); }

void from_json(const nlohmann::json& json, VoiceCapturePurpose& purpose) {
  auto text = json.get<std::string>();
  if (text == "dictation") {
    purpose = VoiceCapturePurpose::dictation;
  } else if (text == "automation") {
    purpose = VoiceCapturePurpose::automation;
  } else {
    throw nlohmann::json::other_error::create(501, "unknown capture purpose: " + text, &json);
  }
}

void to_json(nlohmann::json& json, const VoiceCaptureStage& stage) {
  json = nlohmann::json::object();
  json["kind"] = rawValue(stage.kind);
  json_support::putOptional(json, "requestID", stage.requestID);
  json_support::putOptional(json, "purpose", stage.purpose);
  if (stage.kind == VoiceCaptureStage::Kind::failed) json["message"] = stage.message;
}

void from_json(const nlohmann::json& json, VoiceCaptureStage& stage) {
  auto kind = json.at("kind").get<std::string>();
  stage = {};
  bool known = false;
  for (const auto& [k, name] : kStageNames) {
    if (kind == name) {
      stage.kind = k;
      known = true;
    }
  }
  if (!known) throw nlohmann::json::other_error::create(501, "unknown capture stage: " + kind, &json);
  json_support::getOptional(json, "requestID", stage.requestID);
  json_support::getOptional(json, "purpose", stage.purpose);
  stage.message = json.value("message", std::string());
}

void to_json(nlohmann::json& json, const OrvidExecutionState& state) {
  json = nlohmann::json::object();
  json["stage"] = state.stage;
  json_support::putOptional(json, "recognizedText", state.recognizedText);
  json_support::putOptional(json, "cleanedText", state.cleanedText);
  json_support::putOptional(json, "proposedText", state.proposedText);
  json_support::putOptional(json, "progressMessage", state.progressMessage);
  json_support::putOptional(json, "executionOutput", state.executionOutput);
  json_support::putOptional(json, "deliveredText", state.deliveredText);
  json_support::putOptional(json, "errorMessage", state.errorMessage);
}

void from_json(const nlohmann::json& json, OrvidExecutionState& state) {
  state = {};
  json.at("stage").get_to(state.stage);
  json_support::getOptional(json, "recognizedText", state.recognizedText);
  json_support::getOptional(json, "cleanedText", state.cleanedText);
  json_support::getOptional(json, "proposedText", state.proposedText);
  json_support::getOptional(json, "progressMessage", state.progressMessage);
  json_support::getOptional(json, "executionOutput", state.executionOutput);
  json_support::getOptional(json, "deliveredText", state.deliveredText);
  json_support::getOptional(json, "errorMessage", state.errorMessage);
}

}  // namespace orvid
