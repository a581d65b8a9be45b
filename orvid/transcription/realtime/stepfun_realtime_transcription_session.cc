#include "orvid/transcription/realtime/stepfun_realtime_transcription_session.h"

#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/audio/pcm16_resampler.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"
#include "orvid/transcription/realtime/stepfun_realtime_support.h"
#include "orvid/transcription/realtime_transcript_accumulator.h"

namespace orvid {
namespace {

constexpr double kServiceSampleRate = 16'000;

std::optional<std::string> firstText(const nlohmann::json& event, std::string_view first, std::string_view second) {
  if (auto text = RealtimeJSON::string(RealtimeJSON::member(event, first))) return text;
  return RealtimeJSON::string(RealtimeJSON::member(event, second));
}

}  // namespace

StepFunRealtimeTranscriptionSession::StepFunRealtimeTranscriptionSession(
    std::shared_ptr<OrvidWebSocketConnection> connection)
    : core_(std::move(connection)) {}

StepFunRealtimeTranscriptionSession::~StepFunRealtimeTranscriptionSession() {
  // The reader uses the gate and the running transcript: it must end first.
  core_.shutDown();
}

void StepFunRealtimeTranscriptionSession::startReading() {
  core_.startReading([this](const Bytes& payload) { return handle(payload); });
}

ResultStream<TranscriptionPartialResult> StepFunRealtimeTranscriptionSession::partialResults() const {
  return core_.partialResults();
}

void StepFunRealtimeTranscriptionSession::appendPCM16(const PCMFrame& frame, std::stop_token stop) {
  PCMFrame converted = PCM16Resampler::resample(frame, kServiceSampleRate);
  if (gate_.hold(converted.pcm16LittleEndian)) return;
  core_.connection().send(StepFunRealtimeSupport::appendAudio(converted.pcm16LittleEndian), stop);
}

TranscriptionResult StepFunRealtimeTranscriptionSession::finish(std::stop_token stop) {
  if (!core_.hasEnded() && gate_.requestFinish()) core_.connection().send(StepFunRealtimeSupport::commit(), stop);
  return core_.awaitResult(stop);
}

void StepFunRealtimeTranscriptionSession::cancel() noexcept { core_.cancel(); }

RealtimeSessionCore::ReadStep StepFunRealtimeTranscriptionSession::handle(const Bytes& payload) {
  using ReadStep = RealtimeSessionCore::ReadStep;
  nlohmann::json event = nlohmann::json::parse(payload, nullptr, /*allow_exceptions=*/false);
  if (!event.is_object()) return ReadStep::continueReading;
  const nlohmann::json* typeValue = RealtimeJSON::member(event, "type");
  const std::string type(typeValue != nullptr && typeValue->is_string()
                             ? internal::trimUnicodeWhitespace(typeValue->get_ref<const std::string&>())
                             : "");

  if (type == "session.updated") {
    OrvidWebSocketConnection& connection = core_.connection();
    bool commitRequested = gate_.open(
        [&connection](const Bytes& block) { connection.send(StepFunRealtimeSupport::appendAudio(block)); });
    if (commitRequested) connection.send(StepFunRealtimeSupport::commit());
  } else if (type == "conversation.item.input_audio_transcription.delta") {
    if (auto text = firstText(event, "text", "delta")) {
      core_.yield({RealtimeTranscriptAccumulator::merge(finalTranscript_, *text), false, std::nullopt});
    }
  } else if (type == "conversation.item.input_audio_transcription.completed") {
    auto text = firstText(event, "transcript", "text");
    if (!text) return ReadStep::continueReading;
    finalTranscript_ = RealtimeTranscriptAccumulator::merge(finalTranscript_, *text);
    core_.yield({finalTranscript_, true, std::nullopt});
    TranscriptionResult result;
    result.text = finalTranscript_;
    core_.complete(std::move(result));
    return ReadStep::stopReading;
  } else if (type == "error") {
    std::optional<std::string> message = RealtimeJSON::string(RealtimeJSON::member(event, "message"));
    throw OrvidProviderError::unsupportedProvider(
        message ? SecretRedactor::redact(*message) : "StepFun realtime stream error.");
  }
  return ReadStep::continueReading;
}

}  // namespace orvid
