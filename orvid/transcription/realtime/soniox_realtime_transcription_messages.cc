#include "orvid/transcription/realtime/soniox_realtime_transcription_messages.h"

#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "orvid/ai/secret_redactor.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"

namespace orvid {

SonioxRealtimeError::SonioxRealtimeError(Case errorCase, std::string errorType, std::string message,
                                         std::optional<std::string> requestID)
    : case_(errorCase),
      errorType_(std::move(errorType)),
      message_(std::move(message)),
      requestID_(std::move(requestID)) {
  if (case_ == Case::finalizationTimedOut) {
    description_ = "Soniox realtime finalization timed out.";
    return;
  }
  std::string description = "Soniox realtime error [" + errorType_ + "]";
  if (requestID_) description += " (request " + *requestID_ + ")";
  description += ": " + message_;
  description_ = SecretRedactor::redact(description);
}

SonioxRealtimeError SonioxRealtimeError::server(std::string errorType, std::string message,
                                                std::optional<std::string> requestID) {
  return SonioxRealtimeError(Case::server, std::move(errorType), std::move(message), std::move(requestID));
}

SonioxRealtimeError SonioxRealtimeError::finalizationTimedOut() {
  return SonioxRealtimeError(Case::finalizationTimedOut, "", "", std::nullopt);
}

namespace SonioxRealtimeStartMessageBuilder {
namespace {

// The trimmed text of the string option `key`; absent when it is not a non-blank string.
std::optional<std::string> optionString(std::string_view key, const TranscriptionProviderOptions& options) {
  auto found = options.find(std::string(key));
  if (found == options.end()) return std::nullopt;
  std::optional<std::string> text = found->second.textValue();
  if (!text) return std::nullopt;
  std::string trimmed(internal::trimUnicodeWhitespace(*text));
  if (trimmed.empty()) return std::nullopt;
  return trimmed;
}

std::vector<std::string> contextTerms(const std::string& text) {
  std::vector<std::string> terms;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find_first_of(",\n", start);
    if (end == std::string::npos) end = text.size();
    std::string_view piece = internal::trimUnicodeWhitespace(std::string_view(text).substr(start, end - start));
    if (!piece.empty()) terms.emplace_back(piece);
    start = end + 1;
  }
  return terms;
}

}  // namespace

std::string message(const std::string& modelID, const ResolvedASRLanguageRoute& languageRoute,
                    const TranscriptionProviderOptions& providerOptions, const std::optional<std::string>& promptHint,
                    int sampleRate, int channelCount) {
  nlohmann::json start = {
      {"model", modelID},
      {"audio_format", "pcm_s16le"},
      {"sample_rate", sampleRate},
      {"num_channels", channelCount},
  };
  if (!languageRoute.providerLanguageHints.empty()) start["language_hints"] = languageRoute.providerLanguageHints;
  static constexpr std::array<std::string_view, 3> kFlags = {
      "language_hints_strict", "enable_speaker_diarization", "enable_language_identification"};
  for (std::string_view flag : kFlags) {
    auto found = providerOptions.find(std::string(flag));
    if (found != providerOptions.end() && found->second.booleanValue() == true) start[std::string(flag)] = true;
  }

  std::vector<std::string> terms;
  if (auto termsText = optionString("context_terms", providerOptions)) terms = contextTerms(*termsText);
  std::optional<std::string> contextText = optionString("context_description", providerOptions);
  if (!contextText) contextText = promptHint;
  if (!terms.empty() || contextText) {
    nlohmann::json context = nlohmann::json::object();
    if (!terms.empty()) context["terms"] = terms;
    if (contextText && !contextText->empty()) context["text"] = *contextText;
    start["context"] = std::move(context);
  }
  return RealtimeJSON::encode(start);
}

}  // namespace SonioxRealtimeStartMessageBuilder

}  // namespace orvid
