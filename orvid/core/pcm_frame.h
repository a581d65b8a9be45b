#pragma once

#include <cstddef>
#include <cstdint>

#include <nlohmann/json_fwd.hpp>

#include "orvid/platform/bytes.h"

namespace orvid {

// One chunk of signed 16-bit little-endian interleaved audio. Nothing is checked at
// construction: the creator keeps the byte length at sampleCount × channelCount × 2.
struct PCMFrame {
  Bytes pcm16LittleEndian;
  double sampleRate = 0;
  int channelCount = 0;
  // Sample frames in the chunk (samples per channel).
  int sampleCount = 0;

  bool operator==(const PCMFrame&) const = default;
};

// JSON keys "pcm16LittleEndian" (base64), "sampleRate", "channelCount", "sampleCount".
void to_json(nlohmann::json& json, const PCMFrame& frame);
void from_json(const nlohmann::json& json, PCMFrame& frame);

}  // namespace orvid

template <>
struct std::hash<orvid::PCMFrame> {
  std::size_t operator()(const orvid::PCMFrame& frame) const noexcept;
};
