#include "orvid/core/corelib/asr_transport.h"

#include <nlohmann/json.hpp>

namespace orvid {

std::string rawValue(ASRTranscriptionTransport transport) {
  return transport == ASRTranscriptionTransport::batch ? "batch" : "realtime";
}

void to_json(nlohmann::json& json, const ASRTranscriptionTransport& transport) { json = rawValue(transport); }

void from_json(const nlohmann::json& json, ASRTranscriptionTransport& transport) {
  auto text = json.get<std::string>();
  if (text == "batch") {
    transport = ASRTranscriptionTransport::batch;
  } else if (text == "realtime") {
    transport = ASRTranscriptionTransport::realtime;
  } else {
    throw nlohmann::json::other_error::create(501, "unknown transport: " + text, &json);
  }
}

}  // namespace orvid
