#pragma once

#include <string>

#include "orvid/core/transcription_records.h"

namespace orvid {

// The live text of one streamed transcription: what the service has declared
// final (committed) followed by its latest interim hypothesis not yet covered by
// it (tentative). A plain value without locking; its owner serialises its use.
class LiveTranscriptionTextAccumulator {
 public:
  // Folds one partial result in and returns the new displayText(). A final
  // partial that replaces becomes the whole committed text; a final one that
  // extends is merged into it; an interim one that replaces starts a new
  // tentative window over an empty committed text; any other interim one becomes
  // the tentative text. A partial that is blank once trimmed changes nothing.
  std::string ingest(const TranscriptionPartialResult& partial);

  // The committed text merged with the tentative text.
  std::string displayText() const;

  const std::string& committedText() const { return committedText_; }
  const std::string& tentativeText() const { return tentativeText_; }

  // Empties both texts.
  void reset();

  bool operator==(const LiveTranscriptionTextAccumulator&) const = default;

 private:
  std::string committedText_;
  std::string tentativeText_;
};

}  // namespace orvid
