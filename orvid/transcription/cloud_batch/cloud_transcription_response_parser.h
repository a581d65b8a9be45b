#pragma once

#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/transcription_records.h"
#include "orvid/platform/bytes.h"

namespace orvid {

// Reads a speech service's answer of any loose shape into a transcript. Stateless.
class CloudTranscriptionResponseParser {
 public:
  // The transcript of `data`, never failing:
  // - when the body is a JSON object or array, the text is extractText of it, and
  //   an object's "language" (a string) and "confidence" (a number) are taken over;
  // - otherwise (plain text, a bare JSON scalar, no known text member) the text is
  //   the whole body as UTF-8, or empty when it is not UTF-8.
  // The text is trimmed of white space and line ends; effectiveLanguage and
  // providerDiagnostics are absent.
  TranscriptionResult parse(const Bytes& data) const;

  // The first usable text in a loosely shaped JSON value, trimmed; absent when none:
  // - a string: itself, when not blank;
  // - an object: the first non-blank string among "text", "transcript",
  //   "transcription", "utterance", "result_text"; then the first member among
  //   "result", "results", "data", "message", "output", "content", "choices",
  //   "alternatives", "segments", "utterances" that yields text by these rules;
  // - an array: the first element that yields text;
  // - anything else: nothing.
  // Values nested deeper than 256 levels yield nothing.
  static std::optional<std::string> extractText(const nlohmann::json& value);

  // Deepgram's answer: results.channels[0].alternatives[0]'s "transcript" (not
  // trimmed; empty when missing) and "confidence"; the language is the first string
  // "detected_language" on that alternative, then on the first channel, then on
  // "results". A JSON body of another shape gives an empty transcript. Throws
  // OrvidProviderError::invalidResponse when the body is not a JSON object or array
  // (the error never quotes the body).
  TranscriptionResult parseDeepgram(const Bytes& data) const;

  // An event-stream body read whole into one transcript, as
  // ServerSentEventFragmentReader reads it piece by piece; never fails.
  TranscriptionResult parseStreamFragments(const Bytes& data) const;

  bool operator==(const CloudTranscriptionResponseParser&) const = default;
};

}  // namespace orvid
