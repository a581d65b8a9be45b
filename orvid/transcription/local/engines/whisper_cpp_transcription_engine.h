#pragma once

#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>

#include "orvid/automation/orvid_process_running.h"
#include "orvid/transcription/local/local_transcription_engine.h"

namespace orvid {

// A whisper.cpp model run by the separate command-line program, one run per
// request: the audio goes to a WAV file in a scratch folder, the program writes its
// transcript next to it, and the text is cleaned of log lines and timestamps.
// Nothing stays in memory between requests; unload() does nothing. Immutable.
class WhisperCPPTranscriptionEngine : public LocalTranscriptionEngine {
 public:
  WhisperCPPTranscriptionEngine(std::string modelID, std::filesystem::path modelURL,
                                std::filesystem::path executableURL, std::shared_ptr<OrvidProcessRunning> processRunner,
                                std::filesystem::path temporaryDirectory);

  std::string modelID() const override { return modelID_; }
  const std::filesystem::path& modelURL() const { return modelURL_; }
  const std::filesystem::path& executableURL() const { return executableURL_; }

  // Runs `<executable> -m <model> -f <wav> -otxt -of <base> -nt -np [-l <language>]
  // [-tr]` in a fresh folder "Brindle-Whisper-<UUID>" under the temporary directory,
  // removed again on every path. The language is the request's provider language
  // ("zh" for the Chinese scripts; none for absent, empty or "auto"); "-tr" when the
  // option "translate_to_english" is the Boolean true. The transcript is the text
  // file the program writes, or its standard output when there is none.
  // Throws OrvidError::emptyAudio; std::filesystem::filesystem_error when the folder
  // or WAV file cannot be written; ProcessLaunchError; WhisperCPPTranscriptionError::
  // processFailed (redacted diagnostics) for a non-zero exit and ::missingTranscript
  // for an empty transcript; CancellationError once `stop` is requested (the program
  // is then terminated).
  TranscriptionResult transcribe(const LocalTranscriptionRequest& request, std::stop_token stop = {}) override;

  void unload() noexcept override {}

  // The program's output without log lines ("whisper_init", "whisper_model_load",
  // "whisper_print_timings", "system_info:", "main:", any case), without a leading
  // bracketed timestamp on each line, lines joined and white space collapsed.
  static std::string cleanedTranscript(std::string_view text);

 private:
  const std::string modelID_;
  const std::filesystem::path modelURL_;
  const std::filesystem::path executableURL_;
  const std::shared_ptr<OrvidProcessRunning> processRunner_;
  const std::filesystem::path temporaryDirectory_;
};

}  // namespace orvid
