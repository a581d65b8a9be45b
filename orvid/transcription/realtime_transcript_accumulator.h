#pragma once

#include <string>
#include <string_view>

// The merging rules that turn a stream of overlapping, revised and partial
// transcripts into one readable text. Texts are compared by their letters and
// digits only, folded for case, accents and width, so that a revision that
// changes punctuation or capitals is recognised as the same words.
namespace orvid::RealtimeTranscriptAccumulator {

// Combines the running text `current` with a newer hypothesis `incoming`: an
// extension or restatement of `current` wins as a whole, a hypothesis whose
// start repeats the end of `current` is appended after the repeated words, a
// revised whole of about the same length replaces `current`, and anything else
// is appended (with a space unless punctuation, white space or CJK text on
// both sides makes one unnecessary). A blank `incoming` leaves `current`.
std::string merge(std::string_view current, std::string_view incoming);

// For services whose every hypothesis covers a sliding window of recent audio:
// like merge() for extensions, restatements and overlaps; otherwise the new
// window replaces `current` unless it is less than half as long as `current`
// and shorter than 80 letters and digits, in which case `current` is kept.
std::string mergeOverlappingWindow(std::string_view current, std::string_view incoming);

// The new tentative text after an interim hypothesis `incoming`, given the text
// already committed and the tentative text shown so far. Empty when the
// hypothesis adds nothing to `committed`.
std::string ingestInterim(std::string_view committed, std::string_view currentTentative, std::string_view incoming);

}  // namespace orvid::RealtimeTranscriptAccumulator
