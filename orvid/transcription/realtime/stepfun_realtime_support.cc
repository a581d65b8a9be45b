#include "orvid/transcription/realtime/stepfun_realtime_support.h"

#include <nlohmann/json.hpp>

#include "orvid/platform/base64.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/uuid.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"
#include "orvid/transcription/realtime/internal/realtime_language_support.h"

namespace orvid::StepFunRealtimeSupport {

std::string eventID() { return internal::lowercaseASCII(UUID::random().uuidString()); }

std::string sessionUpdate(const std::string& modelID, const std::optional<std::string>& language,
                          const std::optional<std::string>& prompt) {
  nlohmann::json transcription = {
      {"model", modelID},
      {"language", RealtimeLanguageSupport::normalized(language).value_or("zh")},
      {"enable_itn", true},
      {"full_rerun_on_commit", true},
  };
  if (prompt && !prompt->empty()) transcription["prompt"] = *prompt;
  nlohmann::json input = {
      {"format", {{"type", "pcm"}, {"codec", "pcm_s16le"}, {"rate", 16000}, {"bits", 16}, {"channel", 1}}},
      {"transcription", std::move(transcription)},
      {"turn_detection", {{"type", "server_vad"}, {"silence_duration_ms", 800}, {"threshold", 0.5}}},
  };
  return RealtimeJSON::encode({{"event_id", eventID()},
                               {"type", "session.update"},
                               {"session", {{"audio", {{"input", std::move(input)}}}}}});
}

std::string appendAudio(std::span<const std::uint8_t> pcm16LittleEndian) {
  return RealtimeJSON::encode(
      {{"event_id", eventID()}, {"type", "input_audio_buffer.append"}, {"audio", Base64::encode(pcm16LittleEndian)}});
}

std::string commit() { return RealtimeJSON::encode({{"event_id", eventID()}, {"type", "input_audio_buffer.commit"}}); }

}  // namespace orvid::StepFunRealtimeSupport
