#include "tools/orvid/cli_support.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "orvid/audio/audio_wav_decoder.h"
#include "tools/orvid/commands.h"

namespace orvid::cli {

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

std::vector<PCMFrame> readWAVFrames(const std::filesystem::path& path) {
  auto bytes = readFile(path);
  std::vector<PCMFrame> frames;
  try {
    frames = AudioWAVDecoder::decode(bytes, 4096);
  } catch (const AudioWAVDecoderError& error) {
    throw CommandError{path.string() + ": " + error.what()};
  }
  if (!frames.empty()) {
    if (frames.front().sampleRate <= 0) throw CommandError{path.string() + ": the WAV header declares a sample rate of 0 Hz"};
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

}  // namespace orvid::cli
