#include "tools/orvid/cli_support.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "orvid/ai/secret_redactor.h"
#include "orvid/audio/audio_wav_decoder.h"
#include "orvid/automation/executable_discovery.h"
#include "orvid/core/corelib/asr_language.h"
#include "orvid/core/corelib/orvid_defaults.h"
#include "tools/orvid/commands.h"

namespace orvid::cli {
namespace {

template <typename Item, typename Id>
std::string joinedIDs(const std::vector<Item>& items, Id id) {
  std::string text;
  for (const Item& item : items) {
    if (!text.empty()) text += ", ";
    text += id(item);
  }
  return text;
}

}  // namespace

Bytes readFile(const std::filesystem::path& path) {
  std::error_code error;
  auto status = std::filesystem::status(path, error);
  if (error || !std::filesystem::exists(status)) throw CommandError{path.string() + ": no such file"};
  if (!std::filesystem::is_regular_file(status)) throw CommandError{path.string() + ": not a regular file"};
  std::ifstream in(path, std::ios::binary);
  if (!in) throw CommandError{path.string() + ": cannot open: " + std::strerror(errno)};
  Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) throw CommandError{path.string() + ": read error"};
  return bytes;
}

void writeFile(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw CommandError{path.string() + ": cannot create: " + std::strerror(errno)};
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) throw CommandError{path.string() + ": write error"};
}

namespace {

std::string describeWAVError(const AudioWAVDecoderError& error) {
  using Case = AudioWAVDecoderError::Case;
  switch (error.errorCase()) {
    case Case::unsupportedBitDepth:
      return "only 16-bit PCM WAV files are supported, this one has " + std::to_string(error.bitsPerSample()) +
             " bits per sample";
    case Case::truncatedHeader:
      return "too short for a WAV file (the header is cut off)";
    case Case::notAWAVFile:
      return "not a WAV file (no RIFF/WAVE header)";
    case Case::missingFmtChunk:
      return "not a usable WAV file (no format chunk, or no channels)";
    case Case::missingDataChunk:
      return "not a usable WAV file (no data chunk)";
    case Case::invalidSamplesPerFrame:
      break;
  }
  return error.what();
}

}  // namespace

std::vector<PCMFrame> readWAVFrames(const std::filesystem::path& path) {
  auto bytes = readFile(path);
  std::vector<PCMFrame> frames;
  try {
    frames = AudioWAVDecoder::decode(bytes, 4096);
  } catch (const AudioWAVDecoderError& error) {
    throw CommandError{path.string() + ": " + describeWAVError(error)};
  }
  if (!frames.empty()) {
    const double rate = frames.front().sampleRate;
    if (rate < kLowestSampleRate || rate > kHighestSampleRate) {
      throw CommandError{path.string() + ": the WAV header declares a sample rate of " +
                         std::to_string(static_cast<long long>(rate)) + " Hz, outside " +
                         std::to_string(kLowestSampleRate) + " to " + std::to_string(kHighestSampleRate) + " Hz"};
    }
    if (frames.front().channelCount <= 0) throw CommandError{path.string() + ": the WAV header declares no channels"};
  }
  return frames;
}

PCMFrame concatenate(const std::vector<PCMFrame>& frames) {
  PCMFrame merged;
  if (frames.empty()) return merged;
  merged.sampleRate = frames.front().sampleRate;
  merged.channelCount = frames.front().channelCount;
  std::size_t total = 0;
  for (const auto& frame : frames) total += frame.pcm16LittleEndian.size();
  merged.pcm16LittleEndian.reserve(total);
  for (const auto& frame : frames) {
    merged.pcm16LittleEndian.insert(merged.pcm16LittleEndian.end(), frame.pcm16LittleEndian.begin(),
                                    frame.pcm16LittleEndian.end());
    merged.sampleCount += frame.sampleCount;
  }
  return merged;
}

std::string formatNumber(double value, int decimals) {
  std::ostringstream out;
  out.setf(std::ios::fixed);
  out.precision(decimals);
  out << value;
  return out.str();
}

AudioSpeechActivityDetector::Configuration defaultSpeechActivityConfiguration() {
  AudioSpeechActivityDetector::Configuration configuration{};
  configuration.analysisWindowDurationSeconds = 0.03;
  configuration.minimumClipDurationSeconds = 0.25;
  configuration.minimumSpeechDurationSeconds = 0.2;
  configuration.minimumConsecutiveSpeechDurationSeconds = 0.09;
  configuration.minimumRMSAmplitude = 0.01f;
  configuration.minimumPeakAmplitude = 0.03f;
  configuration.noiseFloorMultiplier = 2.5f;
  configuration.minimumZeroCrossingRate = 0.005f;
  configuration.maximumZeroCrossingRate = 0.45f;
  return configuration;
}

