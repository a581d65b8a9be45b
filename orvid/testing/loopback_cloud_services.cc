#include "orvid/testing/loopback_cloud_services.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <regex>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

namespace orvid::testing {
namespace {

using nlohmann::json;

std::uint32_t readUInt32(const std::string& bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[offset])) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[offset + 1])) << 8 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[offset + 2])) << 16 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[offset + 3])) << 24;
}

std::uint16_t readUInt16(const std::string& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[offset]) |
                                    static_cast<unsigned char>(bytes[offset + 1]) << 8);
}

struct WAVDescription {
  int channels = 0;
  std::uint32_t sampleRate = 0;
  std::uint32_t dataBytes = 0;
  double seconds() const { return sampleRate == 0 || channels == 0 ? 0 : dataBytes / (2.0 * channels * sampleRate); }
};

std::optional<WAVDescription> describeWAV(const std::string& bytes, std::string* problem) {
  auto fail = [&](std::string reason) -> std::optional<WAVDescription> {
    if (problem != nullptr) *problem = std::move(reason);
    return std::nullopt;
  };
  if (bytes.size() < 12 || bytes.compare(0, 4, "RIFF") != 0 || bytes.compare(8, 4, "WAVE") != 0) {
    return fail("not a RIFF/WAVE file");
  }
  if (readUInt32(bytes, 4) + 8ull != bytes.size()) return fail("the RIFF size does not match the file size");
  WAVDescription description;
  bool sawFormat = false;
  std::size_t offset = 12;
  while (offset + 8 <= bytes.size()) {
    std::string id = bytes.substr(offset, 4);
    std::uint32_t size = readUInt32(bytes, offset + 4);
    std::size_t start = offset + 8;
    if (start + size > bytes.size()) return fail("chunk \"" + id + "\" runs past the end of the file");
    if (id == "fmt ") {
      if (size < 16) return fail("the fmt chunk is too short");
      if (readUInt16(bytes, start) != 1) return fail("the audio is not PCM");
      description.channels = readUInt16(bytes, start + 2);
      description.sampleRate = readUInt32(bytes, start + 4);
      std::uint32_t byteRate = readUInt32(bytes, start + 8);
      std::uint16_t blockAlign = readUInt16(bytes, start + 12);
      if (readUInt16(bytes, start + 14) != 16) return fail("the samples are not 16-bit");
      if (description.channels < 1 || description.sampleRate == 0) return fail("no channels or no sample rate");
      if (blockAlign != description.channels * 2 || byteRate != description.sampleRate * blockAlign) {
        return fail("the byte rate or block alignment is inconsistent");
      }
      sawFormat = true;
    } else if (id == "data") {
      if (!sawFormat) return fail("the data chunk comes before the fmt chunk");
      if (size % (2u * static_cast<unsigned>(description.channels)) != 0) return fail("the data chunk ends mid-frame");
      description.dataBytes = size;
      return description;
    }
    offset = start + size + (size % 2);
  }
  return fail("no data chunk");
}

std::size_t wordCount(const std::string& text) {
  std::istringstream stream(text);
  std::string word;
  std::size_t count = 0;
  while (stream >> word) ++count;
  return count;
}

// ----- OpenAI -----

LoopbackReply openAIError(int status, const std::string& message, const std::string& type,
                          const json& param = nullptr, const json& code = nullptr) {
  LoopbackReply reply;
  reply.status = status;
  reply.body = json{{"error", {{"message", message}, {"type", type}, {"param", param}, {"code", code}}}}.dump();
  return reply;
}

LoopbackReply openAIBadRequest(const std::string& message, const json& param = nullptr) {
  return openAIError(400, message, "invalid_request_error", param);
}

