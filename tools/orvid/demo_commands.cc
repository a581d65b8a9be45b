// orvid demo: an offline tour of the engine on a built-in recording.
#include <cmath>
#include <cstdint>
#include <iostream>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "orvid/audio/audio_speech_activity_detector.h"
#include "orvid/audio/audio_wav_decoder.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/audio/pcm16_resampler.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/textprocessing/transcript_cleanup_engine.h"
#include "orvid/transcription/asr_language_routing_resolver.h"
#include "orvid/transcription/transcription_provider_registry.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"

namespace orvid::cli {
namespace {

// A spoken-command stand-in: four voiced syllables (a glottal pulse train shaped
// by two vowel formants) between pauses, over faint room noise, 48 kHz mono.
PCMFrame builtInRecording() {
  constexpr double rate = 48000;
  constexpr double duration = 2.4;
  const int count = static_cast<int>(rate * duration);
  std::vector<double> signal(static_cast<std::size_t>(count), 0.0);
  std::mt19937 noise(7);
  std::normal_distribution<double> hiss(0.0, 0.002);
  struct Syllable {
    double start, length, pitch, formant1, formant2;
  };
  const Syllable syllables[] = {{0.30, 0.28, 130, 730, 1090},
                                {0.70, 0.22, 150, 270, 2290},
                                {1.05, 0.32, 120, 570, 840},
                                {1.55, 0.40, 140, 660, 1720}};
  for (int i = 0; i < count; ++i) signal[static_cast<std::size_t>(i)] = hiss(noise);
  for (const auto& s : syllables) {
    int first = static_cast<int>(s.start * rate);
    int last = std::min(count, static_cast<int>((s.start + s.length) * rate));
    for (int i = first; i < last; ++i) {
      double t = (i - first) / rate;
      double envelope = std::sin(std::numbers::pi * t / s.length);
      double value = 0;
      for (int harmonic = 1; harmonic * s.pitch < 4000; ++harmonic) {
        double f = harmonic * s.pitch;
        double gain = 1.0 / (1.0 + std::pow((f - s.formant1) / 120.0, 2)) +
                      0.6 / (1.0 + std::pow((f - s.formant2) / 160.0, 2)) + 0.02;
        value += gain * std::sin(2 * std::numbers::pi * f * t);
      }
      signal[static_cast<std::size_t>(i)] += 0.18 * envelope * value;
    }
  }
  PCMFrame frame;
  frame.sampleRate = rate;
  frame.channelCount = 1;
  frame.sampleCount = count;
  frame.pcm16LittleEndian.reserve(static_cast<std::size_t>(count) * 2);
  for (double value : signal) {
    auto sample = static_cast<std::int16_t>(std::clamp(std::lround(value * 32767.0), -32768L, 32767L));
    auto bits = static_cast<std::uint16_t>(sample);
    frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>(bits & 0xFF));
    frame.pcm16LittleEndian.push_back(static_cast<std::uint8_t>(bits >> 8));
  }
  return frame;
}

void section(const std::string& title) { std::cout << "\n== " << title << "\n"; }

void runDemo() {
  TemporaryDirectory folder("orvid-demo");
  auto recording = builtInRecording();
  std::cout << "Orvid demo: a built-in 2.4 s voice command at 48 kHz, processed offline.\n";

  section("WAV round trip");
  auto path = folder / "command-48k.wav";
  writeFile(path, AudioWAVEncoder::encodePCM16({recording}));
  auto decoded = readWAVFrames(path);
  auto merged = concatenate(decoded);
  std::cout << "wrote " << std::filesystem::file_size(path) << " bytes; read back " << decoded.size()
            << " frames, " << merged.sampleCount << " samples, identical: "
            << (merged.pcm16LittleEndian == recording.pcm16LittleEndian ? "yes" : "no") << "\n";

  section("Resampling for speech services (48 kHz -> 16 kHz)");
  auto speechRate = PCM16Resampler::resample(recording, 16000);
  std::cout << recording.sampleCount << " samples -> " << speechRate.sampleCount << " samples at 16000 Hz\n";

  section("Speech activity: the recording");
  printSpeechAnalysis(AudioSpeechActivityDetector::analyze({speechRate}, defaultSpeechActivityConfiguration()));

  section("Speech activity: 1 s of silence");
  auto silence = AudioWAVEncoder::silentPCMFrame(16000, 1000);
  printSpeechAnalysis(AudioSpeechActivityDetector::analyze({silence}, defaultSpeechActivityConfiguration()));

  section("Language route for a German and English speaker on OpenAI (batch)");
  if (auto provider = TranscriptionProviderRegistry::descriptor("openai")) {
    auto route = ASRLanguageRoutingResolver::resolve(ASRLanguageSelection{{"de", "en"}}, *provider,
                                                     ASRTranscriptionTransport::batch);
    std::cout << route.diagnosticSummary() << "\n";
  }

  section("Cleanup of what a speech service might return for it");
  // Settings of a user who turned on autocorrect and number normalisation.
  UserDefaults settings(folder / "settings.json");
  settings.set(OrvidSettingsPersistence::Key::autocorrectEnabled, true);
  settings.set(OrvidSettingsPersistence::Key::inverseTextNormalizationEnabled, true);
  TranscriptCleanupEngine engine(settings);
  TranscriptCleanupConfiguration configuration;
  configuration.dictionaryTerms = {"GitHub", "Brindle"};
  configuration.removesFillers = true;
  configuration.collapsesStutters = true;
  const std::string heard = "um open open git hub and set the brindle volume to twenty three point five percent";
  std::cout << "heard:   " << heard << "\n";
  std::cout << "cleaned: " << engine.clean(heard, configuration, std::string("en")) << "\n";
}

}  // namespace

void addDemoCommands(CLI::App& app) {
  auto* demo = app.add_subcommand("demo", "Run an offline tour of the engine on a built-in recording");
  auto savePath = std::make_shared<std::string>();
  demo->add_option("--save-recording", *savePath, "Write the built-in recording to this WAV file instead");
  demo->callback([savePath] {
    if (savePath->empty()) return runDemo();
    writeFile(*savePath, AudioWAVEncoder::encodePCM16({builtInRecording()}));
    std::cout << "wrote " << *savePath << "\n";
  });
}

}  // namespace orvid::cli
