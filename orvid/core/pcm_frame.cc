#include "orvid/core/pcm_frame.h"

#include <functional>
#include <string_view>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/base64.h"
#include "orvid/platform/internal/hash.h"

namespace orvid {

void to_json(nlohmann::json& json, const PCMFrame& frame) {
  json = nlohmann::json{{"pcm16LittleEndian", Base64::encode(frame.pcm16LittleEndian)},
                        {"sampleRate", frame.sampleRate},
                        {"channelCount", frame.channelCount},
                        {"sampleCount", frame.sampleCount}};
}

void from_json(const nlohmann::json& json, PCMFrame& frame) {
  auto text = json.at("pcm16LittleEndian").get<std::string>();
  auto bytes = Base64::decode(text);
  if (!bytes) throw nlohmann::json::other_error::create(501, "pcm16LittleEndian is not base64", &json);
  frame.pcm16LittleEndian = std::move(*bytes);
  frame.sampleRate = json.at("sampleRate").get<double>();
  frame.channelCount = json_support::integer<int>(json.at("channelCount"));
  frame.sampleCount = json_support::integer<int>(json.at("sampleCount"));
}

}  // namespace orvid

std::size_t std::hash<orvid::PCMFrame>::operator()(const orvid::PCMFrame& frame) const noexcept {
  std::string_view bytes(reinterpret_cast<const char*>(frame.pcm16LittleEndian.data()),
                         frame.pcm16LittleEndian.size());
  return orvid::internal::hashCombinedValues(std::hash<std::string_view>()(bytes), frame.sampleRate,
                                             frame.channelCount, frame.sampleCount);
}
