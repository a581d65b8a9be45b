#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "orvid/testing/loopback_http_server.h"

namespace orvid::testing {

// How a fake service answers its next requests.
enum class LoopbackScenario {
  // Checks the request the way the service does and answers like it.
  answer,
  // 429 with the service's rate-limit error body and a "retry-after" header.
  rateLimited,
  // 500 with the service's server-error body.
  serverError,
  // The normal answer, after the service's slow-answer delay.
  slowAnswer,
  // The normal answer's status and header fields and half of its body, then the
  // connection closes.
  dropConnection,
};

// A fake cloud service on a loopback server. Its routes stay installed when the
// object goes.
class LoopbackService {
 public:
  void setScenario(LoopbackScenario scenario) { scenario_->store(scenario); }
  // The server's URL followed by the path prefix, e.g. "http://127.0.0.1:40123/v1".
  const std::string& baseURL() const { return baseURL_; }

 protected:
  LoopbackService(const LoopbackHTTPServer& server, const std::string& pathPrefix)
      : baseURL_(server.baseURL() + pathPrefix) {}

  std::shared_ptr<std::atomic<LoopbackScenario>> scenario_ =
      std::make_shared<std::atomic<LoopbackScenario>>(LoopbackScenario::answer);
  std::string baseURL_;
};

// The OpenAI endpoints "POST {prefix}/audio/transcriptions" (multipart/form-data
// with "file", "model" and the optional "language", "prompt", "temperature";
// answered in the json format) and "POST {prefix}/chat/completions", checked and
// answered as the public API reference describes them, with bearer authentication.
struct LoopbackOpenAIServiceOptions {
  std::string pathPrefix = "/v1";
  std::string apiKey = "sk-loopback-openai-key";
  std::string transcript = "Hello from the loopback service.";
  // The assistant's reply; with a JSON-schema response format, the value of
  // every string property of the schema.
  std::string chatReply = "Hello from the loopback model.";
  std::chrono::milliseconds slowAnswerDelay{10'000};
};

class LoopbackOpenAIService : public LoopbackService {
 public:
  using Options = LoopbackOpenAIServiceOptions;
  explicit LoopbackOpenAIService(LoopbackHTTPServer& server, Options options = {});
};

// The Anthropic endpoint "POST {prefix}/messages", checked and answered as the
// public API reference describes it: "x-api-key" and "anthropic-version" headers,
// a body with "model", "max_tokens", "messages" and an optional "system", and
// extra top-level members rejected.
struct LoopbackAnthropicServiceOptions {
  std::string pathPrefix = "/v1";
  std::string apiKey = "sk-ant-loopback-key";
  std::string reply = "Hello from the loopback assistant.";
  std::chrono::milliseconds slowAnswerDelay{10'000};
};

class LoopbackAnthropicService : public LoopbackService {
 public:
  using Options = LoopbackAnthropicServiceOptions;
  explicit LoopbackAnthropicService(LoopbackHTTPServer& server, Options options = {});
};

// Checks that `bytes` hold a RIFF/WAVE file with 16-bit PCM samples and a data
// chunk that fits; the reason it does not, or absent when it does.
std::optional<std::string> wavProblem(const std::string& bytes);

}  // namespace orvid::testing
