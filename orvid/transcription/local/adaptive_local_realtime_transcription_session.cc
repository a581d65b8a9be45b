#include "orvid/transcription/local/adaptive_local_realtime_transcription_session.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "orvid/core/orvid_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/realtime_transcript_accumulator.h"

namespace orvid {
namespace {

// The idle poll while no pass is due; never shorter than this, so that a zero
// interval does not spin.
constexpr std::chrono::duration<double> kLongestIdlePoll{0.1};
constexpr std::chrono::duration<double> kShortestIdlePoll{0.01};

std::size_t characterCount(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

double frameDuration(const PCMFrame& frame) {
  if (frame.sampleRate <= 0) return 0;
  double samples = frame.sampleCount;
  if (frame.sampleCount < 1) {
    samples = static_cast<double>(frame.pcm16LittleEndian.size()) / std::max(2 * frame.channelCount, 2);
  }
  return samples / frame.sampleRate;
}

LocalEngineClock::Duration clockDuration(std::chrono::duration<double> duration) {
  return std::chrono::duration_cast<LocalEngineClock::Duration>(duration);
}

}  // namespace

AdaptiveLocalRealtimeTranscriptionSession::AdaptiveLocalRealtimeTranscriptionSession(
    std::shared_ptr<LocalTranscriptionEngine> engine, LocalTranscriptionRequest baseRequest,
    LocalRealtimePreviewPolicy policy, std::shared_ptr<LocalEngineClock> clock)
    : engine_(std::move(engine)), baseRequest_(std::move(baseRequest)), policy_(policy), clock_(std::move(clock)) {}

AdaptiveLocalRealtimeTranscriptionSession::~AdaptiveLocalRealtimeTranscriptionSession() { cancel(); }

void AdaptiveLocalRealtimeTranscriptionSession::start() {
  std::lock_guard lock(mutex_);
  if (didStart_ || didComplete_) return;
  didStart_ = true;
  previewThread_ = std::jthread([this](std::stop_token stop) { runPreviewLoop(std::move(stop)); });
}

void AdaptiveLocalRealtimeTranscriptionSession::appendPCM16(const PCMFrame& frame, std::stop_token) {
  std::lock_guard lock(mutex_);
  if (didComplete_) return;
  bufferedFrames_.push_back(frame);
}

bool AdaptiveLocalRealtimeTranscriptionSession::complete(std::jthread& previewThread) {
  std::lock_guard lock(mutex_);
  if (didComplete_) return false;
  didComplete_ = true;
  previewThread = std::move(previewThread_);
  return true;
}

TranscriptionResult AdaptiveLocalRealtimeTranscriptionSession::finish(std::stop_token stop) {
  std::jthread previewThread;
  if (!complete(previewThread)) throw OrvidError::unsupportedStreaming();
  if (previewThread.joinable()) {
    previewThread.request_stop();
    previewThread.join();
  }

  LocalTranscriptionRequest request = baseRequest_;
  {
    std::lock_guard lock(mutex_);
    request.audioFrames = bufferedFrames_;
  }
  if (request.audioFrames.empty()) {
    partialResults_.finish();
    throw OrvidError::emptyAudio();
  }

  std::stop_source either;
  std::stop_callback byCaller(stop, [&] { either.request_stop(); });
  std::stop_callback byCancel(cancelled_.get_token(), [&] { either.request_stop(); });
  try {
    checkCancellation(either.get_token());
    TranscriptionResult result = engine_->transcribe(request, either.get_token());
    partialResults_.yield(TranscriptionPartialResult{.text = result.text, .isFinal = true, .isReplace = true});
    partialResults_.finish();
    return result;
  } catch (const CancellationError&) {
    partialResults_.finish();
    throw;
  } catch (...) {
    partialResults_.finish(std::current_exception());
    throw;
  }
}

void AdaptiveLocalRealtimeTranscriptionSession::cancel() noexcept {
  cancelled_.request_stop();
  std::jthread previewThread;
  if (!complete(previewThread)) return;
  if (previewThread.joinable()) {
    previewThread.request_stop();
    previewThread.join();
  }
  partialResults_.finish();
}

void AdaptiveLocalRealtimeTranscriptionSession::runPreviewLoop(std::stop_token stop) {
  const auto idlePoll = clockDuration(std::clamp(policy_.previewInterval, kShortestIdlePoll, kLongestIdlePoll));
  const auto interval = clockDuration(policy_.previewInterval);
  while (!stop.stop_requested()) {
    std::optional<PreviewPass> pass = nextPreviewPassIfNeeded();
    if (!pass) {
      if (!clock_->sleepFor(idlePoll, stop)) return;
      continue;
    }
    runPreviewPass(*pass, stop);
    if (!clock_->sleepFor(interval, stop)) return;
  }
}

void AdaptiveLocalRealtimeTranscriptionSession::runPreviewPass(const PreviewPass& pass, std::stop_token stop) {
  try {
    if (auto* streaming = dynamic_cast<StreamingPreviewLocalTranscriptionEngine*>(engine_.get())) {
      ResultStream<std::string> hypotheses = streaming->previewStream(pass.request, stop);
      while (!stop.stop_requested()) {
        std::optional<std::string> text = hypotheses.next(stop);
        if (!text) break;
        emitPreviewIfNeeded(*text, pass);
      }
    } else {
      emitPreviewIfNeeded(engine_->transcribe(pass.request, stop).text, pass);
    }
  } catch (...) {
    // A failed preview is dropped; the final transcription reports real failures.
  }
}

std::optional<AdaptiveLocalRealtimeTranscriptionSession::PreviewPass>
AdaptiveLocalRealtimeTranscriptionSession::nextPreviewPassIfNeeded() {
  std::lock_guard lock(mutex_);
  if (didComplete_) return std::nullopt;
  if (bufferedFrames_.empty() || lastPreviewFrameCount_ >= bufferedFrames_.size()) return std::nullopt;
  const double duration = audioDuration(bufferedFrames_);
  if (duration < policy_.minimumAudioDuration) return std::nullopt;
  if (duration - lastPreviewAudioDuration_ < policy_.minimumNewAudioDuration) return std::nullopt;

  lastPreviewFrameCount_ = bufferedFrames_.size();
  lastPreviewAudioDuration_ = duration;
  PreviewPass pass{.request = baseRequest_, .baseText = lastPreviewText_, .usesSlidingWindow = false};
  if (policy_.maximumWindowDuration < duration) {
    pass.request.audioFrames = suffixFrames(bufferedFrames_, policy_.maximumWindowDuration);
    pass.usesSlidingWindow = true;
  } else {
    pass.request.audioFrames = bufferedFrames_;
  }
  return pass;
}

void AdaptiveLocalRealtimeTranscriptionSession::emitPreviewIfNeeded(const std::string& text, const PreviewPass& pass) {
  const std::string newText(internal::trimUnicodeWhitespace(text));
  std::string candidate;
  if (newText.empty()) return;
  if (pass.usesSlidingWindow) {
    candidate = RealtimeTranscriptAccumulator::mergeOverlappingWindow(pass.baseText, newText);
  } else if (pass.baseText.empty()) {
    candidate = newText;
  } else {
    const std::size_t baseCount = characterCount(pass.baseText);
    const std::size_t newCount = characterCount(newText);
    const bool baseExtendsNew = pass.baseText.starts_with(newText);
    const bool newExtendsBase = newText.starts_with(pass.baseText);
    const bool tooShort = newCount < std::min<std::size_t>(baseCount, 12);
    candidate = baseExtendsNew || (tooShort && !newExtendsBase) ? pass.baseText : newText;
  }

  {
    std::lock_guard lock(mutex_);
    if (didComplete_ || candidate.empty() || candidate == lastPreviewText_) return;
    lastPreviewText_ = candidate;
  }
  // Outside the lock: finish() joins this thread before it yields the final result.
  partialResults_.yield(TranscriptionPartialResult{.text = candidate, .isFinal = false, .isReplace = true});
}

double AdaptiveLocalRealtimeTranscriptionSession::audioDuration(const std::vector<PCMFrame>& frames) {
  double total = 0;
  for (const PCMFrame& frame : frames) total += frameDuration(frame);
  return total;
}

std::vector<PCMFrame> AdaptiveLocalRealtimeTranscriptionSession::suffixFrames(const std::vector<PCMFrame>& frames,
                                                                              double maximumDuration) {
  double total = 0;
  std::size_t first = frames.size();
  while (first > 0) {
    const double next = total + frameDuration(frames[first - 1]);
    if (next > maximumDuration && first < frames.size()) break;
    total = next;
    --first;
  }
  return {frames.begin() + static_cast<std::ptrdiff_t>(first), frames.end()};
}

}  // namespace orvid
