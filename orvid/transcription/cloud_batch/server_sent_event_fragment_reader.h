#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "orvid/core/transcription_records.h"

namespace orvid {

// Reads an event-stream answer (GLM, StepFun) into one transcript while it arrives,
// holding no more than the line in progress and the text found so far.
//
// The body is split into lines at every line end (line feed, carriage return,
// vertical tab, form feed, next line, line and paragraph separators). Each line is
// trimmed; a "data:" prefix is dropped and the rest trimmed again; blank lines and
// "[DONE]" are skipped; the rest is read as JSON, and the text that
// CloudTranscriptionResponseParser::extractText finds in it becomes a fragment. A
// line that is not JSON (an event name, an identifier, a comment, a keep-alive) is
// skipped. Pieces may be cut anywhere, even inside a character.
class ServerSentEventFragmentReader {
 public:
  // Reads the next piece of the body.
  void append(std::span<const std::uint8_t> bytes);

  // The fragments joined by one space and trimmed, after the last line; empty when
  // the body as a whole is not UTF-8. The reader is spent afterwards.
  TranscriptionResult finish();

 private:
  void readLine(std::string_view line);

  std::string pending_;
  std::vector<std::string> fragments_;
  bool validUTF8_ = true;
};

}  // namespace orvid
