#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/audio/audio_speech_activity_detector.h"
#include "orvid/core/asr_language_route.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/transcription_prompt.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/platform/bytes.h"
#include "orvid/providers.h"


namespace orvid::cli {

// Reads a whole file; a missing, unreadable or non-regular file is a CommandError.
Bytes readFile(const std::filesystem::path& path);
// Writes a whole file; failure is a CommandError naming the path.
void writeFile(const std::filesystem::path& path, const Bytes& bytes);

// The sample rates the tool reads and writes. A header is untrusted: a rate far
// outside what audio uses would make a conversion of a few bytes unbounded.
inline constexpr int kLowestSampleRate = 1000;
inline constexpr int kHighestSampleRate = 768000;

// Reads a 16-bit PCM WAV file into frames; every decoding failure, a sample rate
// outside kLowestSampleRate..kHighestSampleRate and a channel count of 0 are a
// CommandError with one clear line.
std::vector<PCMFrame> readWAVFrames(const std::filesystem::path& path);

// Joins frames of one format into a single frame.
PCMFrame concatenate(const std::vector<PCMFrame>& frames);

// `value` with `decimals` digits after the point.
std::string formatNumber(double value, int decimals);

// Thresholds for telling a short voice command from room noise.
AudioSpeechActivityDetector::Configuration defaultSpeechActivityConfiguration();
void printSpeechAnalysis(const AudioSpeechActivityAnalysis& analysis);

// `text` with secrets masked (SecretRedactor) and every line end turned into a space.
std::string redactedLine(std::string_view text);

// The built-in prompt `id`; an unknown one is a CommandError listing the built-in prompts.
TranscriptionPrompt builtInPrompt(const std::string& id);

// A cloud batch transcription service as chosen on the command line; empty texts
// mean "not given".
struct ServiceOptions {
  std::string provider;
  std::string baseURL;
  std::string model;
  std::string language;
};

// The catalogue's cloud service through the library's front door, with the system
// credential store (service "orvid"). A language the catalogue does not list is sent
// as given. Setup failures are CommandErrors naming the option to fix.
CloudTranscriptionSetup transcriptionService(const ServiceOptions& options);

// The catalogue's real-time service through the library's front door, as
// transcriptionService() does for the batch one.
RealtimeTranscriptionSetup realtimeService(const ServiceOptions& options);

// The catalogue's AI provider `provider` at `baseURL` (or its own address) with
// `model`, empty texts meaning "not given". `baseURLOption` names the option in
// errors; an unknown provider is a CommandError listing them.
AIProviderSetup aiProviderSetup(const std::string& provider, const std::string& baseURL, const std::string& model,
                                std::string_view baseURLOption);

// The candidates for ProcessCUADriverClient: `executable` alone, or none when it is
// empty (cua-driver is then looked up on PATH). A path that is not an executable
// file is a CommandError.
std::vector<std::string> cuaDriverCandidates(const std::string& executable);

}  // namespace orvid::cli
