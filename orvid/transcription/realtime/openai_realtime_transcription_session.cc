#include "orvid/transcription/realtime/openai_realtime_transcription_session.h"

#include <string>
#include <utility>

#include "orvid/audio/pcm16_resampler.h"
#include "orvid/transcription/realtime/openai_realtime_transcription_messages.h"

namespace orvid {
namespace {

constexpr double kServiceSampleRate = 24'000;

}  // namespace

OpenAIRealtimeTranscriptionSession::OpenAIRealtimeTranscriptionSession(
    std::shared_ptr<OrvidWebSocketConnection> connection)
    : core_(std::move(connection)) {}

OpenAIRealtimeTranscriptionSession::~OpenAIRealtimeTranscriptionSession() {
  // The reader uses the accumulator: it must end before the members go.
  core_.shutDown();
}

void OpenAIRealtimeTranscriptionSession::startReading() {
  core_.startReading([this](const Bytes& payload) { return handle(payload); });
}

ResultStream<TranscriptionPartialResult> OpenAIRealtimeTranscriptionSession::partialResults() const {
  return core_.partialResults();
}

void OpenAIRealtimeTranscriptionSession::appendPCM16(const PCMFrame& frame, std::stop_token stop) {
  PCMFrame converted = PCM16Resampler::resample(frame, kServiceSampleRate);
  core_.connection().send(OpenAIRealtimeTranscriptionMessageBuilder::appendAudio(converted.pcm16LittleEndian), stop);
}

TranscriptionResult OpenAIRealtimeTranscriptionSession::finish(std::stop_token stop) {
  core_.connection().send(OpenAIRealtimeTranscriptionMessageBuilder::commit(), stop);
  return core_.awaitResult(stop);
}

void OpenAIRealtimeTranscriptionSession::cancel() noexcept { core_.cancel(); }

RealtimeSessionCore::ReadStep OpenAIRealtimeTranscriptionSession::handle(const Bytes& payload) {
  std::optional<TranscriptionPartialResult> partial = OpenAIRealtimeTranscriptionEventParser::parse(payload);
  if (!partial) return RealtimeSessionCore::ReadStep::continueReading;
  std::string text = liveTranscriptionAccumulator_.ingest(*partial);
  core_.yield(TranscriptionPartialResult{text, partial->isFinal, std::nullopt});
  if (!partial->isFinal) return RealtimeSessionCore::ReadStep::continueReading;
  TranscriptionResult result;
  result.text = std::move(text);
  core_.complete(std::move(result));
  return RealtimeSessionCore::ReadStep::stopReading;
}

}  // namespace orvid
