#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/transcription_records.h"
#include "orvid/platform/bytes.h"

// The client events of OpenAI's real-time transcription service, as compact JSON
// text with sorted keys, ready to be sent as text frames.
namespace orvid::OpenAIRealtimeTranscriptionMessageBuilder {

// {"session":{"input_audio_format":"pcm16","input_audio_transcription":{"model":
// modelID[,"language"][,"prompt"]},"turn_detection":{"type":"server_vad"}},"type":
// "transcription_session.update"}. "language" is sent only when it is non-empty
// and not exactly "auto"; "prompt" only when it is non-empty. Both as given.
std::string sessionUpdate(const std::string& modelID, const std::optional<std::string>& language,
                          const std::optional<std::string>& prompt);

// {"audio": standard base64 of `pcm16LittleEndian`,"type":"input_audio_buffer.append"}.
std::string appendAudio(std::span<const std::uint8_t> pcm16LittleEndian);

// {"type":"input_audio_buffer.commit"}.
std::string commit();

}  // namespace orvid::OpenAIRealtimeTranscriptionMessageBuilder

// Reads the service's transcription events.
namespace orvid::OpenAIRealtimeTranscriptionEventParser {

// The partial result that `payload` carries, if any. The payload must be a JSON
// object (anything else gives nothing). Its text is the first stringValue() of
// "delta", "transcript", "text", "content" that gives one, and must not be empty.
// It is final when its "type" contains "completed" or "final" in any case, or
// else when boolValue() of "is_final" is true. isReplace stays absent.
std::optional<TranscriptionPartialResult> parse(const Bytes& payload);

// A string as it is (untrimmed, possibly empty); for an object, stringValue() of
// its "text", else of its "transcript"; absent for anything else.
std::optional<std::string> stringValue(const nlohmann::json* value);

// A boolean as it is; a string lower-cased (not trimmed), true for "true", "yes",
// "final" and false for "false", "no"; absent for anything else.
std::optional<bool> boolValue(const nlohmann::json* value);

}  // namespace orvid::OpenAIRealtimeTranscriptionEventParser
