#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

// How audio reaches a speech engine: a finished recording, or a live stream.
enum class ASRTranscriptionTransport { batch, realtime };

std::string rawValue(ASRTranscriptionTransport transport);

void to_json(nlohmann::json& json, const ASRTranscriptionTransport& transport);
void from_json(const nlohmann::json& json, ASRTranscriptionTransport& transport);

}  // namespace orvid
