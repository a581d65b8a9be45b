#pragma once

#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/platform/uuid.h"

namespace orvid {

// Why the user is capturing speech; chosen when a recording begins.
enum class VoiceCapturePurpose { dictation, automation };

std::string rawValue(VoiceCapturePurpose purpose);

// The stage of the voice workflow. Which of `requestID`, `purpose` and `message`
// are meaningful depends on `kind`; build stages with the factories.
struct VoiceCaptureStage {
  enum class Kind {
    recording,             // requestID, purpose
    transcribing,          // requestID, purpose
    processing,            // requestID, purpose
    awaitingConfirmation,  // requestID
    executing,             // requestID
    inserting,             // requestID; entered by the host only, while it types the result
    failed,                // optional requestID, message
    idle,
  };

  Kind kind = Kind::idle;
  std::optional<UUID> requestID;
  std::optional<VoiceCapturePurpose> purpose;
  std::string message;

  static VoiceCaptureStage recording(UUID requestID, VoiceCapturePurpose purpose);
  static VoiceCaptureStage transcribing(UUID requestID, VoiceCapturePurpose purpose);
  static VoiceCaptureStage processing(UUID requestID, VoiceCapturePurpose purpose);
  static VoiceCaptureStage awaitingConfirmation(UUID requestID);
  static VoiceCaptureStage executing(UUID requestID);
  static VoiceCaptureStage inserting(UUID requestID);
  static VoiceCaptureStage failed(std::optional<UUID> requestID, std::string message);
  static VoiceCaptureStage idle();

  bool operator==(const VoiceCaptureStage&) const = default;
};

std::string rawValue(VoiceCaptureStage::Kind kind);

// What the host draws: the stage plus the texts gathered along the way.
struct OrvidExecutionState {
  VoiceCaptureStage stage;
  std::optional<std::string> recognizedText;
  std::optional<std::string> cleanedText;
  std::optional<std::string> proposedText;
  // Filled by the host only: a transient progress line, the output of the last
  // execution, and the text that was finally delivered.
  std::optional<std::string> progressMessage;
  std::optional<std::string> executionOutput;
  std::optional<std::string> deliveredText;
  std::optional<std::string> errorMessage;

  // The resting state: stage idle, every text absent.
  static OrvidExecutionState idle() { return {}; }

  bool operator==(const OrvidExecutionState&) const = default;
};

void to_json(nlohmann::json& json, const VoiceCapturePurpose& purpose);
void from_json(const nlohmann::json& json, VoiceCapturePurpose& purpose);
void to_json(nlohmann::json& json, const VoiceCaptureStage& stage);
void from_json(const nlohmann::json& json, VoiceCaptureStage& stage);
void to_json(nlohmann::json& json, const OrvidExecutionState& state);
void from_json(const nlohmann::json& json, OrvidExecutionState& state);

}  // namespace orvid
