#pragma once

#include <chrono>

#include "orvid/core/corelib/local_transcription_model.h"

namespace orvid {

// The pacing of an adaptive preview session: how often the buffered audio is
// re-transcribed, how much audio a pass needs, and how much of it a pass decodes.
struct LocalRealtimePreviewPolicy {
  // Time between preview passes.
  std::chrono::duration<double> previewInterval{0};
  // Seconds of buffered audio before the first preview.
  double minimumAudioDuration = 0;
  // Seconds of audio that must have arrived since the last preview.
  double minimumNewAudioDuration = 0;
  // Seconds; longer audio is previewed on its most recent window only.
  double maximumWindowDuration = 0;

  // The policy of an engine type for a requested interval: above 0.02 seconds, the
  // longer of the request and the engine's minimum interval, with 0.65 seconds of
  // audio before the first pass and 0.45 seconds of new audio between passes;
  // otherwise the requested interval with no minimum amounts. The window is the
  // engine's (12 to 18 seconds).
  static LocalRealtimePreviewPolicy forEngineType(LocalTranscriptionEngineType engineType,
                                                  std::chrono::duration<double> requestedInterval);

  bool operator==(const LocalRealtimePreviewPolicy&) const = default;
};

}  // namespace orvid
