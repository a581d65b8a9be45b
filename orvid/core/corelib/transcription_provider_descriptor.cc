#include "orvid/core/corelib/transcription_provider_descriptor.h"

#include <array>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/core/corelib/url_json_support.h"

namespace orvid {
namespace {

using API = CloudTranscriptionProviderAPI;

constexpr std::array<std::pair<API, const char*>, 11> kAPINames{{
    {API::openAICompatible, "openAICompatible"},
    {API::deepgram, "deepgram"},
    {API::elevenLabs, "elevenLabs"},
    {API::cartesia, "cartesia"},
    {API::mistral, "mistral"},
    {API::soniox, "soniox"},
    {API::assemblyAI, "assemblyAI"},
    {API::doubao, "doubao"},
    {API::glm, "glm"},
    {API::stepFun, "stepFun"},
    {API::aliyunCompatible, "aliyunCompatible"},
}};

}  // namespace

std::string rawValue(CloudTranscriptionProviderAPI api) {
  for (const auto& [candidate, name] : kAPINames) {
    if (candidate == api) return name;
  }
  return kAPINames.front().second;
}

std::optional<CloudTranscriptionProviderAPI> cloudTranscriptionProviderAPI(std::string_view text) {
  for (const auto& [candidate, name] : kAPINames) {
    if (text == name) return candidate;
  }
  return std::nullopt;
}

const std::vector<CloudTranscriptionProviderAPI>& allCloudTranscriptionProviderAPIs() {
  static const std::vector<CloudTranscriptionProviderAPI> all = [] {
    std::vector<CloudTranscriptionProviderAPI> cases;
    for (const auto& entry : kAPINames) cases.push_back(entry.first);
    return cases;
  }();
  return all;
}

TranscriptionProviderBackend TranscriptionProviderBackend::cloud(CloudTranscriptionProviderDescriptor descriptor) {
  return {std::move(descriptor)};
}

TranscriptionProviderBackend TranscriptionProviderBackend::onDevice(LocalTranscriptionModelDescriptor model) {
  return {std::move(model)};
}

TranscriptionProviderBackend::Kind TranscriptionProviderBackend::kind() const {
  return value.index() == 0 ? Kind::cloud : Kind::onDevice;
}

const CloudTranscriptionProviderDescriptor* TranscriptionProviderBackend::cloudDescriptor() const {
  return std::get_if<CloudTranscriptionProviderDescriptor>(&value);
}

const LocalTranscriptionModelDescriptor* TranscriptionProviderBackend::localModel() const {
  return std::get_if<LocalTranscriptionModelDescriptor>(&value);
}

std::string rawValue(TranscriptionProviderBackend::Kind kind) {
  return kind == TranscriptionProviderBackend::Kind::cloud ? "cloud" : "onDevice";
}

bool TranscriptionProviderDescriptor::supportsRealtime() const {
  if (const auto* cloud = backend.cloudDescriptor()) return cloud->realtimeBaseURL.has_value();
  return true;
}

std::optional<std::string> TranscriptionProviderDescriptor::defaultModelID(bool realtime) const {
  if (const auto* model = backend.localModel()) return model->id;
  const auto* cloud = backend.cloudDescriptor();
  if (realtime) return cloud->defaultRealtimeModelID;
  if (cloud->defaultModelID.empty()) return std::nullopt;
  return cloud->defaultModelID;
}

void to_json(nlohmann::json& json, const CloudTranscriptionProviderAPI& api) { json = rawValue(api); }

void from_json(const nlohmann::json& json, CloudTranscriptionProviderAPI& api) {
  auto text = json.get<std::string>();
  auto parsed = cloudTranscriptionProviderAPI(text);
  if (!parsed) throw nlohmann::json::other_error::create(501, "unknown transcription API: " + text, &json);
  api = *parsed;
}

void to_json(nlohmann::json& json, const CloudTranscriptionProviderDescriptor& descriptor) {
  json = nlohmann::json::object();
  json_support::putOptionalURL(json, "baseURL", descriptor.baseURL);
  json["modelIDs"] = descriptor.modelIDs;
  json["defaultModelID"] = descriptor.defaultModelID;
  json_support::putOptionalURL(json, "realtimeBaseURL", descriptor.realtimeBaseURL);
  json["realtimeModelIDs"] = descriptor.realtimeModelIDs;
  json_support::putOptional(json, "defaultRealtimeModelID", descriptor.defaultRealtimeModelID);
  json["api"] = descriptor.api;
}

void from_json(const nlohmann::json& json, CloudTranscriptionProviderDescriptor& descriptor) {
  json_support::getOptionalURL(json, "baseURL", descriptor.baseURL);
  descriptor.modelIDs = json.value("modelIDs", std::vector<std::string>{});
  descriptor.defaultModelID = json.at("defaultModelID").get<std::string>();
  json_support::getOptionalURL(json, "realtimeBaseURL", descriptor.realtimeBaseURL);
  descriptor.realtimeModelIDs = json.value("realtimeModelIDs", std::vector<std::string>{});
  json_support::getOptional(json, "defaultRealtimeModelID", descriptor.defaultRealtimeModelID);
  descriptor.api = json.at("api").get<CloudTranscriptionProviderAPI>();
}

void to_json(nlohmann::json& json, const TranscriptionProviderBackend& backend) {
  if (const auto* cloud = backend.cloudDescriptor()) {
    json = nlohmann::json{{"cloud", *cloud}};
  } else {
    json = nlohmann::json{{"onDevice", *backend.localModel()}};
  }
}

void from_json(const nlohmann::json& json, TranscriptionProviderBackend& backend) {
  if (auto it = json.find("cloud"); it != json.end()) {
    backend = TranscriptionProviderBackend::cloud(it->get<CloudTranscriptionProviderDescriptor>());
  } else if (auto local = json.find("onDevice"); local != json.end()) {
    backend = TranscriptionProviderBackend::onDevice(local->get<LocalTranscriptionModelDescriptor>());
  } else {
    throw nlohmann::json::other_error::create(501, "backend must hold \"cloud\" or \"onDevice\"", &json);
  }
}

void to_json(nlohmann::json& json, const TranscriptionProviderDescriptor& descriptor) {
  json = nlohmann::json{{"id", descriptor.id},
                        {"name", descriptor.name},
                        {"supportedLanguageCodes", descriptor.supportedLanguageCodes},
                        {"backend", descriptor.backend}};
}

void from_json(const nlohmann::json& json, TranscriptionProviderDescriptor& descriptor) {
  descriptor.id = json.at("id").get<std::string>();
  descriptor.name = json.at("name").get<std::string>();
  descriptor.supportedLanguageCodes = json.at("supportedLanguageCodes").get<std::vector<std::string>>();
  descriptor.backend = json.at("backend").get<TranscriptionProviderBackend>();
}

}  // namespace orvid
