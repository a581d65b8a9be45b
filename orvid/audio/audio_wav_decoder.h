#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "orvid/core/pcm_frame.h"
#include "orvid/platform/bytes.h"

namespace orvid {

// Why a WAV file could not be cut into frames.
class AudioWAVDecoderError : public std::exception {
 public:
  enum class Case {
    unsupportedBitDepth,
    truncatedHeader,
    notAWAVFile,
    missingFmtChunk,
    missingDataChunk,
    invalidSamplesPerFrame,
  };

  // The file's samples are not 16-bit; carries its bits per sample.
  static AudioWAVDecoderError unsupportedBitDepth(std::int16_t bitsPerSample);
  // Fewer than 44 bytes.
  static AudioWAVDecoderError truncatedHeader();
  // No "RIFF" at offset 0 or no "WAVE" at offset 8.
  static AudioWAVDecoderError notAWAVFile();
  // No "fmt " chunk at offset 12, or a format that declares zero channels.
  static AudioWAVDecoderError missingFmtChunk();
  // No "data" chunk header within the file.
  static AudioWAVDecoderError missingDataChunk();
  // Frames were asked to hold fewer than one sample.
  static AudioWAVDecoderError invalidSamplesPerFrame();

  Case errorCase() const { return case_; }
  // The file's bits per sample for unsupportedBitDepth; 0 for the other cases.
  std::int16_t bitsPerSample() const { return bitsPerSample_; }
  // The error has no message of its own: what() describes the value as its case
  // name, with the payload in parentheses, e.g. "truncatedHeader", "unsupportedBitDepth(8)".
  const char* what() const noexcept override { return message_.c_str(); }

  // Compares case and payload.
  bool operator==(const AudioWAVDecoderError& other) const {
    return case_ == other.case_ && bitsPerSample_ == other.bitsPerSample_;
  }

 private:
  AudioWAVDecoderError(Case errorCase, std::int16_t bitsPerSample);

  Case case_;
  std::int16_t bitsPerSample_;
  std::string message_;
};

// Reads 16-bit PCM WAV files back into frames, and writes frames as WAV files.
namespace AudioWAVDecoder {

// Cuts the samples of `wav` into frames of `samplesPerFrame` sample frames each (the
// last may be shorter), with the header's sample rate and channel count.
// The header must have "RIFF"/"WAVE", a canonical "fmt " chunk at offset 12 and a
// "data" chunk at or after offset 36 (other chunks before it are skipped, with their
// pad byte when odd). A data chunk that declares more bytes than the file holds is not
// an error: decoding stops at the last whole frame that fits. A header with a negative
// channel count yields no frames.
// Throws AudioWAVDecoderError, checked in this order: truncatedHeader, notAWAVFile,
// missingFmtChunk, missingDataChunk, unsupportedBitDepth (not 16 bits),
// invalidSamplesPerFrame (below 1), missingFmtChunk (zero channels).
std::vector<PCMFrame> decode(const Bytes& wav, int samplesPerFrame);

// Writes `frames` as one 16-bit WAV file (format from the first frame: sampleRate
// truncated to a signed 32-bit value, channelCount as a signed 16-bit value, header
// fields written as signed values). Absent for an empty list. For in-range formats the
// bytes equal those of AudioWAVEncoder::encodePCM16(frames).
// Throws std::invalid_argument when a header field cannot hold its value: a rate
// outside signed 32 bits, a channel count outside signed 16 bits, a byte rate
// (channels × rate × 2) outside signed 32 bits, a block align (channels × 2) outside
// signed 16 bits, or more than 2^31 − 37 bytes of samples.
std::optional<Bytes> encodeWAV(const std::vector<PCMFrame>& frames);

}  // namespace AudioWAVDecoder

}  // namespace orvid
