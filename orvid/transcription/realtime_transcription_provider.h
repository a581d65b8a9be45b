#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "orvid/core/asr_language_route.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/core/transcription_records.h"
#include "orvid/platform/result_stream.h"

namespace orvid {

// What a real-time session is opened with. There is no audio format: sessions
// accept frames of any rate and convert them themselves.
struct RealtimeTranscriptionStartRequest {
  ResolvedASRLanguageRoute languageRoute;
  std::optional<std::string> promptHint;

  bool operator==(const RealtimeTranscriptionStartRequest&) const = default;
};

// One live dictation: audio goes in while partial text comes out. Single-use and
// thread-safe; its state is guarded by its own lock, never held across network or
// engine calls. Calling order: read partialResults() on a thread of the caller's,
// appendPCM16() for every captured frame, then finish() — or cancel() to abandon.
class RealtimeTranscriptionSession {
 public:
  virtual ~RealtimeTranscriptionSession() = default;

  // Increments in arrival order; the same stream on every call. It finishes normally
  // after finish() has produced the final result or after cancel(), and with the
  // session's error when the service or the connection fails.
  virtual ResultStream<TranscriptionPartialResult> partialResults() const = 0;

  // Hands one captured frame to the session, which converts, sends or buffers it.
  // Frames come in capture order from one caller at a time. Throws when the session
  // can no longer accept audio, and CancellationError once `stop` is requested
  // while the frame is being handed over.
  virtual void appendPCM16(const PCMFrame& frame, std::stop_token stop = {}) = 0;

  // Declares the end of the audio and blocks for the final transcript. Cloud
  // sessions serve several waiting callers, who all get the same result or error in
  // the order they called; on-device sessions serve one call and throw
  // OrvidError::unsupportedStreaming for a second. A pending finish() throws
  // CancellationError after cancel(), or when its own `stop` is requested (which
  // ends only that caller's wait). No audio is appended afterwards.
  virtual TranscriptionResult finish(std::stop_token stop = {}) = 0;

  // Abandons the session at once: stops reading, closes the connection, finishes
  // partialResults() without an error and makes every pending finish() throw
  // CancellationError. Allowed in any state, any number of times.
  virtual void cancel() noexcept = 0;
};

// Opens real-time sessions. Implementations are immutable or guard their own
// state, and may be used from several threads at once.
class RealtimeTranscriptionProvider {
 public:
  virtual ~RealtimeTranscriptionProvider() = default;

  // A session that accepts audio at once; a provider whose service announces
  // readiness waits for that announcement first. Errors found while opening
  // (missing credential, bad configuration, a refused opening exchange) are thrown
  // here; later connection failures surface through the session. Throws
  // CancellationError once `stop` is requested while opening.
  virtual std::shared_ptr<RealtimeTranscriptionSession> startSession(const RealtimeTranscriptionStartRequest& request,
                                                                     std::stop_token stop = {}) = 0;
};

}  // namespace orvid
