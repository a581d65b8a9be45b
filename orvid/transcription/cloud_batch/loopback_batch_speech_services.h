#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvid::testing {

// One request as a replica received it: the target split into path and query, the
// header fields, and the raw body or, for a multipart body, its parts.
struct ReplicaRequest {
  struct Part {
    std::string name;
    std::optional<std::string> filename;
    std::optional<std::string> contentType;
    std::string content;
  };

  std::string method;
  std::string path;
  // The query items in order, percent-decoded.
  std::vector<std::pair<std::string, std::string>> query;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  std::vector<Part> parts;
  // Why a multipart body is not as the framework writes it (boundary, file last).
  std::optional<std::string> multipartProblem;

  std::optional<std::string> header(std::string_view name) const;
  const Part* part(std::string_view name) const;
};

// How the replicas answer their next requests.
enum class ReplicaScenario {
  answer,                  // as the service documents it
  rateLimited,             // 429 with "Retry-After: 7"
  failEchoingKey,          // 500 whose body echoes the credential the request carried
  brokenJSON,              // 200 with a truncated JSON body that holds a secret
  dropDuringUpload,        // the first request of a flow: half an answer, then the connection closes
  dropDuringPolling,       // every poll: half an answer, then the connection closes
  jobQueuedThenFails,      // a job stays queued for two polls, then fails
  jobNeverCompletes,       // a job stays queued forever
  jobCompletesAtOnce,      // a job has finished by its first poll
  wordsWithoutTranscript,  // Deepgram: words but no "transcript" member
  hugeModelList,           // the model list holds 10,000 models
};

// Every batch speech service the framework speaks, and a model list, each under its
// own path prefix of one HTTP server on 127.0.0.1 (an ephemeral port), started here
// and stopped when destroyed. Each checks what the client sends (method, path,
// query, header fields, multipart fields or JSON body, the audio's format) and
// answers 400 with the reason when something is off, else the service's documented
// answer. Every service accepts only kKey.
class LoopbackBatchSpeechServices {
 public:
  static constexpr const char* kKey = "sk-replica-Secret-0123456789";

  LoopbackBatchSpeechServices();
  ~LoopbackBatchSpeechServices();
  LoopbackBatchSpeechServices(const LoopbackBatchSpeechServices&) = delete;
  LoopbackBatchSpeechServices& operator=(const LoopbackBatchSpeechServices&) = delete;

  // The base URL the host configures for `service`: "deepgram", "elevenlabs",
  // "cartesia", "mistral", "soniox", "assemblyai", "glm", "stepfun", "aliyun-bailian"
  // (the catalogue's identifiers) or "models" (an OpenAI-compatible model list).
  std::string baseURL(const std::string& service) const;
  // The transcript each service answers with.
  static std::string transcriptOf(const std::string& service);

  void setScenario(ReplicaScenario scenario);
  std::vector<ReplicaRequest> requests() const;
  void clearRequests();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// Why `bytes` are not a 16 kHz mono 16-bit RIFF/WAVE file; absent when they are.
std::optional<std::string> pcm16WAVProblem(std::string_view bytes);

}  // namespace orvid::testing
