// orvid listen FILE.wav --provider ID [--base-url URL] [--model M] [--language xx] [--pace] [--fallback-batch]
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/platform/cancellation.h"
#include "orvid/transcription/realtime_fallback_transcription_provider.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

struct ListenOptions {
  std::string file;
  ServiceOptions service;
  bool pace = false;
  bool fallbackBatch = false;
};

// The recording as the capture path would deliver it: mono frames of 20 ms.
std::vector<PCMFrame> captureFrames(const std::string& file) {
  const auto frames = readWAVFrames(file);
  if (frames.empty()) throw CommandError{file + ": the file holds no samples"};
  if (frames.front().channelCount != 1) {
    throw CommandError{file + ": live dictation needs mono audio, the file has " +
                       std::to_string(frames.front().channelCount) + " channels"};
  }
  const PCMFrame whole = concatenate(frames);
  const auto samplesPerFrame = std::max<std::size_t>(1, static_cast<std::size_t>(whole.sampleRate / 50));
  std::vector<PCMFrame> captured;
  const std::size_t total = whole.pcm16LittleEndian.size() / 2;
  for (std::size_t start = 0; start < total; start += samplesPerFrame) {
    const std::size_t count = std::min(samplesPerFrame, total - start);
    auto first = whole.pcm16LittleEndian.begin() + static_cast<std::ptrdiff_t>(2 * start);
    captured.push_back(PCMFrame{Bytes(first, first + static_cast<std::ptrdiff_t>(2 * count)), whole.sampleRate, 1,
                                static_cast<int>(count)});
  }
  return captured;
}

// Shows partial text: rewritten in place on a terminal, a line each otherwise.
class LiveLine {
 public:
  LiveLine() : terminal_(::isatty(STDOUT_FILENO) == 1) {}

  void show(const std::string& text) {
    if (terminal_) {
      std::cout << "\r\033[K" << text << std::flush;
    } else {
      std::cout << "partial: " << text << "\n" << std::flush;
    }
  }

  void finish(const std::string& text) {
    if (terminal_) std::cout << "\r\033[K";
    std::cout << text << "\n" << std::flush;
  }

 private:
  bool terminal_;
};

// Cancels the session when the listening ends early, so that its partial results
// end and their reader can be joined.
struct CancelOnExit {
  RealtimeTranscriptionSession& session;
  ~CancelOnExit() { session.cancel(); }
};

// Streams the frames through a session, showing the display text as it grows.
std::string listenLive(const RealtimeTranscriptionSetup& setup, const std::vector<PCMFrame>& frames, bool pace,
                       std::stop_token stop) {
  RealtimeTranscriptionStartRequest start{setup.languageRoute, std::nullopt};
  auto session = setup.provider->startSession(start, stop);
  // Ctrl-C abandons the session at once; finish() then throws CancellationError.
  std::stop_callback cancelOnStop(stop, [&session] { session->cancel(); });
  LiveLine line;
  std::jthread reader([&line, partials = session->partialResults()] {
    try {
      while (auto partial = partials.next()) line.show(partial->text);
    } catch (const std::exception&) {
      // The session's error reaches the main thread through finish().
    }
  });
  CancelOnExit cancelOnExit{*session};
  auto due = std::chrono::steady_clock::now();
  for (const auto& frame : frames) {
    if (pace) {
      due += std::chrono::microseconds(static_cast<long long>(1e6 * frame.sampleCount / frame.sampleRate));
      std::this_thread::sleep_until(due);
    }
    session->appendPCM16(frame, stop);
  }
  const TranscriptionResult result = session->finish(stop);
  reader.join();
  line.finish(result.text);
  return result.text;
}

void listen(const ListenOptions& options) {
  const auto frames = captureFrames(options.file);
  RealtimeTranscriptionSetup realtime = realtimeService(options.service);
  InterruptScope interrupts;
  try {
    if (!options.fallbackBatch) {
      listenLive(realtime, frames, options.pace, interrupts.token());
      return;
    }
    // The batch contract over the real-time service: one final text, from the
    // service's batch API should the real-time path fail.
    CloudTranscriptionSetup batch = transcriptionService(options.service);
    RealtimeFallbackTranscriptionProvider provider(realtime.providerID, realtime.provider, batch.provider, true);
    TranscriptionRequest request;
    request.audioFrames = frames;
    request.languageRoute = realtime.languageRoute;
    std::cout << provider.transcribe(request, interrupts.token()).text << "\n";
  } catch (const OrvidProviderError& error) {
    if (error.errorCase() != OrvidProviderError::Case::missingCredential) throw;
    throw CommandError{std::string(error.what()) + " Store the API key with: orvid credentials set provider." +
                       realtime.providerID + ".api-key"};
  }
}

}  // namespace

void addListenCommands(CLI::App& app) {
  auto options = std::make_shared<ListenOptions>();
  auto* listen = app.add_subcommand(
      "listen",
      "Stream a 16-bit mono WAV file through a real-time speech service in 20 ms frames, showing the live text; "
      "the API key is read as for transcribe");
  listen->add_option("file", options->file, "The recording, a 16-bit PCM mono WAV file")->required();
  listen->add_option("--provider", options->service.provider, "A real-time provider of the catalogue, e.g. openai")
      ->required();
  listen->add_option("--base-url", options->service.baseURL, "The service's API base instead of the catalogue's");
  listen->add_option("--model", options->service.model, "The real-time model instead of the provider's default");
  listen->add_option("--language", options->service.language, "The spoken language, e.g. en or zh-Hans");
  listen->add_flag("--pace", options->pace, "Send the audio at real speed, as a microphone would");
  listen->add_flag("--fallback-batch", options->fallbackBatch,
                   "Use the service's batch API when the real-time path fails (prints only the final text)");
  listen->callback([options] {
    try {
      orvid::cli::listen(*options);
    } catch (const CommandError& error) {
      throw CommandError{redactedLine(error.message)};
    } catch (const CancellationError&) {
      throw;
    } catch (const std::exception& error) {
      throw CommandError{redactedLine(error.what())};
    }
  });
}

}  // namespace orvid::cli
