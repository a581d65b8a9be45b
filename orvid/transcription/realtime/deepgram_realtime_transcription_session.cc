#include "orvid/transcription/realtime/deepgram_realtime_transcription_session.h"

#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/audio/pcm16_resampler.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime/deepgram_realtime_support.h"
#include "orvid/transcription/realtime_transcript_accumulator.h"

namespace orvid {
namespace {

constexpr double kServiceSampleRate = 16'000;
constexpr std::string_view kCloseStream = R"({"type":"CloseStream"})";

}  // namespace

DeepgramRealtimeTranscriptionSession::DeepgramRealtimeTranscriptionSession(
    std::shared_ptr<OrvidWebSocketConnection> connection)
    : core_(std::move(connection)) {}

DeepgramRealtimeTranscriptionSession::~DeepgramRealtimeTranscriptionSession() {
  // The reader uses the running transcript: it must end before the members go.
  core_.shutDown();
}

void DeepgramRealtimeTranscriptionSession::startReading() {
  core_.startReading([this](const Bytes& payload) { return handle(payload); },
                     [this](std::exception_ptr) { endWithRunningTranscript(); });
}

ResultStream<TranscriptionPartialResult> DeepgramRealtimeTranscriptionSession::partialResults() const {
  return core_.partialResults();
}

void DeepgramRealtimeTranscriptionSession::appendPCM16(const PCMFrame& frame, std::stop_token stop) {
  PCMFrame converted = PCM16Resampler::resample(frame, kServiceSampleRate);
  core_.connection().send(converted.pcm16LittleEndian, stop);
}

TranscriptionResult DeepgramRealtimeTranscriptionSession::finish(std::stop_token stop) {
  if (!core_.hasEnded()) {
    try {
      core_.connection().send(kCloseStream, stop);
    } catch (...) {
      // A socket that ended meanwhile has left the running transcript.
      if (!core_.hasEnded()) throw;
    }
  }
  return core_.awaitResult(stop);
}

void DeepgramRealtimeTranscriptionSession::cancel() noexcept { core_.cancel(); }

void DeepgramRealtimeTranscriptionSession::endWithRunningTranscript() {
  TranscriptionResult result;
  result.text = std::string(internal::trimUnicodeWhitespace(finalTranscript_));
  core_.complete(std::move(result));
}

RealtimeSessionCore::ReadStep DeepgramRealtimeTranscriptionSession::handle(const Bytes& payload) {
  nlohmann::json event = nlohmann::json::parse(payload, nullptr, /*allow_exceptions=*/false);
  if (!event.is_object()) return RealtimeSessionCore::ReadStep::continueReading;
  std::optional<TranscriptionPartialResult> partial = DeepgramRealtimeSupport::partial(event);
  if (!partial) return RealtimeSessionCore::ReadStep::continueReading;
  if (partial->isFinal) {
    finalTranscript_ = RealtimeTranscriptAccumulator::merge(finalTranscript_, partial->text);
    core_.yield(TranscriptionPartialResult{finalTranscript_, true, std::nullopt});
  } else {
    core_.yield(
        TranscriptionPartialResult{RealtimeTranscriptAccumulator::merge(finalTranscript_, partial->text), false,
                                   std::nullopt});
  }
  return RealtimeSessionCore::ReadStep::continueReading;
}

}  // namespace orvid
