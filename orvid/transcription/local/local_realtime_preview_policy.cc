#include "orvid/transcription/local/local_realtime_preview_policy.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace orvid {
namespace {

struct EnginePacing {
  double minimumInterval;
  double maximumWindow;
};

// By engine type, in the order of LocalTranscriptionEngineType.
constexpr std::array<EnginePacing, 22> kPacingByEngineType = {{
    {0.75, 18},                        // WhisperKit
    {1.2, 18},                         // whisper.cpp
    {0.9, 16},                         // MLX SenseVoice
    {1.2, 18},  {1.2, 18}, {0.9, 16},  // MLX Parakeet
    {1.2, 18},  {1.2, 18}, {1.2, 15},  // MLX Cohere
    {0.75, 18},                        // MLX Qwen3 ASR
    {1.5, 12},                         // Voxtral
    {1.2, 15},                         // MLX GLM ASR
    {1.2, 15},                         // MLX Granite Speech
    {1.2, 15},                         // MLX FireRed ASR
    {0.75, 18}, {0.9, 16},             // speech-module Qwen3
    {1.2, 18},                         // speech-module Whisper
    {1.2, 18},                         // speech-module Parakeet batch
    {0.75, 18},                        // speech-module Parakeet streaming
    {0.75, 18},                        // speech-module Nemotron
    {1.2, 18},                         // speech-module Omnilingual CoreML
    {1.2, 18},                         // speech-module Omnilingual MLX
}};

// Engine types added after the table (PocketSphinx) pace like the batch engines.
constexpr EnginePacing kDefaultPacing = {1.2, 18};

EnginePacing pacing(LocalTranscriptionEngineType engineType) {
  const auto index = static_cast<std::size_t>(caseIndex(engineType));
  return index < kPacingByEngineType.size() ? kPacingByEngineType[index] : kDefaultPacing;
}

}  // namespace

LocalRealtimePreviewPolicy LocalRealtimePreviewPolicy::forEngineType(LocalTranscriptionEngineType engineType,
                                                                     std::chrono::duration<double> requestedInterval) {
  const EnginePacing engine = pacing(engineType);
  LocalRealtimePreviewPolicy policy;
  policy.maximumWindowDuration = engine.maximumWindow;
  if (requestedInterval.count() > 0.02) {
    policy.previewInterval = std::max(requestedInterval, std::chrono::duration<double>(engine.minimumInterval));
    policy.minimumAudioDuration = 0.65;
    policy.minimumNewAudioDuration = 0.45;
  } else {
    policy.previewInterval = requestedInterval;
  }
  return policy;
}

}  // namespace orvid
