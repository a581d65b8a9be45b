#include "orvid/ai/ai_model_discovery.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "orvid/ai/orvid_provider_error.h"
#include "orvid/ai/secret_redactor.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

using nlohmann::json;

bool isArrayOf(const json& value, json::value_t type) {
  return value.is_array() &&
         std::all_of(value.begin(), value.end(), [type](const json& element) { return element.type() == type; });
}

// The identifiers of the first matching shape; absent when none matches.
std::optional<std::vector<std::string>> identifiers(const json& body) {
  const json* list = nullptr;
  if (body.is_object()) {
    for (const char* key : {"data", "models"}) {
      auto member = body.find(key);
      if (member != body.end() && isArrayOf(*member, json::value_t::object)) {
        list = &*member;
        break;
      }
    }
  } else if (isArrayOf(body, json::value_t::string) || isArrayOf(body, json::value_t::object)) {
    list = &body;
  }
  if (list == nullptr) return std::nullopt;
  std::vector<std::string> found;
  for (const json& element : *list) {
    if (element.is_string()) {
      found.push_back(element.get<std::string>());
      continue;
    }
    for (const char* key : {"id", "name"}) {
      auto member = element.find(key);
      if (member != element.end() && member->is_string()) {
        found.push_back(member->get<std::string>());
        break;
      }
    }
  }
  return found;
}

std::string failureText(const OrvidHTTPResponse& response) {
  auto text = internal::decodeUTF8(response.body);
  return text ? SecretRedactor::redact(*text) : std::string("Model discovery failed");
}

// Lower-cased trimmed names of the headers whose values are never shown.
std::set<std::string> sensitiveHeaders(const AIProviderDescriptor& provider,
                                       const AIProviderConfiguration& configuration) {
  std::set<std::string> names = {"authorization", "proxy-authorization"};
  if (provider.apiStyle == AIProviderAPIStyle::anthropicMessages) names.insert("x-api-key");
  for (const auto& header : configuration.customHeaders) {
    if (header.isSecret || header.credentialReference) {
      names.insert(internal::lowercaseASCII(internal::trimUnicodeWhitespace(header.name)));
    }
  }
  return names;
}

std::string headerLines(std::vector<OrvidHTTPHeader> headers, const std::set<std::string>& sensitive) {
  std::stable_sort(headers.begin(), headers.end(),
                   [](const OrvidHTTPHeader& a, const OrvidHTTPHeader& b) { return a.name < b.name; });
  std::string lines;
  for (const auto& header : headers) {
    lines += "\n" + header.name + ": ";
    lines += sensitive.contains(internal::lowercaseASCII(header.name)) ? std::string("[REDACTED]")
                                                                         : SecretRedactor::redact(header.value);
  }
  return lines;
}

}  // namespace

std::vector<AIModelReference> AIModelDiscoveryParser::parse(const Bytes& data, const std::string& providerID,
                                                            bool supportsStructuredOutput) {
  json body = json::parse(data.begin(), data.end(), nullptr, false);
  if (body.is_discarded()) throw OrvidProviderError::invalidResponse();
  auto found = identifiers(body);
  if (!found) throw OrvidProviderError::invalidResponse();
  std::vector<AIModelReference> models;
  models.reserve(found->size());
  for (auto& identifier : *found) {
    if (internal::trimUnicodeWhitespace(identifier).empty()) continue;
    models.push_back({identifier, identifier, providerID, supportsStructuredOutput, std::nullopt});
  }
  return models;
}

HTTPAIModelDiscoveryClient::HTTPAIModelDiscoveryClient(std::shared_ptr<OrvidHTTPClient> httpClient,
                                                       std::shared_ptr<const OrvidCredentialStore> credentialStore)
    : httpClient_(std::move(httpClient)), requestBuilder_(std::move(credentialStore)) {}

std::vector<AIModelReference> HTTPAIModelDiscoveryClient::discoverModels(const AIProviderDescriptor& provider,
                                                                         const AIProviderConfiguration& configuration,
                                                                         std::stop_token stop) const {
  OrvidHTTPRequest request = requestBuilder_.modelDiscoveryRequest(provider, configuration);
  OrvidHTTPResponse response = httpClient_->data(request, stop);
  if (!response.isSuccess()) throw OrvidProviderError::unsupportedProvider(failureText(response));
  return AIModelDiscoveryParser::parse(response.body, configuration.id, provider.supportsStructuredOutput);
}

AIProviderModelDiscoveryDebugResult HTTPAIModelDiscoveryClient::discoverModelsWithDebugTrace(
    const AIProviderDescriptor& provider, const AIProviderConfiguration& configuration, std::stop_token stop) const {
  OrvidHTTPRequest request = requestBuilder_.modelDiscoveryRequest(provider, configuration);
  const auto sensitive = sensitiveHeaders(provider, configuration);
  AIProviderModelDiscoveryDebugResult result;
  result.exchange.request = (request.method.empty() ? std::string("GET") : request.method) + " " +
                            request.url.absoluteString() + headerLines(request.headers, sensitive);
  try {
    OrvidHTTPResponse response = httpClient_->data(request, stop);
    result.exchange.response = "HTTP " + std::to_string(response.statusCode) + headerLines(response.headers, sensitive);
    result.exchange.responseBody = SecretRedactor::redact(internal::decodeUTF8OrEmpty(response.body));
    if (!response.isSuccess()) {
      result.errorMessage = failureText(response);
      return result;
    }
    result.models = AIModelDiscoveryParser::parse(response.body, configuration.id, provider.supportsStructuredOutput);
  } catch (const OrvidProviderError& error) {
    result.errorMessage = error.validationFailureMessage();
  } catch (const std::exception& error) {
    result.errorMessage = SecretRedactor::redact(error.what());
  }
  return result;
}

AIProviderValidationClient::AIProviderValidationClient(std::shared_ptr<ChatCompletionClient> client)
    : client_(std::move(client)) {}

AIProviderValidationState AIProviderValidationClient::validate(const AIProviderDescriptor& provider,
                                                               const AIProviderConfiguration& configuration,
                                                               std::stop_token stop) const {
  std::string model;
  if (configuration.selectedModelID) model = std::string(internal::trimUnicodeWhitespace(*configuration.selectedModelID));
  if (model.empty() && !configuration.modelIDs.empty()) model = configuration.modelIDs.front();
  if (model.empty()) throw OrvidProviderError::missingModel();
  ChatCompletionRequest request;
  request.providerID = provider.id;
  request.modelID = model;
  request.systemPrompt = "Reply with exactly: ok";
  request.userText = "ok";
  client_->complete(request, provider, configuration, stop);
  return AIProviderValidationState::validated(std::chrono::system_clock::now());
}

}  // namespace orvid
