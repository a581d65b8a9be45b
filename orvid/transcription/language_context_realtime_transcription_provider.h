#pragma once

#include <memory>
#include <stop_token>

#include "orvid/transcription/realtime_transcription_provider.h"

namespace orvid {

// Opens the wrapped provider's sessions and stamps the start request's language
// route onto their final results (TranscriptionResult::applying). Immutable;
// copies share the wrapped provider.
class LanguageContextRealtimeTranscriptionProvider : public RealtimeTranscriptionProvider {
 public:
  explicit LanguageContextRealtimeTranscriptionProvider(std::shared_ptr<RealtimeTranscriptionProvider> provider);

  // The wrapped provider's session with the same request (its errors propagate),
  // whose finish() returns the result passed through applying(request.languageRoute).
  std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                             std::stop_token stop = {}) override;

 private:
  std::shared_ptr<RealtimeTranscriptionProvider> provider_;
};

}  // namespace orvid
