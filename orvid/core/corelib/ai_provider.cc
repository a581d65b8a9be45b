#include "orvid/core/corelib/ai_provider.h"

#include <array>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/core/corelib/url_json_support.h"

namespace orvid {
namespace {

constexpr std::array<const char*, 3> kStyleNames{"openAICompatibleWithoutKey", "openAICompatibleBearer",
                                                 "anthropicMessages"};
constexpr std::array<const char*, 3> kValidationKindNames{"validated", "notValidated", "failed"};

}  // namespace

std::string rawValue(AIProviderAPIStyle style) { return kStyleNames[static_cast<std::size_t>(style)]; }

std::optional<AIProviderAPIStyle> aiProviderAPIStyleFromRawValue(const std::string& text) {
  for (std::size_t i = 0; i < kStyleNames.size(); ++i) {
    if (text == kStyleNames[i]) return static_cast<AIProviderAPIStyle>(i);
  }
  return std::nullopt;
}

std::string rawValue(AIProviderValidationState::Kind kind) {
  return kValidationKindNames[static_cast<std::size_t>(kind)];
}

void to_json(nlohmann::json& json, const AIProviderAPIStyle& style) { json = rawValue(style); }

void from_json(const nlohmann::json& json, AIProviderAPIStyle& style) {
  auto parsed = aiProviderAPIStyleFromRawValue(json.get<std::string>());
  if (!parsed) throw nlohmann::json::other_error::create(501, "unknown API style: " + json.dump(), &json);
  style = *parsed;
}

void to_json(nlohmann::json& json, const AIProviderHeader& header) {
  json = {{"name", header.name}, {"value", header.value}};
}

void from_json(const nlohmann::json& json, AIProviderHeader& header) {
  json.at("name").get_to(header.name);
  json.at("value").get_to(header.value);
}

void to_json(nlohmann::json& json, const AIProviderCustomHeader& header) {
  json = nlohmann::json::object();
  json["name"] = header.name;
  json_support::putOptional(json, "credentialReference", header.credentialReference);
  json_support::putOptional(json, "value", header.value);
  json["isSecret"] = header.isSecret;
}

void from_json(const nlohmann::json& json, AIProviderCustomHeader& header) {
  header = {};
  json.at("name").get_to(header.name);
  json_support::getOptional(json, "credentialReference", header.credentialReference);
  json_support::getOptional(json, "value", header.value);
  json_support::getIfPresent(json, "isSecret", header.isSecret);
}

void to_json(nlohmann::json& json, const AIProviderDescriptor& descriptor) {
  json = nlohmann::json::object();
  json["id"] = descriptor.id;
  json["displayName"] = descriptor.displayName;
  json["apiStyle"] = descriptor.apiStyle;
  json_support::putOptionalURL(json, "defaultBaseURL", descriptor.defaultBaseURL);
  json["modelListPath"] = descriptor.modelListPath;
  json["defaultHeaders"] = descriptor.defaultHeaders;
  json["supportsModelDiscovery"] = descriptor.supportsModelDiscovery;
  json["supportsStructuredOutput"] = descriptor.supportsStructuredOutput;
  json["supportsReasoningEffort"] = descriptor.supportsReasoningEffort;
  json["supportsReasoningObject"] = descriptor.supportsReasoningObject;
  json["isLocal"] = descriptor.isLocal;
}

void from_json(const nlohmann::json& json, AIProviderDescriptor& descriptor) {
  descriptor = {};
  json.at("id").get_to(descriptor.id);
  json_support::getIfPresent(json, "displayName", descriptor.displayName);
  json.at("apiStyle").get_to(descriptor.apiStyle);
  json_support::getOptionalURL(json, "defaultBaseURL", descriptor.defaultBaseURL);
  json_support::getIfPresent(json, "modelListPath", descriptor.modelListPath);
  json_support::getIfPresent(json, "defaultHeaders", descriptor.defaultHeaders);
  json_support::getIfPresent(json, "supportsModelDiscovery", descriptor.supportsModelDiscovery);
  json_support::getIfPresent(json, "supportsStructuredOutput", descriptor.supportsStructuredOutput);
  json_support::getIfPresent(json, "supportsReasoningEffort", descriptor.supportsReasoningEffort);
  json_support::getIfPresent(json, "supportsReasoningObject", descriptor.supportsReasoningObject);
  json_support::getIfPresent(json, "isLocal", descriptor.isLocal);
}

void to_json(nlohmann::json& json, const AIModelReference& reference) {
  json = nlohmann::json::object();
  json["modelID"] = reference.modelID;
  json["displayName"] = reference.displayName;
  json["providerID"] = reference.providerID;
  json["supportsStructuredOutput"] = reference.supportsStructuredOutput;
  json_support::putOptional(json, "contextWindow", reference.contextWindow);
}

void from_json(const nlohmann::json& json, AIModelReference& reference) {
  reference = {};
  json.at("modelID").get_to(reference.modelID);
  json.at("providerID").get_to(reference.providerID);
  reference.displayName = reference.modelID;
  json_support::getIfPresent(json, "displayName", reference.displayName);
  json_support::getIfPresent(json, "supportsStructuredOutput", reference.supportsStructuredOutput);
  json_support::getOptional(json, "contextWindow", reference.contextWindow);
}

void to_json(nlohmann::json& json, const AIProviderValidationState& state) {
  json = nlohmann::json::object();
  json["kind"] = rawValue(state.kind);
  json_support::putOptional(json, "validatedAt", state.validatedAt);
  json_support::putOptional(json, "message", state.message);
}

void from_json(const nlohmann::json& json, AIProviderValidationState& state) {
  state = {};
  const auto kind = json.at("kind").get<std::string>();
  bool known = false;
  for (std::size_t i = 0; i < kValidationKindNames.size(); ++i) {
    if (kind == kValidationKindNames[i]) {
      state.kind = static_cast<AIProviderValidationState::Kind>(i);
      known = true;
    }
  }
  if (!known) throw nlohmann::json::other_error::create(501, "unknown validation state: " + kind, &json);
  json_support::getOptional(json, "validatedAt", state.validatedAt);
  json_support::getOptional(json, "message", state.message);
}

void to_json(nlohmann::json& json, const AIProviderConfiguration& configuration) {
  json = nlohmann::json::object();
  json["id"] = configuration.id;
  json["providerID"] = configuration.providerID;
  json["displayName"] = configuration.displayName;
  json_support::putOptionalURL(json, "baseURL", configuration.baseURL);
  json_support::putOptional(json, "modelListPath", configuration.modelListPath);
  json["customHeaders"] = configuration.customHeaders;
  json_support::putOptional(json, "selectedModelID", configuration.selectedModelID);
  json["modelIDs"] = configuration.modelIDs;
  json_support::putOptional(json, "maxOutputTokens", configuration.maxOutputTokens);
  json["validationState"] = configuration.validationState;
}

void from_json(const nlohmann::json& json, AIProviderConfiguration& configuration) {
  configuration = {};
  json.at("id").get_to(configuration.id);
  json.at("providerID").get_to(configuration.providerID);
  json_support::getIfPresent(json, "displayName", configuration.displayName);
  json_support::getOptionalURL(json, "baseURL", configuration.baseURL);
  json_support::getOptional(json, "modelListPath", configuration.modelListPath);
  json_support::getIfPresent(json, "customHeaders", configuration.customHeaders);
  json_support::getOptional(json, "selectedModelID", configuration.selectedModelID);
  json_support::getIfPresent(json, "modelIDs", configuration.modelIDs);
  json_support::getOptional(json, "maxOutputTokens", configuration.maxOutputTokens);
  json_support::getIfPresent(json, "validationState", configuration.validationState);
}

void to_json(nlohmann::json& json, const AIProviderDebugHTTPExchange& exchange) {
  json = nlohmann::json::object();
  json["request"] = exchange.request;
  json_support::putOptional(json, "response", exchange.response);
  json_support::putOptional(json, "responseBody", exchange.responseBody);
}

void from_json(const nlohmann::json& json, AIProviderDebugHTTPExchange& exchange) {
  exchange = {};
  json.at("request").get_to(exchange.request);
  json_support::getOptional(json, "response", exchange.response);
  json_support::getOptional(json, "responseBody", exchange.responseBody);
}

void to_json(nlohmann::json& json, const AIProviderModelDiscoveryDebugResult& result) {
  json = nlohmann::json::object();
  json["models"] = result.models;
  json_support::putOptional(json, "errorMessage", result.errorMessage);
  json["exchange"] = result.exchange;
}

void from_json(const nlohmann::json& json, AIProviderModelDiscoveryDebugResult& result) {
  result = {};
  json_support::getIfPresent(json, "models", result.models);
  json_support::getOptional(json, "errorMessage", result.errorMessage);
  json.at("exchange").get_to(result.exchange);
}

}  // namespace orvid