std::optional<LoopbackReply> openAIAuthenticationFailure(const LoopbackRequest& request, const std::string& apiKey) {
  auto authorization = request.header("Authorization");
  if (!authorization || !authorization->starts_with("Bearer ")) {
    return openAIError(401,
                       "You didn't provide an API key. You need to provide your API key in an Authorization header "
                       "using Bearer auth (i.e. Authorization: Bearer YOUR_KEY).",
                       "invalid_request_error");
  }
  std::string key = authorization->substr(7);
  if (key == apiKey) return std::nullopt;
  std::string masked = key.size() > 8 ? key.substr(0, 3) + std::string(key.size() - 7, '*') + key.substr(key.size() - 4)
                                      : std::string(key.size(), '*');
  return openAIError(401, "Incorrect API key provided: " + masked + ".", "invalid_request_error", nullptr,
                     "invalid_api_key");
}

LoopbackReply openAIScenarioFailure(LoopbackScenario scenario) {
  if (scenario == LoopbackScenario::rateLimited) {
    LoopbackReply reply =
        openAIError(429, "Rate limit reached for requests. Please try again in 1s.", "requests", nullptr,
                    "rate_limit_exceeded");
    reply.headers = {{"retry-after", "1"}, {"x-ratelimit-remaining-requests", "0"}};
    return reply;
  }
  return openAIError(500, "The server had an error while processing your request. Sorry about that!", "server_error");
}

