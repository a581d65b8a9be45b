#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "orvid/audio/audio_speech_activity_detector.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/platform/bytes.h"

namespace orvid::cli {

// Reads a whole file; a missing, unreadable or non-regular file is a CommandError.
Bytes readFile(const std::filesystem::path& path);
// Writes a whole file; failure is a CommandError naming the path.
void writeFile(const std::filesystem::path& path, const Bytes& bytes);

// Reads a 16-bit PCM WAV file into frames; every decoding failure, and a sample
// rate or channel count of 0, is a CommandError with one clear line.
std::vector<PCMFrame> readWAVFrames(const std::filesystem::path& path);

// Joins frames of one format into a single frame.
PCMFrame concatenate(const std::vector<PCMFrame>& frames);

// `value` with `decimals` digits after the point.
std::string formatNumber(double value, int decimals);

// Thresholds for telling a short voice command from room noise.
AudioSpeechActivityDetector::Configuration defaultSpeechActivityConfiguration();
void printSpeechAnalysis(const AudioSpeechActivityAnalysis& analysis);

}  // namespace orvid::cli
