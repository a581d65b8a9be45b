#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "orvid/audio/opus_orvid_error.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/platform/bytes.h"

// Writers of RIFF/WAVE files with the canonical 44-byte header (format tag 1, integer
// PCM), followed by the samples unchanged, and of silent test audio.
namespace orvid::AudioWAVEncoder {

// Writes `frames` as one 16-bit WAV file: the format comes from the first frame only
// (its sampleRate truncated toward zero, its channelCount); the bytes of all frames
// follow in order, unconverted.
// Throws OpusOrvidError::emptyAudio() for an empty list, and std::invalid_argument
// when the first frame's rate or channel count cannot be written (see below).
Bytes encodePCM16(const std::vector<PCMFrame>& frames);

// Writes the header for `pcm` with the given format and appends `pcm` unchanged.
// Byte rate = sampleRate × channels × (bitsPerSample ÷ 8), block align =
// channels × (bitsPerSample ÷ 8), integer division.
// Throws std::invalid_argument when a header field cannot hold its value: the byte
// rate beyond 32 unsigned bits, the block align beyond 16 unsigned bits (more than
// 32767 channels of 16-bit samples), or pcm.size() + 36 beyond 32 unsigned bits.
Bytes encodePCM16(std::span<const std::uint8_t> pcm, std::uint32_t sampleRate, std::uint16_t channels,
                  std::uint16_t bitsPerSample);

// A mono 16-bit WAV file of sampleRate × durationMilliseconds ÷ 1000 (truncated) zero
// samples. Throws std::invalid_argument for a negative duration or a file beyond 4 GB.
Bytes silentWAV(std::uint32_t sampleRate, int durationMilliseconds);

// A mono frame of (sampleRate truncated to an integer) × durationMilliseconds ÷ 1000
// (truncated) zero samples, carrying `sampleRate` as given.
// Throws std::invalid_argument when the rate is not finite or the sample count is
// negative or beyond what a frame can count (INT_MAX).
PCMFrame silentPCMFrame(double sampleRate, int durationMilliseconds);

}  // namespace orvid::AudioWAVEncoder
