#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "orvid/core/asr_language_route.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/core/pcm_frame.h"

namespace orvid {

// What an on-device engine is asked to transcribe. The engine store fills in
// `modelURL` and the resolved `languageRoute.providerLanguage` before an engine
// sees the request; callers outside the store may leave any placeholder there.
struct LocalTranscriptionRequest {
  // The descriptor identifier of the local model.
  std::string modelID;
  // The installed model: a file or a folder, "/" for models without files.
  std::filesystem::path modelURL = "/";
  // In capture order.
  std::vector<PCMFrame> audioFrames;
  ResolvedASRLanguageRoute languageRoute;
  // Vocabulary or context hint for engines that accept one.
  std::optional<std::string> promptHint;
  // Passed to the engine untouched.
  TranscriptionProviderOptions providerOptions;
};

}  // namespace orvid