std::optional<double> parseNumber(const std::string& text) {
  double value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::string timestamp(double seconds, char fractionSeparator) {
  auto milliseconds = static_cast<long long>(std::llround(seconds * 1000));
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%02lld:%02lld:%02lld%c%03lld", milliseconds / 3'600'000,
                milliseconds / 60'000 % 60, milliseconds / 1000 % 60, fractionSeparator, milliseconds % 1000);
  return buffer;
}

LoopbackReply transcriptionAnswer(const LoopbackRequest& request, const LoopbackOpenAIService::Options& options) {
  if (!request.isMultipart) {
    return openAIBadRequest("Invalid Content-Type header (" + request.header("Content-Type").value_or("") +
                            "), expected multipart/form-data.");
  }
  static const std::set<std::string> known = {"file", "model", "language", "prompt", "response_format", "temperature",
                                              "timestamp_granularities[]", "include[]", "stream", "chunking_strategy"};
  std::set<std::string> seen;
  for (const auto& part : request.parts) {
    if (!known.contains(part.name)) return openAIBadRequest("Unrecognized request argument supplied: " + part.name);
    if (!part.name.ends_with("[]") && !seen.insert(part.name).second) {
      return openAIBadRequest("Duplicate form field: " + part.name, part.name);
    }
    if (part.name != "file" && !part.filename.empty()) {
      return openAIBadRequest("Field " + part.name + " must be a text field, not a file.", part.name);
    }
  }
  const auto* model = request.part("model");
  if (model == nullptr || model->content.empty()) return openAIBadRequest("you must provide a model parameter", "model");
  const auto* file = request.part("file");
  if (file == nullptr || file->filename.empty()) {
    return openAIBadRequest("1 validation error for Request\nbody -> file\n  field required", "file");
  }
  static const std::regex supported(R"(.*\.(flac|m4a|mp3|mp4|mpeg|mpga|oga|ogg|wav|webm)$)", std::regex::icase);
  if (!std::regex_match(file->filename, supported)) {
    return openAIBadRequest(
        "Invalid file format. Supported formats: ['flac', 'm4a', 'mp3', 'mp4', 'mpeg', 'mpga', 'oga', 'ogg', 'wav', "
        "'webm']",
        "file");
  }
  std::string problem;
  auto wav = describeWAV(file->content, &problem);
  if (!wav) return openAIBadRequest("Audio file might be corrupted or unsupported: " + problem, "file");
  if (const auto* language = request.part("language")) {
    static const std::regex iso639(R"([a-z]{2,3})");
    if (!std::regex_match(language->content, iso639)) {
      return openAIBadRequest("Invalid language '" + language->content +
                                  "'. Language parameter must be specified in ISO-639-1 format.",
                              "language");
    }
  }
  if (const auto* temperature = request.part("temperature")) {
    auto value = parseNumber(temperature->content);
    if (!value || *value < 0 || *value > 1) {
      return openAIBadRequest("Invalid 'temperature': expected a number between 0 and 1, got '" +
                                  temperature->content + "'.",
                              "temperature");
    }
  }
  std::string format = "json";
  if (const auto* responseFormat = request.part("response_format")) format = responseFormat->content;

  double seconds = wav->seconds();
  LoopbackReply reply;
  if (format == "json") {
    reply.body = json{{"text", options.transcript},
                      {"usage", {{"type", "duration"}, {"seconds", static_cast<int>(std::ceil(seconds))}}}}
                     .dump();
  } else if (format == "verbose_json") {
    reply.body = json{{"task", "transcribe"},
                      {"language", options.transcriptLanguage},
                      {"duration", seconds},
                      {"text", options.transcript},
                      {"segments", json::array({{{"id", 0},
                                                 {"seek", 0},
                                                 {"start", 0.0},
                                                 {"end", seconds},
                                                 {"text", " " + options.transcript},
                                                 {"temperature", 0.0},
                                                 {"avg_logprob", -0.25},
                                                 {"compression_ratio", 1.0},
                                                 {"no_speech_prob", 0.01}}})}}
                     .dump();
  } else if (format == "text") {
    reply.contentType = "text/plain; charset=utf-8";
    reply.body = options.transcript + "\n";
  } else if (format == "srt") {
    reply.contentType = "text/plain; charset=utf-8";
    reply.body = "1\n" + timestamp(0, ',') + " --> " + timestamp(seconds, ',') + "\n" + options.transcript + "\n\n";
  } else if (format == "vtt") {
    reply.contentType = "text/plain; charset=utf-8";
    reply.body = "WEBVTT\n\n" + timestamp(0, '.') + " --> " + timestamp(seconds, '.') + "\n" + options.transcript + "\n\n";
  } else {
    return openAIBadRequest("'" + format +
                                "' is not one of ['json', 'text', 'srt', 'verbose_json', 'vtt'] - 'response_format'",
                            "response_format");
  }
  return reply;
}

std::optional<std::string> contentText(const json& content) {
  if (content.is_string()) return content.get<std::string>();
  if (!content.is_array()) return std::nullopt;
  std::string text;
  for (const auto& part : content) {
    if (!part.is_object() || !part.contains("type")) return std::nullopt;
    if (part["type"] == "text") {
      if (!part.contains("text") || !part["text"].is_string()) return std::nullopt;
      text += part["text"].get<std::string>() + " ";
    }
  }
  return text;
}

std::optional<json> parseJSONObject(const LoopbackRequest& request) {
  auto parsed = json::parse(request.body, nullptr, false);
  if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
  return parsed;
}

LoopbackReply chatAnswer(const LoopbackRequest& request, const LoopbackOpenAIService::Options& options) {
  auto contentType = request.header("Content-Type").value_or("");
  if (!contentType.starts_with("application/json")) {
    return openAIBadRequest("Invalid Content-Type header (" + contentType + "), expected application/json.");
  }
  auto body = parseJSONObject(request);
  if (!body) {
    return openAIBadRequest(
        "We could not parse the JSON body of your request. (HINT: This likely means you aren't using your HTTP "
        "library correctly. The OpenAI API expects a JSON payload, but what was sent was not valid JSON.)");
  }
  static const std::set<std::string> known = {"model", "messages", "response_format", "reasoning_effort", "reasoning",
                                              "temperature", "top_p", "max_tokens", "max_completion_tokens", "stream",
                                              "n", "stop", "seed", "user", "tools", "tool_choice", "metadata", "store"};
  for (const auto& [key, value] : body->items()) {
    if (!known.contains(key)) return openAIBadRequest("Unrecognized request argument supplied: " + key);
  }
  if (!body->contains("model") || !(*body)["model"].is_string() || (*body)["model"].get<std::string>().empty()) {
    return openAIBadRequest("you must provide a model parameter", "model");
  }
  const json& messages = body->value("messages", json());
  if (!messages.is_array() || messages.empty()) {
    return openAIBadRequest("Invalid 'messages': expected a non-empty array.", "messages");
  }
  static const std::set<std::string> roles = {"system", "developer", "user", "assistant", "tool"};
  std::size_t promptTokens = 0;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const json& message = messages[i];
    std::string where = "messages[" + std::to_string(i) + "]";
    if (!message.is_object() || !message.contains("role") || !message["role"].is_string() ||
        !roles.contains(message["role"].get<std::string>())) {
      return openAIBadRequest("Invalid value for '" + where + ".role'.", where + ".role");
    }
    auto text = message.contains("content") ? contentText(message["content"]) : std::nullopt;
    if (!text) return openAIBadRequest("Invalid type for '" + where + ".content'.", where + ".content");
    promptTokens += wordCount(*text);
  }
  std::string content = options.chatReply;
  if (body->contains("response_format")) {
    const json& format = (*body)["response_format"];
    std::string type = format.is_object() ? format.value("type", "") : "";
    if (type == "json_schema") {
      const json schemaWrapper = format.value("json_schema", json());
      static const std::regex validName("[a-zA-Z0-9_-]{1,64}");
      if (!schemaWrapper.is_object() || !schemaWrapper.contains("name") || !schemaWrapper["name"].is_string() ||
          !std::regex_match(schemaWrapper["name"].get<std::string>(), validName)) {
        return openAIBadRequest("Invalid 'response_format.json_schema.name'.", "response_format.json_schema.name");
      }
      if (schemaWrapper.contains("strict") && !schemaWrapper["strict"].is_boolean()) {
        return openAIBadRequest("Invalid type for 'response_format.json_schema.strict'.",
                                "response_format.json_schema.strict");
      }
      const json schema = schemaWrapper.value("schema", json());
      if (!schema.is_object()) {
        return openAIBadRequest("Invalid 'response_format.json_schema.schema'.", "response_format.json_schema.schema");
      }
      json answer = json::object();
      const json properties = schema.value("properties", json::object());
      for (const auto& [name, property] : properties.items()) {
        if (property.is_object() && property.value("type", "") == "string") answer[name] = options.chatReply;
      }
      content = answer.dump();
    } else if (type != "text" && type != "json_object") {
      return openAIBadRequest("Invalid value for 'response_format.type'.", "response_format.type");
    }
  }
  static const std::set<std::string> efforts = {"minimal", "low", "medium", "high"};
  if (body->contains("reasoning_effort")) {
    const json& effort = (*body)["reasoning_effort"];
    if (!effort.is_string() || !efforts.contains(effort.get<std::string>())) {
      return openAIBadRequest("Invalid value for 'reasoning_effort'.", "reasoning_effort");
    }
  }
  if (body->contains("reasoning")) {
    const json& reasoning = (*body)["reasoning"];
    bool valid = reasoning.is_object();
    if (valid && reasoning.contains("effort")) {
      valid = reasoning["effort"].is_string() && efforts.contains(reasoning["effort"].get<std::string>());
    }
    if (valid && reasoning.contains("exclude")) valid = reasoning["exclude"].is_boolean();
    if (!valid) return openAIBadRequest("Invalid value for 'reasoning'.", "reasoning");
  }
  std::size_t completionTokens = wordCount(options.chatReply);
  LoopbackReply reply;
  reply.body = json{{"id", "chatcmpl-loopback"},
                    {"object", "chat.completion"},
                    {"created", 1'700'000'000},
                    {"model", (*body)["model"]},
                    {"choices", json::array({{{"index", 0},
                                              {"message", {{"role", "assistant"}, {"content", content}, {"refusal", nullptr}}},
                                              {"logprobs", nullptr},
                                              {"finish_reason", "stop"}}})},
                    {"usage",
                     {{"prompt_tokens", promptTokens},
                      {"completion_tokens", completionTokens},
                      {"total_tokens", promptTokens + completionTokens}}}}
                   .dump();
  return reply;
}

// ----- Anthropic -----

LoopbackReply anthropicError(int status, const std::string& type, const std::string& message) {
  LoopbackReply reply;
  reply.status = status;
  reply.headers = {{"request-id", "req_loopback"}};
  reply.body =
      json{{"type", "error"}, {"error", {{"type", type}, {"message", message}}}, {"request_id", "req_loopback"}}.dump();
  return reply;
}

LoopbackReply anthropicBadRequest(const std::string& message) {
  return anthropicError(400, "invalid_request_error", message);
}

LoopbackReply anthropicScenarioFailure(LoopbackScenario scenario) {
  if (scenario == LoopbackScenario::rateLimited) {
    LoopbackReply reply = anthropicError(
        429, "rate_limit_error",
        "This request would exceed the rate limit for your organization of 50 requests per minute.");
    reply.headers.emplace_back("retry-after", "1");
    return reply;
  }
  return anthropicError(500, "api_error", "Internal server error");
}

std::optional<LoopbackReply> anthropicAuthenticationFailure(const LoopbackRequest& request, const std::string& key) {
  auto apiKey = request.header("x-api-key");
  if (!apiKey) return anthropicError(401, "authentication_error", "x-api-key header is required");
  if (*apiKey != key) return anthropicError(401, "authentication_error", "invalid x-api-key");
  return std::nullopt;
}

LoopbackReply messagesAnswer(const LoopbackRequest& request, const LoopbackAnthropicService::Options& options) {
  auto version = request.header("anthropic-version");
  if (!version) return anthropicBadRequest("anthropic-version: header is required");
  if (*version != "2023-06-01" && *version != "2023-01-01") {
    return anthropicBadRequest("anthropic-version: invalid value " + *version);
  }
  auto contentType = request.header("Content-Type").value_or("");
  if (!contentType.starts_with("application/json")) return anthropicBadRequest("Expected a JSON request body");
  auto body = parseJSONObject(request);
  if (!body) return anthropicBadRequest("The request body is not valid JSON.");
  static const std::set<std::string> known = {"model",    "max_tokens",     "messages",    "system",
                                              "metadata", "stop_sequences", "stream",      "temperature",
                                              "top_k",    "top_p",          "tools",       "tool_choice",
                                              "thinking", "service_tier"};
  for (const auto& [key, value] : body->items()) {
    if (!known.contains(key)) return anthropicBadRequest(key + ": Extra inputs are not permitted");
  }
  if (!body->contains("model") || !(*body)["model"].is_string() || (*body)["model"].get<std::string>().empty()) {
    return anthropicBadRequest("model: Field required");
  }
  if (!body->contains("max_tokens") || !(*body)["max_tokens"].is_number_integer() ||
      (*body)["max_tokens"].get<long long>() < 1) {
    return anthropicBadRequest("max_tokens: Field required");
  }
  const json& messages = body->value("messages", json());
  if (!messages.is_array() || messages.empty()) return anthropicBadRequest("messages: at least one message is required");
  std::size_t inputTokens = 0;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const json& message = messages[i];
    std::string where = "messages." + std::to_string(i);
    if (!message.is_object() || !message.contains("role") ||
        (message["role"] != "user" && message["role"] != "assistant")) {
      return anthropicBadRequest(where + ".role: Input should be 'user' or 'assistant'");
    }
    if (i == 0 && message["role"] != "user") return anthropicBadRequest("messages: first message must use the \"user\" role");
    auto text = message.contains("content") ? contentText(message["content"]) : std::nullopt;
    if (!text) return anthropicBadRequest(where + ".content: Field required");
    inputTokens += wordCount(*text);
  }
  if (body->contains("system")) {
    auto text = contentText((*body)["system"]);
    if (!text) return anthropicBadRequest("system: Input should be a valid string or list of text blocks");
    inputTokens += wordCount(*text);
  }
  LoopbackReply reply;
  reply.headers = {{"request-id", "req_loopback"}};
  reply.body = json{{"id", "msg_loopback"},
                    {"type", "message"},
                    {"role", "assistant"},
                    {"model", (*body)["model"]},
                    {"content", json::array({{{"type", "text"}, {"text", options.reply}}})},
                    {"stop_reason", "end_turn"},
                    {"stop_sequence", nullptr},
                    {"usage", {{"input_tokens", inputTokens}, {"output_tokens", wordCount(options.reply)}}}}
                   .dump();
  return reply;
}

