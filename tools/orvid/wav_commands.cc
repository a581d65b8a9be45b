// orvid wav info | wav resample | speech-check
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "orvid/audio/audio_speech_activity_detector.h"
#include "orvid/audio/audio_wav_decoder.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/audio/pcm16_resampler.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"

namespace orvid::cli {
namespace {

struct WavOptions {
  std::string input;
  std::string output;
  long long rate = 0;
};

void printInfo(const std::string& path) {
  auto frames = readWAVFrames(path);
  std::size_t samples = 0;
  std::size_t bytes = 0;
  for (const auto& frame : frames) {
    samples += static_cast<std::size_t>(frame.sampleCount);
    bytes += frame.pcm16LittleEndian.size();
  }
  double rate = frames.empty() ? 0 : frames.front().sampleRate;
  int channels = frames.empty() ? 0 : frames.front().channelCount;
  std::cout << "file:         " << path << "\n"
            << "format:       16-bit PCM\n"
            << "sample rate:  " << formatNumber(rate, 0) << " Hz\n"
            << "channels:     " << channels << "\n"
            << "samples:      " << samples << " per channel\n"
            << "data bytes:   " << bytes << "\n"
            << "duration:     " << formatNumber(rate > 0 ? static_cast<double>(samples) / rate : 0, 3) << " s\n";
}

void resampleFile(const WavOptions& options) {
  if (options.rate < kLowestSampleRate || options.rate > kHighestSampleRate) {
    throw CommandError{"--rate must be a sample rate between " + std::to_string(kLowestSampleRate) + " and " +
                       std::to_string(kHighestSampleRate) + " Hz, not " + std::to_string(options.rate)};
  }
  auto frames = readWAVFrames(options.input);
  if (frames.empty()) throw CommandError{options.input + ": the file holds no samples"};
  if (frames.front().channelCount != 1) {
    throw CommandError{options.input + ": resampling needs mono audio, the file has " +
                       std::to_string(frames.front().channelCount) + " channels"};
  }
  auto merged = concatenate(frames);
  auto resampled = PCM16Resampler::resample(merged, static_cast<double>(options.rate));
  writeFile(options.output, AudioWAVEncoder::encodePCM16({resampled}));
  std::cout << "wrote " << options.output << ": " << resampled.sampleCount << " samples at " << options.rate
            << " Hz (from " << merged.sampleCount << " at " << formatNumber(merged.sampleRate, 0) << " Hz)\n";
}

}  // namespace

void addWavCommands(CLI::App& app) {
  auto options = std::make_shared<WavOptions>();
  auto* wav = app.add_subcommand("wav", "Inspect and convert 16-bit PCM WAV files");
  wav->require_subcommand(1);

  auto* info = wav->add_subcommand("info", "Print a WAV file's format and duration");
  info->add_option("FILE", options->input, "WAV file")->required();
  info->callback([options] { printInfo(options->input); });

  auto* resample = wav->add_subcommand("resample", "Resample a mono WAV file to another rate");
  resample->add_option("IN", options->input, "input WAV file")->required();
  resample->add_option("OUT", options->output, "output WAV file")->required();
  resample->add_option("--rate", options->rate, "target sample rate in Hz")->required();
  resample->callback([options] { resampleFile(*options); });

  auto* speech = app.add_subcommand("speech-check", "Tell whether a WAV recording contains speech");
  speech->add_option("FILE", options->input, "WAV file")->required();
  speech->callback([options] {
    auto frames = readWAVFrames(options->input);
    auto analysis = AudioSpeechActivityDetector::analyze(frames, defaultSpeechActivityConfiguration());
    printSpeechAnalysis(analysis);
  });
}

}  // namespace orvid::cli
