#include "orvid/transcription/realtime/soniox_realtime_transcription_session.h"

#include <condition_variable>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/audio/pcm16_resampler.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime/internal/realtime_json.h"
#include "orvid/transcription/realtime/soniox_realtime_transcription_messages.h"

namespace orvid {
namespace {

constexpr double kServiceSampleRate = 16'000;

// The trimmed text of a string member; absent when missing, not a string, or blank.
std::optional<std::string> trimmedString(const nlohmann::json& object, std::string_view key) {
  const nlohmann::json* value = RealtimeJSON::member(object, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  std::string trimmed(internal::trimUnicodeWhitespace(value->get_ref<const std::string&>()));
  if (trimmed.empty()) return std::nullopt;
  return trimmed;
}

// A JSON Boolean, or a number (non-zero is true); absent otherwise.
std::optional<bool> flag(const nlohmann::json* value) {
  if (value == nullptr) return std::nullopt;
  if (value->is_boolean()) return value->get<bool>();
  if (value->is_number()) return value->get<double>() != 0;
  return std::nullopt;
}

}  // namespace

SonioxRealtimeTranscriptionSession::SonioxRealtimeTranscriptionSession(
    std::shared_ptr<OrvidWebSocketConnection> connection, std::chrono::milliseconds finalizationTimeout)
    : finalizationTimeout_(finalizationTimeout), core_(std::move(connection)) {}

SonioxRealtimeTranscriptionSession::~SonioxRealtimeTranscriptionSession() {
  // The reader uses the accumulator and the timer uses the core: both end first.
  core_.shutDown();
  std::jthread timer;
  {
    std::lock_guard lock(mutex_);
    timer = std::move(timer_);
  }
}

void SonioxRealtimeTranscriptionSession::startReading() {
  core_.startReading([this](const Bytes& payload) { return handle(payload); });
}

ResultStream<TranscriptionPartialResult> SonioxRealtimeTranscriptionSession::partialResults() const {
  return core_.partialResults();
}

void SonioxRealtimeTranscriptionSession::appendPCM16(const PCMFrame& frame, std::stop_token stop) {
  PCMFrame converted = PCM16Resampler::resample(frame, kServiceSampleRate);
  if (converted.channelCount != 1) {
    throw OrvidProviderError::unsupportedProvider("Soniox realtime currently requires mono PCM audio.");
  }
  core_.connection().send(converted.pcm16LittleEndian, stop);
}

TranscriptionResult SonioxRealtimeTranscriptionSession::finish(std::stop_token stop) {
  if (auto result = core_.finalResult()) return *result;
  core_.connection().send(Bytes{}, stop);
  std::jthread previous;
  {
    std::lock_guard lock(mutex_);
    previous = std::exchange(timer_, std::jthread([this](std::stop_token stopped) {
                               std::mutex sleeping;
                               std::condition_variable_any never;
                               std::unique_lock lock(sleeping);
                               never.wait_for(lock, stopped, finalizationTimeout_, [] { return false; });
                               if (!stopped.stop_requested()) failFinalizationIfNeeded();
                             }));
  }
  // The replaced timer is stopped and joined here, outside the lock.
  previous = {};
  // "finished" may have arrived while the end of the audio was being sent.
  if (core_.hasEnded()) stopTimer();
  return core_.awaitResult(stop);
}

void SonioxRealtimeTranscriptionSession::cancel() noexcept {
  stopTimer();
  core_.cancel();
}

void SonioxRealtimeTranscriptionSession::stopTimer() {
  std::lock_guard lock(mutex_);
  timer_.request_stop();
}

void SonioxRealtimeTranscriptionSession::failFinalizationIfNeeded() {
  if (core_.hasEnded()) return;
  // The session fails first, so that the reader's receive error, which closing the
  // socket causes, finds it ended.
  core_.fail(std::make_exception_ptr(SonioxRealtimeError::finalizationTimedOut()));
  core_.connection().cancel();
}

std::vector<SonioxRealtimeToken> SonioxRealtimeTranscriptionSession::parseTokens(const nlohmann::json* value) {
  std::vector<SonioxRealtimeToken> tokens;
  if (value == nullptr || !value->is_array()) return tokens;
  for (const nlohmann::json& entry : *value) {
    const nlohmann::json* text = RealtimeJSON::member(entry, "text");
    if (text == nullptr || !text->is_string()) continue;
    tokens.push_back(SonioxRealtimeToken{text->get<std::string>(),
                                         flag(RealtimeJSON::member(entry, "is_final")).value_or(false),
                                         trimmedString(entry, "language"), trimmedString(entry, "translation_status")});
  }
  return tokens;
}

RealtimeSessionCore::ReadStep SonioxRealtimeTranscriptionSession::handle(const Bytes& payload) {
  nlohmann::json message = nlohmann::json::parse(payload, nullptr, /*allow_exceptions=*/false);
  // An undecodable message ends the session; its bytes are not quoted.
  if (message.is_discarded()) throw OrvidProviderError::invalidResponse();
  if (!message.is_object()) return RealtimeSessionCore::ReadStep::continueReading;

  if (auto errorType = trimmedString(message, "error_type")) {
    std::optional<std::string> text = trimmedString(message, "error_message");
    if (!text) text = trimmedString(message, "message");
    throw SonioxRealtimeError::server(*errorType, text.value_or("Unknown server error"),
                                      trimmedString(message, "request_id"));
  }

  std::vector<SonioxRealtimeToken> tokens = parseTokens(RealtimeJSON::member(message, "tokens"));
  if (!tokens.empty()) core_.yield(TranscriptionPartialResult{accumulator_.ingest(tokens), false, true});

  if (flag(RealtimeJSON::member(message, "finished")) != true) return RealtimeSessionCore::ReadStep::continueReading;
  TranscriptionResult result;
  result.text = std::string(internal::trimUnicodeWhitespace(accumulator_.committedText + accumulator_.tentativeText));
  if (accumulator_.finalizedSourceLanguages.size() == 1) result.language = *accumulator_.finalizedSourceLanguages.begin();
  stopTimer();
  core_.yield(TranscriptionPartialResult{result.text, true, true});
  core_.complete(std::move(result));
  return RealtimeSessionCore::ReadStep::stopReading;
}

}  // namespace orvid
