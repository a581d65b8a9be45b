#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/platform/url.h"

namespace orvid {

// The protocol a cloud transcription service speaks. The order of the cases is fixed.
enum class CloudTranscriptionProviderAPI {
  openAICompatible,  // multipart upload to "audio/transcriptions"
  deepgram,
  elevenLabs,
  cartesia,
  mistral,
  soniox,            // upload, job and poll
  assemblyAI,        // upload, job and poll
  doubao,
  glm,               // multipart upload answered as server-sent events
  stepFun,           // JSON body with base64 PCM answered as server-sent events
  aliyunCompatible,  // chat-completions request carrying the recording
};

// The case name, e.g. "assemblyAI".
std::string rawValue(CloudTranscriptionProviderAPI api);
// The case whose name is exactly `text`; absent for anything else.
std::optional<CloudTranscriptionProviderAPI> cloudTranscriptionProviderAPI(std::string_view text);
// Every case in declaration order.
const std::vector<CloudTranscriptionProviderAPI>& allCloudTranscriptionProviderAPIs();

// How to reach one cloud transcription service.
struct CloudTranscriptionProviderDescriptor {
  // The batch API's base (for the streamed-answer services, the full endpoint);
  // absent when the host must configure it.
  std::optional<URL> baseURL;
  // Batch models the host offers, the default first.
  std::vector<std::string> modelIDs;
  std::string defaultModelID;
  // The real-time endpoint; absent when the service has no real-time adapter.
  std::optional<URL> realtimeBaseURL;
  std::vector<std::string> realtimeModelIDs;
  std::optional<std::string> defaultRealtimeModelID;
  CloudTranscriptionProviderAPI api = CloudTranscriptionProviderAPI::openAICompatible;

  bool operator==(const CloudTranscriptionProviderDescriptor&) const = default;
};

// Where a provider runs: a cloud service, or one on-device model.
struct TranscriptionProviderBackend {
  enum class Kind { cloud, onDevice };

  std::variant<CloudTranscriptionProviderDescriptor, LocalTranscriptionModelDescriptor> value;

  static TranscriptionProviderBackend cloud(CloudTranscriptionProviderDescriptor descriptor);
  static TranscriptionProviderBackend onDevice(LocalTranscriptionModelDescriptor model);

  Kind kind() const;
  bool isCloud() const { return kind() == Kind::cloud; }
  // The payload of the matching case, or null.
  const CloudTranscriptionProviderDescriptor* cloudDescriptor() const;
  const LocalTranscriptionModelDescriptor* localModel() const;

  bool operator==(const TranscriptionProviderBackend&) const = default;
};

std::string rawValue(TranscriptionProviderBackend::Kind kind);

// One speech-to-text provider the host can offer.
struct TranscriptionProviderDescriptor {
  std::string id;
  std::string name;
  // Codes the user may pick for this provider, as the language picker writes them
  // ("en", "zh-Hans"); "auto" when the provider detects the language itself.
  std::vector<std::string> supportedLanguageCodes;
  TranscriptionProviderBackend backend;

  // True for on-device models and for cloud services with a real-time endpoint.
  bool supportsRealtime() const;
  // The model a request uses when the caller names none: the cloud default of the
  // transport, or the on-device model's identifier.
  std::optional<std::string> defaultModelID(bool realtime) const;

  bool operator==(const TranscriptionProviderDescriptor&) const = default;
};

// JSON: the API as its case name; the backend as {"cloud": {...}} or {"onDevice": {...}};
// records with their field names as keys, absent optionals omitted, URLs as text.
void to_json(nlohmann::json& json, const CloudTranscriptionProviderAPI& api);
void from_json(const nlohmann::json& json, CloudTranscriptionProviderAPI& api);
void to_json(nlohmann::json& json, const CloudTranscriptionProviderDescriptor& descriptor);
void from_json(const nlohmann::json& json, CloudTranscriptionProviderDescriptor& descriptor);
void to_json(nlohmann::json& json, const TranscriptionProviderBackend& backend);
void from_json(const nlohmann::json& json, TranscriptionProviderBackend& backend);
void to_json(nlohmann::json& json, const TranscriptionProviderDescriptor& descriptor);
void from_json(const nlohmann::json& json, TranscriptionProviderDescriptor& descriptor);

}  // namespace orvid