void printSpeechAnalysis(const AudioSpeechActivityAnalysis& analysis) {
  std::cout << "contains speech:      " << (analysis.containsSpeech ? "yes" : "no") << "\n"
            << "duration:             " << formatNumber(analysis.durationSeconds, 3) << " s\n"
            << "active speech:        " << formatNumber(analysis.activeDurationSeconds, 3) << " s\n"
            << "longest active run:   " << formatNumber(analysis.longestActiveDurationSeconds, 3) << " s\n"
            << "peak amplitude:       " << formatNumber(analysis.peakAmplitude, 4) << "\n"
            << "average RMS:          " << formatNumber(analysis.averageRMS, 4) << "\n"
            << "speech-like windows:  " << formatNumber(analysis.speechLikeFrameRatio * 100, 1) << " %\n";
}

std::string redactedLine(std::string_view text) {
  std::string line = SecretRedactor::redact(text);
  for (char& c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return line;
}

TranscriptionPrompt builtInPrompt(const std::string& id) {
  const auto& prompts = OrvidDefaults::builtInPrompts();
  for (const TranscriptionPrompt& prompt : prompts) {
    if (prompt.id == id) return prompt;
  }
  throw CommandError{"unknown prompt \"" + id + "\" (built-in prompts: " +
                     joinedIDs(prompts, [](const TranscriptionPrompt& prompt) { return prompt.id; }) + ")"};
}

namespace {

CommandError setupFailure(const ProviderSetupError& error, std::string_view baseURLOption) {
  switch (error.errorCase()) {
    case ProviderSetupError::Case::invalidBaseURL:
    case ProviderSetupError::Case::missingBaseURL:
      return CommandError{std::string(error.what()) + " (" + std::string(baseURLOption) + " URL)"};
    default:
      return CommandError{error.what()};
  }
}

CloudTranscriptionChoice serviceChoice(const ServiceOptions& options) {
  CloudTranscriptionChoice choice;
  choice.providerID = options.provider;
  if (!options.baseURL.empty()) choice.baseURL = options.baseURL;
  if (!options.model.empty()) choice.modelID = options.model;
  if (!options.language.empty()) choice.languageCodes = {options.language};
  return choice;
}

// A language asked for explicitly on the command line is sent as given, even where
// the catalogue does not list it.
void insistOnLanguage(const ServiceOptions& options, ResolvedASRLanguageRoute& route) {
  if (options.language.empty() || route.providerLanguage) return;
  route.providerLanguage = options.language;
  route.diagnostics.push_back("language " + options.language + " sent as given on the command line");
}

template <typename Make>
auto serviceSetup(const ServiceOptions& options, Make make) {
  try {
    auto setup = make(serviceChoice(options), ProviderEnvironment::system(kCredentialService));
    insistOnLanguage(options, setup.languageRoute);
    return setup;
  } catch (const ProviderSetupError& error) {
    throw setupFailure(error, "--base-url");
  }
}

}  // namespace

CloudTranscriptionSetup transcriptionService(const ServiceOptions& options) {
  return serviceSetup(options, [](const auto& choice, const auto& environment) {
    return makeCloudTranscription(choice, environment);
  });
}

RealtimeTranscriptionSetup realtimeService(const ServiceOptions& options) {
  return serviceSetup(options, [](const auto& choice, const auto& environment) {
    return makeRealtimeTranscription(choice, environment);
  });
}

AIProviderSetup aiProviderSetup(const std::string& provider, const std::string& baseURL, const std::string& model,
                                std::string_view baseURLOption) {
  AIProviderChoice choice;
  choice.providerID = provider;
  if (!baseURL.empty()) choice.baseURL = baseURL;
  if (!model.empty()) choice.modelID = model;
  try {
    return makeAIProvider(choice, ProviderEnvironment::system(kCredentialService));
  } catch (const ProviderSetupError& error) {
    if (error.errorCase() != ProviderSetupError::Case::unknownProvider) throw setupFailure(error, baseURLOption);
    const auto& providers = OrvidDefaults::aiProviderDescriptors();
    throw CommandError{"unknown AI provider \"" + provider + "\" (providers: " +
                       joinedIDs(providers, [](const AIProviderDescriptor& entry) { return entry.id; }) + ")"};
  }
}

std::vector<std::string> cuaDriverCandidates(const std::string& executable) {
  if (executable.empty()) return {};
  if (!isExecutableFile(executable)) throw CommandError{"--executable '" + executable + "' is not an executable file"};
  return {executable};
}

}  // namespace orvid::cli
