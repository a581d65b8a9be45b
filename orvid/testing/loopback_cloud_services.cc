#include "orvid/testing/loopback_cloud_services.h"

#include <cstdint>
#include <regex>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

namespace orvid::testing {
namespace {

using nlohmann::json;

std::uint32_t littleEndian(const std::string& bytes, std::size_t offset, int width) {
  std::uint32_t value = 0;
  for (int i = width - 1; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return value;
}

std::size_t wordCount(const std::string& text) {
  std::istringstream stream(text);
  std::size_t count = 0;
  for (std::string word; stream >> word;) ++count;
  return count;
}

std::optional<json> jsonObjectBody(const LoopbackRequest& request) {
  auto parsed = json::parse(request.body, nullptr, false);
  if (!request.header("Content-Type").value_or("").starts_with("application/json") || !parsed.is_object()) return {};
  return parsed;
}

bool nonEmptyString(const json& object, const char* key) {
  return object.contains(key) && object[key].is_string() && !object[key].get<std::string>().empty();
}

LoopbackReply openAIError(int status, const std::string& message, const std::string& type,
                          const json& code = nullptr) {
  return makeReply(status, json{{"error", {{"message", message}, {"type", type}, {"code", code}}}}.dump());
}

LoopbackReply openAIBadRequest(const std::string& message) {
  return openAIError(400, message, "invalid_request_error");
}

std::optional<LoopbackReply> openAIAuthenticationFailure(const LoopbackRequest& request,
                                                         const LoopbackOpenAIService::Options& options) {
  auto authorization = request.header("Authorization").value_or("");
  if (!authorization.starts_with("Bearer ")) return openAIError(401, "No API key.", "invalid_request_error");
  std::string key = authorization.substr(7);
  if (key == options.apiKey) return std::nullopt;
  std::string masked = key.size() > 8 ? key.substr(0, 3) + std::string(key.size() - 7, '*') + key.substr(key.size() - 4)
                                      : std::string(key.size(), '*');
  return openAIError(401, "Incorrect API key provided: " + masked + ".", "invalid_request_error", "invalid_api_key");
}

LoopbackReply openAIRateLimited() {
  LoopbackReply reply = openAIError(429, "Rate limit reached for requests.", "requests", "rate_limit_exceeded");
  reply.headers = {{"retry-after", "1"}};
  return reply;
}

LoopbackReply transcriptionAnswer(const LoopbackRequest& request, const LoopbackOpenAIService::Options& options) {
  if (!request.isMultipart) return openAIBadRequest("Invalid Content-Type header, expected multipart/form-data.");
  static const std::set<std::string> known = {"file", "model", "language", "prompt", "temperature"};
  for (const auto& part : request.parts) {
    if (!known.contains(part.name)) return openAIBadRequest("Unrecognized request argument supplied: " + part.name);
  }
  const auto* model = request.part("model");
  if (model == nullptr || model->content.empty()) return openAIBadRequest("you must provide a model parameter");
  const auto* file = request.part("file");
  if (file == nullptr || !file->filename.ends_with(".wav")) return openAIBadRequest("Invalid file format.");
  if (auto problem = wavProblem(file->content)) return openAIBadRequest("Audio file is corrupted: " + *problem);
  const auto* language = request.part("language");
  if (language != nullptr && !std::regex_match(language->content, std::regex("[a-z]{2,3}"))) {
    return openAIBadRequest("Invalid language '" + language->content + "'. Use ISO-639-1 format.");
  }
  return makeReply(200, json{{"text", options.transcript}}.dump());
}

LoopbackReply chatAnswer(const LoopbackRequest& request, const LoopbackOpenAIService::Options& options) {
  auto body = jsonObjectBody(request);
  if (!body) return openAIBadRequest("We could not parse the JSON body of your request.");
  static const std::set<std::string> known = {"model", "messages", "response_format", "reasoning_effort", "reasoning",
                                              "temperature", "max_tokens", "max_completion_tokens", "stream"};
  for (const auto& [key, value] : body->items()) {
    if (!known.contains(key)) return openAIBadRequest("Unrecognized request argument supplied: " + key);
  }
  if (!nonEmptyString(*body, "model")) return openAIBadRequest("you must provide a model parameter");
  const json messages = body->value("messages", json());
  if (!messages.is_array() || messages.empty()) return openAIBadRequest("Invalid 'messages': expected an array.");
  static const std::set<std::string> roles = {"system", "developer", "user", "assistant", "tool"};
  std::size_t promptTokens = 0;
  for (const json& message : messages) {
    if (!message.is_object() || !message.contains("role") || !message["role"].is_string() ||
        !roles.contains(message["role"].get<std::string>())) {
      return openAIBadRequest("Invalid value for 'messages[].role'.");
    }
    if (!message.contains("content") || !message["content"].is_string()) {
      return openAIBadRequest("Invalid type for 'messages[].content'.");
    }
    promptTokens += wordCount(message["content"]);
  }
  std::string content = options.chatReply;
  if (body->contains("response_format")) {
    const json format = (*body)["response_format"];
    const std::string type = format.is_object() ? format.value("type", "") : "";
    if (type == "json_schema") {
      const json wrapper = format.value("json_schema", json());
      if (!wrapper.is_object() || !nonEmptyString(wrapper, "name") || !wrapper.value("schema", json()).is_object()) {
        return openAIBadRequest("Invalid 'response_format.json_schema'.");
      }
      json answer = json::object();
      const json properties = wrapper["schema"].value("properties", json::object());
      for (const auto& [name, property] : properties.items()) {
        if (property.is_object() && property.value("type", "") == "string") answer[name] = options.chatReply;
      }
      content = answer.dump();
    } else if (type != "text" && type != "json_object") {
      return openAIBadRequest("Invalid value for 'response_format.type'.");
    }
  }
  const std::size_t completionTokens = wordCount(options.chatReply);
  const json choice = {{"index", 0}, {"message", {{"role", "assistant"}, {"content", content}}}, {"finish_reason", "stop"}};
  const json usage = {{"prompt_tokens", promptTokens}, {"completion_tokens", completionTokens}};
  return makeReply(200, json{{"object", "chat.completion"}, {"model", (*body)["model"]},
                             {"choices", json::array({choice})}, {"usage", usage}}.dump());
}

LoopbackReply anthropicError(int status, const std::string& type, const std::string& message) {
  return makeReply(status, json{{"type", "error"}, {"error", {{"type", type}, {"message", message}}}}.dump());
}

LoopbackReply anthropicBadRequest(const std::string& message) {
  return anthropicError(400, "invalid_request_error", message);
}

LoopbackReply anthropicRateLimited() {
  LoopbackReply reply = anthropicError(429, "rate_limit_error", "This request would exceed the rate limit.");
  reply.headers = {{"retry-after", "1"}};
  return reply;
}

std::optional<LoopbackReply> anthropicAuthenticationFailure(const LoopbackRequest& request,
                                                            const LoopbackAnthropicService::Options& options) {
  auto key = request.header("x-api-key");
  if (!key) return anthropicError(401, "authentication_error", "x-api-key header is required");
  if (*key != options.apiKey) return anthropicError(401, "authentication_error", "invalid x-api-key");
  return std::nullopt;
}

LoopbackReply messagesAnswer(const LoopbackRequest& request, const LoopbackAnthropicService::Options& options) {
  if (request.header("anthropic-version") != "2023-06-01") return anthropicBadRequest("anthropic-version: header is required");
  auto body = jsonObjectBody(request);
  if (!body) return anthropicBadRequest("The request body is not valid JSON.");
  static const std::set<std::string> known = {"model",       "max_tokens", "messages", "system", "metadata",
                                              "temperature", "stream",     "thinking", "stop_sequences"};
  for (const auto& [key, value] : body->items()) {
    if (!known.contains(key)) return anthropicBadRequest(key + ": Extra inputs are not permitted");
  }
  if (!nonEmptyString(*body, "model")) return anthropicBadRequest("model: Field required");
  const json maxTokens = body->value("max_tokens", json());
  if (!maxTokens.is_number_integer() || maxTokens < 1) return anthropicBadRequest("max_tokens: Field required");
  const json messages = body->value("messages", json());
  if (!messages.is_array() || messages.empty()) return anthropicBadRequest("messages: at least one is required");
  std::size_t inputTokens = 0;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const json& message = messages[i];
    const json role = message.is_object() ? message.value("role", json()) : json();
    if (role != "user" && (role != "assistant" || i == 0)) {
      return anthropicBadRequest("messages." + std::to_string(i) + ".role: Input should be 'user' or 'assistant', "
                                 "starting with 'user'");
    }
    if (!message.contains("content") || !message["content"].is_string()) {
      return anthropicBadRequest("messages." + std::to_string(i) + ".content: Field required");
    }
    inputTokens += wordCount(message["content"]);
  }
  if (body->contains("system")) {
    if (!(*body)["system"].is_string()) return anthropicBadRequest("system: Input should be a valid string");
    inputTokens += wordCount((*body)["system"]);
  }
  return makeReply(200, json{{"type", "message"}, {"role", "assistant"}, {"model", (*body)["model"]},
                             {"content", json::array({{{"type", "text"}, {"text", options.reply}}})},
                             {"stop_reason", "end_turn"},
                             {"usage", {{"input_tokens", inputTokens}, {"output_tokens", wordCount(options.reply)}}}}
                            .dump());
}

// A route that authenticates, then answers the way the current scenario says.
template <typename Options, typename Authenticate, typename Answer>
LoopbackHTTPServer::Handler route(std::shared_ptr<std::atomic<LoopbackScenario>> scenario, Options options,
                                  Authenticate authenticate, Answer answer, LoopbackReply (*rateLimited)()) {
  return [=](const LoopbackRequest& request) {
    if (auto refusal = authenticate(request, options)) return *refusal;
    const LoopbackScenario now = scenario->load();
    if (now == LoopbackScenario::rateLimited) return rateLimited();
    LoopbackReply reply = answer(request, options);
    if (now == LoopbackScenario::slowAnswer) reply.delay = options.slowAnswerDelay;
    reply.dropConnection = now == LoopbackScenario::dropConnection;
    return reply;
  };
}

}  // namespace

std::optional<std::string> wavProblem(const std::string& bytes) {
  if (bytes.size() < 12 || bytes.compare(0, 4, "RIFF") != 0 || bytes.compare(8, 4, "WAVE") != 0) {
    return "not a RIFF/WAVE file";
  }
  if (littleEndian(bytes, 4, 4) + 8ull != bytes.size()) return "the RIFF size does not match the file size";
  std::uint32_t channels = 0;
  for (std::size_t offset = 12; offset + 8 <= bytes.size();) {
    const std::string id = bytes.substr(offset, 4);
    const std::uint32_t size = littleEndian(bytes, offset + 4, 4);
    const std::size_t start = offset + 8;
    if (start + size > bytes.size()) return "chunk \"" + id + "\" runs past the end of the file";
    if (id == "fmt ") {
      if (size < 16) return "the fmt chunk is too short";
      if (littleEndian(bytes, start, 2) != 1) return "the audio is not PCM";
      if (littleEndian(bytes, start + 14, 2) != 16) return "the samples are not 16-bit";
      channels = littleEndian(bytes, start + 2, 2);
      const std::uint32_t sampleRate = littleEndian(bytes, start + 4, 4);
      if (channels == 0 || sampleRate == 0) return "no channels or no sample rate";
    } else if (id == "data") {
      if (channels == 0) return "the data chunk comes before the fmt chunk";
      if (size % (2 * channels) != 0) return "the data chunk ends mid-frame";
      return std::nullopt;
    }
    offset = start + size + size % 2;
  }
  return "no data chunk";
}

LoopbackOpenAIService::LoopbackOpenAIService(LoopbackHTTPServer& server, Options options)
    : LoopbackService(server, options.pathPrefix) {
  server.route("POST", options.pathPrefix + "/audio/transcriptions",
               route(scenario_, options, openAIAuthenticationFailure, transcriptionAnswer, openAIRateLimited));
  server.route("POST", options.pathPrefix + "/chat/completions",
               route(scenario_, options, openAIAuthenticationFailure, chatAnswer, openAIRateLimited));
}

LoopbackAnthropicService::LoopbackAnthropicService(LoopbackHTTPServer& server, Options options)
    : LoopbackService(server, options.pathPrefix) {
  server.route("POST", options.pathPrefix + "/messages",
               route(scenario_, options, anthropicAuthenticationFailure, messagesAnswer, anthropicRateLimited));
}

}  // namespace orvid::testing
