#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "orvid/testing/loopback_http_server.h"

namespace orvid::testing {

// How a fake service answers its next requests: checked and answered like the
// real service; 429 with "retry-after"; the answer after the slow-answer delay;
// or the answer cut off halfway through its body.
enum class LoopbackScenario { answer, rateLimited, slowAnswer, dropConnection };

// A fake cloud service on a loopback server. Its routes outlive the object.
class LoopbackService {
 public:
  void setScenario(LoopbackScenario scenario) { scenario_->store(scenario); }
  const std::string& baseURL() const { return baseURL_; }

 protected:
  LoopbackService(const LoopbackHTTPServer& server, const std::string& pathPrefix)
      : baseURL_(server.baseURL() + pathPrefix) {}

  std::shared_ptr<std::atomic<LoopbackScenario>> scenario_ =
      std::make_shared<std::atomic<LoopbackScenario>>(LoopbackScenario::answer);
  std::string baseURL_;
};

// OpenAI's "POST {prefix}/audio/transcriptions" (multipart) and
// "POST {prefix}/chat/completions", with bearer authentication.
struct LoopbackOpenAIServiceOptions {
  std::string pathPrefix = "/v1";
  std::string apiKey = "sk-loopback-openai-key";
  std::string transcript = "Hello from the loopback service.";
  // With a JSON-schema response format, the value of every string property.
  std::string chatReply = "Hello from the loopback model.";
  std::chrono::milliseconds slowAnswerDelay{10'000};
};

class LoopbackOpenAIService : public LoopbackService {
 public:
  using Options = LoopbackOpenAIServiceOptions;
  explicit LoopbackOpenAIService(LoopbackHTTPServer& server, Options options = {});
};

// Anthropic's "POST {prefix}/messages", with "x-api-key" and "anthropic-version".
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

// Why `bytes` are not a well-formed 16-bit PCM RIFF/WAVE file; absent when they are.
std::optional<std::string> wavProblem(const std::string& bytes);

}  // namespace orvid::testing
