#include "orvid/transcription/live_transcription_text_accumulator.h"

#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime_transcript_accumulator.h"

namespace orvid {

std::string LiveTranscriptionTextAccumulator::ingest(const TranscriptionPartialResult& partial) {
  const std::string_view text = internal::trimUnicodeWhitespace(partial.text);
  if (text.empty()) return displayText();
  if (partial.isReplace.value_or(false)) {
    if (partial.isFinal) {
      committedText_ = text;
      tentativeText_.clear();
    } else {
      committedText_.clear();
      tentativeText_ = RealtimeTranscriptAccumulator::mergeOverlappingWindow(tentativeText_, text);
    }
  } else if (partial.isFinal) {
    committedText_ = RealtimeTranscriptAccumulator::merge(committedText_, text);
    tentativeText_.clear();
  } else {
    tentativeText_ = RealtimeTranscriptAccumulator::ingestInterim(committedText_, tentativeText_, text);
  }
  return displayText();
}

std::string LiveTranscriptionTextAccumulator::displayText() const {
  return RealtimeTranscriptAccumulator::merge(committedText_, tentativeText_);
}

void LiveTranscriptionTextAccumulator::reset() {
  committedText_.clear();
  tentativeText_.clear();
}

}  // namespace orvid
