#include "orvid/transcription/realtime/aliyun_bailian_realtime_transcription_session.h"

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

OrvidProviderError failure(const std::optional<std::string>& message, const char* fallback) {
  return OrvidProviderError::unsupportedProvider(message ? SecretRedactor::redact(*message) : fallback);
}

}  // namespace

AliyunBailianRealtimeTranscriptionSession::AliyunBailianRealtimeTranscriptionSession(
    std::shared_ptr<OrvidWebSocketConnection> connection, AliyunRealtimeSupport::Kind kind, std::string modelID)
    : kind_(std::move(kind)), modelID_(std::move(modelID)), core_(std::move(connection)) {}

AliyunBailianRealtimeTranscriptionSession::~AliyunBailianRealtimeTranscriptionSession() {
  // The reader uses the gate and the running transcript: it must end first.
  core_.shutDown();
}

void AliyunBailianRealtimeTranscriptionSession::startReading() {
  core_.startReading([this](const Bytes& payload) { return handle(payload); });
}

ResultStream<TranscriptionPartialResult> AliyunBailianRealtimeTranscriptionSession::partialResults() const {
  return core_.partialResults();
}

void AliyunBailianRealtimeTranscriptionSession::appendPCM16(const PCMFrame& frame, std::stop_token stop) {
  PCMFrame converted = PCM16Resampler::resample(frame, AliyunRealtimeSupport::sampleRate(modelID_));
  if (gate_.hold(converted.pcm16LittleEndian)) return;
  if (kind_.isFun()) {
    core_.connection().send(converted.pcm16LittleEndian, stop);
  } else {
    core_.connection().send(StepFunRealtimeSupport::appendAudio(converted.pcm16LittleEndian), stop);
  }
}

TranscriptionResult AliyunBailianRealtimeTranscriptionSession::finish(std::stop_token stop) {
  if (!core_.hasEnded() && gate_.requestFinish()) core_.connection().send(finishMessage(), stop);
  return core_.awaitResult(stop);
}

void AliyunBailianRealtimeTranscriptionSession::cancel() noexcept { core_.cancel(); }

RealtimeSessionCore::ReadStep AliyunBailianRealtimeTranscriptionSession::handle(const Bytes& payload) {
  nlohmann::json object = nlohmann::json::parse(payload, nullptr, /*allow_exceptions=*/false);
  if (object.is_object()) {
    if (kind_.isFun()) {
      handleFunEvent(object);
    } else {
      handleQwenEvent(object);
    }
  }
  // The end events do not stop the reading: the service closes the socket after them.
  return RealtimeSessionCore::ReadStep::continueReading;
}

void AliyunBailianRealtimeTranscriptionSession::handleFunEvent(const nlohmann::json& object) {
  const std::string name = AliyunRealtimeSupport::event(object);
  const nlohmann::json* payload = RealtimeJSON::member(object, "payload");
  if (name == "task-started") {
    startAudio();
  } else if (name == "result-generated") {
    const nlohmann::json* sentence = RealtimeJSON::member(RealtimeJSON::member(payload, "output"), "sentence");
    if (auto text = RealtimeJSON::string(RealtimeJSON::member(sentence, "text"))) {
      ingest(*text, RealtimeJSON::boolean(RealtimeJSON::member(sentence, "sentence_end")).value_or(false));
    }
  } else if (name == "task-finished") {
    end();
  } else if (name == "task-failed" || name == "error") {
    std::optional<std::string> message = RealtimeJSON::string(RealtimeJSON::member(payload, "message"));
    if (!message) message = RealtimeJSON::string(RealtimeJSON::member(object, "message"));
    throw failure(message, "Aliyun fun ASR task failed.");
  }
}

void AliyunBailianRealtimeTranscriptionSession::handleQwenEvent(const nlohmann::json& object) {
  const nlohmann::json* typeValue = RealtimeJSON::member(object, "type");
  const std::string type =
      typeValue != nullptr && typeValue->is_string()
          ? internal::lowercaseASCII(internal::trimUnicodeWhitespace(typeValue->get_ref<const std::string&>()))
          : "";
  if (type == "session.updated") {
    startAudio();
  } else if (type == "conversation.item.input_audio_transcription.text") {
    if (auto text = RealtimeJSON::string(RealtimeJSON::member(object, "text"))) ingest(*text, false);
  } else if (type == "conversation.item.input_audio_transcription.completed") {
    if (auto text = RealtimeJSON::string(RealtimeJSON::member(object, "transcript"))) ingest(*text, true);
  } else if (type == "session.finished") {
    end();
  } else if (type == "error") {
    throw failure(RealtimeJSON::string(RealtimeJSON::member(object, "message")),
                  "Aliyun qwen realtime ASR task failed.");
  }
}

void AliyunBailianRealtimeTranscriptionSession::startAudio() {
  OrvidWebSocketConnection& connection = core_.connection();
  const bool fun = kind_.isFun();
  const bool finishRequested = gate_.open([&connection, fun](const Bytes& block) {
    if (fun) {
      connection.send(block);
    } else {
      connection.send(StepFunRealtimeSupport::appendAudio(block));
    }
  });
  if (finishRequested) connection.send(finishMessage());
}

std::string AliyunBailianRealtimeTranscriptionSession::finishMessage() const {
  return kind_.isFun() ? AliyunRealtimeSupport::finishTask(kind_.taskID) : AliyunRealtimeSupport::sessionFinish();
}

void AliyunBailianRealtimeTranscriptionSession::ingest(const std::string& text, bool isFinal) {
  if (!isFinal) {
    core_.yield({RealtimeTranscriptAccumulator::merge(finalTranscript_, text), false, std::nullopt});
    return;
  }
  finalTranscript_ = RealtimeTranscriptAccumulator::merge(finalTranscript_, text);
  core_.yield({finalTranscript_, true, std::nullopt});
}

void AliyunBailianRealtimeTranscriptionSession::end() {
  TranscriptionResult result;
  result.text = finalTranscript_;
  core_.complete(std::move(result));
}

}  // namespace orvid
