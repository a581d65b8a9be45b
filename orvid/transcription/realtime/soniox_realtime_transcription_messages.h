#pragma once

#include <exception>
#include <optional>
#include <string>

#include "orvid/core/asr_language_route.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"

namespace orvid {

// A failure reported by Soniox's real-time service, or its silence after the end
// of the audio. what() is the user-facing message; the service's own text in it
// has its secrets redacted (SecretRedactor).
class SonioxRealtimeError : public std::exception {
 public:
  enum class Case { server, finalizationTimedOut };

  // "Soniox realtime error [<errorType>] (request <requestID>): <message>", the
  // request part only when `requestID` is given.
  static SonioxRealtimeError server(std::string errorType, std::string message, std::optional<std::string> requestID);
  // "Soniox realtime finalization timed out."
  static SonioxRealtimeError finalizationTimedOut();

  Case errorCase() const { return case_; }
  const std::string& errorType() const { return errorType_; }
  const std::string& message() const { return message_; }
  const std::optional<std::string>& requestID() const { return requestID_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  SonioxRealtimeError(Case errorCase, std::string errorType, std::string message,
                      std::optional<std::string> requestID);

  Case case_;
  std::string errorType_;
  std::string message_;
  std::optional<std::string> requestID_;
  std::string description_;
};

// The first message of a Soniox dictation, which configures the session.
namespace SonioxRealtimeStartMessageBuilder {

// Compact JSON with sorted keys: "model", "audio_format" = "pcm_s16le",
// "sample_rate", "num_channels"; "language_hints" when the route has any;
// "language_hints_strict", "enable_speaker_diarization" and
// "enable_language_identification" = true for each whose option is the Boolean
// true; and "context" with "terms" (the string option "context_terms" split at
// commas and line breaks, trimmed) and "text" (the string option
// "context_description", else `promptHint`, when non-empty). "context" is left out
// when there are no terms and no prompt hint at all.
std::string message(const std::string& modelID, const ResolvedASRLanguageRoute& languageRoute,
                    const TranscriptionProviderOptions& providerOptions, const std::optional<std::string>& promptHint,
                    int sampleRate, int channelCount);

}  // namespace SonioxRealtimeStartMessageBuilder

}  // namespace orvid
