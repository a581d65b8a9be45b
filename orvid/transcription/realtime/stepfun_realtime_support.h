#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

// The client events of StepFun's real-time transcription service, as compact JSON
// text with sorted keys, each with a fresh "event_id" (a random UUID, lower case).
namespace orvid::StepFunRealtimeSupport {

// "session.update" with "session.audio.input": "format" (pcm_s16le at 16 kHz, 16
// bits, one channel), "transcription" ("model", "language" = the normalised
// `language` or "zh", "enable_itn" and "full_rerun_on_commit" true, "prompt" when
// non-empty) and "turn_detection" (server VAD, 800 ms of silence, threshold 0.5).
std::string sessionUpdate(const std::string& modelID, const std::optional<std::string>& language,
                          const std::optional<std::string>& prompt);

// "input_audio_buffer.append" with "audio" = standard base64 of `pcm16LittleEndian`.
std::string appendAudio(std::span<const std::uint8_t> pcm16LittleEndian);

// "input_audio_buffer.commit".
std::string commit();

// A fresh event identifier: a random UUID in its hyphenated form, lower case.
std::string eventID();

}  // namespace orvid::StepFunRealtimeSupport
