#include "orvid/transcription/language_context_realtime_transcription_provider.h"

#include <utility>

namespace orvid {
namespace {

// Forwards everything to the wrapped session but finish(), whose result carries
// the route.
class LanguageContextRealtimeTranscriptionSession : public RealtimeTranscriptionSession {
 public:
  LanguageContextRealtimeTranscriptionSession(std::shared_ptr<RealtimeTranscriptionSession> session,
                                              ResolvedASRLanguageRoute route)
      : session_(std::move(session)), route_(std::move(route)) {}

  ResultStream<TranscriptionPartialResult> partialResults() const override { return session_->partialResults(); }
  void appendPCM16(const PCMFrame& frame, std::stop_token stop) override { session_->appendPCM16(frame, stop); }
  TranscriptionResult finish(std::stop_token stop) override { return session_->finish(stop).applying(route_); }
  void cancel() noexcept override { session_->cancel(); }

 private:
  const std::shared_ptr<RealtimeTranscriptionSession> session_;
  const ResolvedASRLanguageRoute route_;
};

}  // namespace

LanguageContextRealtimeTranscriptionProvider::LanguageContextRealtimeTranscriptionProvider(
    std::shared_ptr<RealtimeTranscriptionProvider> provider)
    : provider_(std::move(provider)) {}

std::shared_ptr<RealtimeTranscriptionSession> LanguageContextRealtimeTranscriptionProvider::startSession(
    const RealtimeTranscriptionStartRequest& request, std::stop_token stop) {
  return std::make_shared<LanguageContextRealtimeTranscriptionSession>(provider_->startSession(request, stop),
                                                                       request.languageRoute);
}

}  // namespace orvid