// Applies a scenario to a service's handler.
template <typename Options, typename Answer, typename Failure>
LoopbackReply serve(const LoopbackRequest& request, const Options& options, LoopbackScenario scenario, Answer answer,
                    Failure failure) {
  switch (scenario) {
    case LoopbackScenario::rateLimited:
    case LoopbackScenario::serverError:
      return failure(scenario);
    case LoopbackScenario::slowAnswer: {
      LoopbackReply reply = answer(request, options);
      reply.delay = options.slowAnswerDelay;
      return reply;
    }
    case LoopbackScenario::dropConnection: {
      LoopbackReply reply = answer(request, options);
      reply.dropConnection = true;
      return reply;
    }
    case LoopbackScenario::answer:
      break;
  }
  return answer(request, options);
}

}  // namespace

std::optional<std::string> wavProblem(const std::string& bytes) {
  std::string problem;
  if (describeWAV(bytes, &problem)) return std::nullopt;
  return problem;
}

struct LoopbackOpenAIService::State {
  Options options;
  std::mutex mutex;
  LoopbackScenario scenario = LoopbackScenario::answer;

  LoopbackScenario currentScenario() {
    std::lock_guard lock(mutex);
    return scenario;
  }
};

LoopbackOpenAIService::LoopbackOpenAIService(LoopbackHTTPServer& server, Options options)
    : state_(std::make_shared<State>()), baseURL_(server.baseURL() + options.pathPrefix) {
  state_->options = std::move(options);
  auto state = state_;
  server.route("POST", state->options.pathPrefix + "/audio/transcriptions", [state](const LoopbackRequest& request) {
    if (auto failure = openAIAuthenticationFailure(request, state->options.apiKey)) return *failure;
    return serve(request, state->options, state->currentScenario(), transcriptionAnswer, openAIScenarioFailure);
  });
  server.route("POST", state->options.pathPrefix + "/chat/completions", [state](const LoopbackRequest& request) {
    if (auto failure = openAIAuthenticationFailure(request, state->options.apiKey)) return *failure;
    return serve(request, state->options, state->currentScenario(), chatAnswer, openAIScenarioFailure);
  });
}

void LoopbackOpenAIService::setScenario(LoopbackScenario scenario) {
  std::lock_guard lock(state_->mutex);
  state_->scenario = scenario;
}

struct LoopbackAnthropicService::State {
  Options options;
  std::mutex mutex;
  LoopbackScenario scenario = LoopbackScenario::answer;

  LoopbackScenario currentScenario() {
    std::lock_guard lock(mutex);
    return scenario;
  }
};

LoopbackAnthropicService::LoopbackAnthropicService(LoopbackHTTPServer& server, Options options)
    : state_(std::make_shared<State>()), baseURL_(server.baseURL() + options.pathPrefix) {
  state_->options = std::move(options);
  auto state = state_;
  server.route("POST", state->options.pathPrefix + "/messages", [state](const LoopbackRequest& request) {
    if (auto failure = anthropicAuthenticationFailure(request, state->options.apiKey)) return *failure;
    return serve(request, state->options, state->currentScenario(), messagesAnswer, anthropicScenarioFailure);
  });
}

void LoopbackAnthropicService::setScenario(LoopbackScenario scenario) {
  std::lock_guard lock(state_->mutex);
  state_->scenario = scenario;
}

}  // namespace orvid::testing
