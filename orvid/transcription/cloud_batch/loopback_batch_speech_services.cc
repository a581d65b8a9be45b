#include "orvid/transcription/cloud_batch/loopback_batch_speech_services.h"

#include <strings.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <httplib.h>
#include <nlohmann/json.hpp>

namespace orvid::testing {
namespace {

using nlohmann::json;

struct Reply {
  int status = 200;
  std::string contentType = "application/json";
  std::vector<std::string> pieces;  // the body, sent piece by piece in chunked encoding
  std::vector<std::pair<std::string, std::string>> headers;
  bool drop = false;
};

Reply jsonReply(int status, const json& body) { return {status, "application/json", {body.dump()}, {}, false}; }
Reply refusal(const std::string& reason) { return jsonReply(400, {{"error", reason}}); }

std::string decodeBase64(std::string_view text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  int buffer = 0, bits = 0;
  for (char c : text) {
    if (c == '=') break;
    auto index = alphabet.find(c);
    if (index == std::string::npos) return "";
    buffer = (buffer << 6) | static_cast<int>(index);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  return out;
}

// An event stream in the services' form, with a comment, a keep-alive, event names
// and a final [DONE], cut into pieces of 1 to 7 bytes.
std::vector<std::string> eventStream(const std::vector<std::string>& texts) {
  std::string stream = ": connected\r\n\r\n";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    stream += "event: transcript.text.delta\r\nid: " + std::to_string(i) + "\r\n";
    stream += "data: " + json{{"type", "transcript.text.delta"}, {"text", texts[i]}}.dump() + "\r\n\r\n";
    if (i == 0) stream += ":\r\n\r\n";  // keep-alive
  }
  stream += "data: " + json{{"type", "transcript.text.done"}, {"text", ""}}.dump() + "\n\ndata: [DONE]\n\n";
  std::vector<std::string> pieces;
  for (std::size_t at = 0, size = 1; at < stream.size(); at += size, size = size % 7 + 1) {
    pieces.push_back(stream.substr(at, size));
  }
  return pieces;
}

}  // namespace

std::optional<std::string> ReplicaRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && ::strncasecmp(key.data(), name.data(), name.size()) == 0) return value;
  }
  return std::nullopt;
}

const ReplicaRequest::Part* ReplicaRequest::part(std::string_view name) const {
  auto found = std::find_if(parts.begin(), parts.end(), [&](const Part& part) { return part.name == name; });
  return found == parts.end() ? nullptr : &*found;
}

std::optional<std::string> pcm16WAVProblem(std::string_view bytes) {
  auto u32 = [&](std::size_t at) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 3])) << 24;
  };
  auto u16 = [&](std::size_t at) { return u32(at) & 0xFFFF; };
  if (bytes.size() < 44) return "shorter than a WAV header";
  if (bytes.substr(0, 4) != "RIFF" || bytes.substr(8, 8) != "WAVEfmt " || bytes.substr(36, 4) != "data") {
    return "not a RIFF/WAVE file";
  }
  if (u32(4) != bytes.size() - 8 || u32(40) != bytes.size() - 44) return "sizes do not match the file";
  if (u16(20) != 1 || u16(22) != 1 || u32(24) != 16000 || u16(34) != 16) return "not 16 kHz mono 16-bit PCM";
  return std::nullopt;
}

struct LoopbackBatchSpeechServices::State {
  httplib::Server server;
  int port = 0;
  std::jthread listener;
  mutable std::mutex mutex;
  std::vector<ReplicaRequest> requests;
  std::atomic<ReplicaScenario> scenario{ReplicaScenario::answer};
  std::map<std::string, int> polls;  // job identifier → polls so far

  // The credential the request carries for its service; absent when it is wrong.
  static std::optional<std::string> credentialProblem(const std::string& service, const ReplicaRequest& request) {
    const std::string key = kKey;
    if (service == "deepgram") {
      return request.header("Authorization") == "Token " + key ? std::nullopt : std::optional<std::string>("bad key");
    }
    if (service == "elevenlabs") {
      if (request.header("Authorization")) return "ElevenLabs takes no Authorization";
      return request.header("xi-api-key") == key ? std::nullopt : std::optional<std::string>("bad key");
    }
    if (service == "assemblyai") {
      return request.header("Authorization") == key ? std::nullopt : std::optional<std::string>("bad key");
    }
    return request.header("Authorization") == "Bearer " + key ? std::nullopt : std::optional<std::string>("bad key");
  }

  int nextPoll(const std::string& job) {
    std::lock_guard lock(mutex);
    return ++polls[job];
  }

  Reply answer(const std::string& service, ReplicaRequest& request) {
    const ReplicaScenario now = scenario.load();
    const bool poll = request.method == "GET" && service != "models" && !request.path.ends_with("/transcript");
    if (now == ReplicaScenario::rateLimited) {
      Reply reply = jsonReply(429, {{"error", "rate limited"}});
      reply.headers.emplace_back("Retry-After", "7");
      return reply;
    }
    if (now == ReplicaScenario::failEchoingKey) {
      std::string echoed = request.header("Authorization").value_or(request.header("xi-api-key").value_or(""));
      return {500, "text/plain", {"upstream failed\nAuthorization: " + echoed + "\n"}, {}, false};
    }
    if (now == ReplicaScenario::dropDuringUpload && request.method == "POST" &&
        (service != "soniox" || request.path.ends_with("/files"))) {
      return {200, "application/json", {R"({"text":"the connection drops before this ends"})"}, {}, true};
    }
    if (now == ReplicaScenario::dropDuringPolling && poll) {
      return {200, "application/json", {R"({"status":"processing","id":"job"})"}, {}, true};
    }
    if (now == ReplicaScenario::brokenJSON) {
      return {200, "application/json", {std::string(R"({"text":"broken )") + kKey + R"(", "words": [)"}, {}, false};
    }
    if (auto problem = credentialProblem(service, request)) return jsonReply(401, {{"error", *problem}});
    if (request.multipartProblem) return refusal(*request.multipartProblem);
    if (service == "deepgram") return deepgram(request, now);
    if (service == "elevenlabs" || service == "cartesia" || service == "mistral") return multipart(service, request);
    if (service == "soniox") return soniox(request, now);
    if (service == "assemblyai") return assemblyAI(request, now);
    if (service == "glm" || service == "stepfun") return streamed(service, request);
    if (service == "aliyun-bailian") return aliyun(request);
    return models(request, now);
  }

  static Reply deepgram(const ReplicaRequest& request, ReplicaScenario now) {
    if (request.method != "POST" || request.path != "/deepgram/v1/listen") return refusal("wrong endpoint");
    if (request.header("Content-Type") != "audio/wav") return refusal("Content-Type is not audio/wav");
    if (auto problem = pcm16WAVProblem(request.body)) return refusal("audio: " + *problem);
    if (request.query.size() < 2 || request.query[0] != std::pair<std::string, std::string>{"model", "nova-3"} ||
        request.query[1] != std::pair<std::string, std::string>{"smart_format", "true"}) {
      return refusal("query must begin with model and smart_format");
    }
    json alternative = {{"confidence", 0.97},
                        {"words", json::array({{{"word", "deepgram"}, {"start", 0.0}, {"end", 0.2}}})}};
    if (now != ReplicaScenario::wordsWithoutTranscript) alternative["transcript"] = transcriptOf("deepgram");
    return jsonReply(200, {{"metadata", {{"request_id", "r-1"}, {"duration", 0.25}}},
                           {"results", {{"channels", json::array({{{"detected_language", "en"},
                                                                   {"alternatives", json::array({alternative})}}})}}}});
  }

  static Reply multipart(const std::string& service, const ReplicaRequest& request) {
    static const std::map<std::string, std::pair<std::string, std::string>> endpoints = {
        {"elevenlabs", {"/elevenlabs/v1/speech-to-text", "model_id"}},
        {"cartesia", {"/cartesia/stt", "model"}},
        {"mistral", {"/mistral/v1/audio/transcriptions", "model"}}};
    const auto& [path, modelField] = endpoints.at(service);
    if (request.method != "POST" || request.path != path) return refusal("wrong endpoint");
    if (service == "cartesia" && request.header("Cartesia-Version") != "2026-03-01") return refusal("no Cartesia-Version");
    if (request.part(modelField) == nullptr) return refusal("no " + modelField);
    if (auto problem = pcm16WAVProblem(request.parts.back().content)) return refusal("audio: " + *problem);
    if (service == "elevenlabs") {
      return jsonReply(200, {{"language_code", "eng"}, {"language_probability", 0.98}, {"text", transcriptOf(service)},
                             {"words", json::array({{{"text", "eleven"}, {"type", "word"}}})}});
    }
    if (service == "cartesia") {
      return jsonReply(200, {{"text", transcriptOf(service)}, {"language", "en"}, {"duration", 0.25}});
    }
    return jsonReply(200, {{"model", "voxtral-mini-2507"}, {"text", transcriptOf(service)}, {"language", "en"},
                           {"segments", json::array()}, {"usage", {{"prompt_audio_seconds", 1}}}});
  }

  Reply soniox(const ReplicaRequest& request, ReplicaScenario now) {
    if (request.method == "POST" && request.path == "/soniox/v1/files") {
      if (request.parts.size() != 1) return refusal("the upload holds only the file");
      if (auto problem = pcm16WAVProblem(request.parts.back().content)) return refusal("audio: " + *problem);
      return jsonReply(201, {{"id", "file-7"}, {"filename", "tesselhost.wav"}, {"size", request.parts[0].content.size()}});
    }
    if (request.method == "POST" && request.path == "/soniox/v1/transcriptions") {
      json body = json::parse(request.body, nullptr, false);
      if (request.header("Content-Type") != "application/json" || !body.is_object() || body.value("file_id", "") != "file-7" ||
          !body.contains("model")) {
        return refusal("the job must name file-7 and a model");
      }
      return jsonReply(201, {{"id", "job-7"}, {"status", "queued"}, {"file_id", "file-7"}});
    }
    if (request.method == "GET" && request.path == "/soniox/v1/transcriptions/job-7") {
      const int poll = now == ReplicaScenario::jobCompletesAtOnce ? 3 : nextPoll("soniox");
      if (now == ReplicaScenario::jobNeverCompletes || poll < 3) return jsonReply(200, {{"id", "job-7"}, {"status", "queued"}});
      if (now == ReplicaScenario::jobQueuedThenFails) {
        return jsonReply(200, {{"id", "job-7"}, {"status", "error"}, {"error_message", "Audio is unreadable."}});
      }
      return jsonReply(200, {{"id", "job-7"}, {"status", "completed"}, {"text", "the poll answer is not the transcript"}});
    }
    if (request.method == "GET" && request.path == "/soniox/v1/transcriptions/job-7/transcript") {
      return jsonReply(200, {{"id", "job-7"}, {"text", transcriptOf("soniox")},
                             {"tokens", json::array({{{"text", "soniox"}, {"start_ms", 0}}})}});
    }
    return refusal("wrong endpoint");
  }

  Reply assemblyAI(const ReplicaRequest& request, ReplicaScenario now) {
    if (request.method == "POST" && request.path == "/assemblyai/v2/upload") {
      if (request.header("Content-Type") != "application/octet-stream") return refusal("upload is not octet-stream");
      if (auto problem = pcm16WAVProblem(request.body)) return refusal("audio: " + *problem);
      return jsonReply(200, {{"upload_url", "https://cdn.assemblyai.com/upload/u-7"}});
    }
    if (request.method == "POST" && request.path == "/assemblyai/v2/transcript") {
      json body = json::parse(request.body, nullptr, false);
      if (!body.is_object() || body.value("audio_url", "") != "https://cdn.assemblyai.com/upload/u-7" ||
          !body.contains("speech_models")) {
        return refusal("the transcript must name the upload and the speech models");
      }
      return jsonReply(200, {{"id", "tr-7"}, {"status", "queued"}});
    }
    if (request.method == "GET" && request.path == "/assemblyai/v2/transcript/tr-7") {
      const int poll = now == ReplicaScenario::jobCompletesAtOnce ? 3 : nextPoll("assemblyai");
      if (now == ReplicaScenario::jobNeverCompletes || poll < 3) return jsonReply(200, {{"id", "tr-7"}, {"status", "processing"}});
      if (now == ReplicaScenario::jobQueuedThenFails) {
        return jsonReply(200, {{"id", "tr-7"}, {"status", "error"}, {"error", "Transcoding failed."}});
      }
      return jsonReply(200, {{"id", "tr-7"}, {"status", "completed"}, {"text", transcriptOf("assemblyai")},
                             {"language_code", "en_us"}, {"confidence", 0.91}});
    }
    return refusal("wrong endpoint");
  }

  static Reply streamed(const std::string& service, const ReplicaRequest& request) {
    const std::string path = service == "glm" ? "/glm/api/paas/v4/audio/transcriptions" : "/stepfun/v1/audio/asr/sse";
    if (request.method != "POST" || request.path != path) return refusal("wrong endpoint");
    if (service == "glm") {
      if (request.part("stream") == nullptr || request.part("stream")->content != "true") return refusal("stream is not true");
      if (auto problem = pcm16WAVProblem(request.parts.back().content)) return refusal("audio: " + *problem);
    } else {
      json body = json::parse(request.body, nullptr, false);
      if (request.header("Accept") != "text/event-stream" || !body.is_object()) return refusal("not an event-stream request");
      const json* audio = body.contains("audio") ? &body["audio"] : nullptr;
      if (audio == nullptr || !audio->contains("data") || !(*audio)["data"].is_string()) return refusal("no audio data");
      if (decodeBase64((*audio)["data"].get<std::string>()).size() % 2 != 0) return refusal("audio is not 16-bit PCM");
      if ((*audio)["input"]["format"] != json{{"type", "pcm"}, {"codec", "pcm_s16le"}, {"rate", 16000}, {"bits", 16},
                                              {"channel", 1}}) {
        return refusal("format is not 16 kHz mono pcm_s16le");
      }
    }
    const std::string words = transcriptOf(service);
    const auto space = words.find(' ');
    return {200, "text/event-stream", eventStream({words.substr(0, space), words.substr(space + 1)}), {}, false};
  }

  static Reply aliyun(const ReplicaRequest& request) {
    if (request.method != "POST" || request.path != "/aliyun-bailian/compatible-mode/v1/chat/completions") {
      return refusal("wrong endpoint");
    }
    json body = json::parse(request.body, nullptr, false);
    if (!body.is_object() || body.value("stream", true) || !body.contains("messages")) return refusal("not a chat request");
    const json& part = body["messages"][0]["content"][0];
    const std::string prefix = "data:audio/wav;base64,";
    std::string data = part["input_audio"].value("data", "");
    if (part.value("type", "") != "input_audio" || !data.starts_with(prefix)) return refusal("no input_audio");
    if (auto problem = pcm16WAVProblem(decodeBase64(data.substr(prefix.size())))) return refusal("audio: " + *problem);
    return jsonReply(200, {{"id", "chatcmpl-7"}, {"object", "chat.completion"},
                           {"choices", json::array({{{"index", 0},
                                                     {"message", {{"role", "assistant"}, {"content", transcriptOf("aliyun-bailian")}}},
                                                     {"finish_reason", "stop"}}})}});
  }

  static Reply models(const ReplicaRequest& request, ReplicaScenario now) {
    if (request.method != "GET" || request.path != "/models/v1/models") return refusal("wrong endpoint");
    json data = json::array();
    const int count = now == ReplicaScenario::hugeModelList ? 10'000 : 3;
    for (int i = 0; i < count; ++i) data.push_back({{"id", "model-" + std::to_string(i)}, {"object", "model"}});
    return jsonReply(200, {{"object", "list"}, {"data", data}});
  }
};

LoopbackBatchSpeechServices::LoopbackBatchSpeechServices() : state_(std::make_shared<State>()) {
  State* state = state_.get();
  auto handle = [state](const httplib::Request& raw, httplib::Response& response, std::string body) {
    ReplicaRequest request{raw.method, raw.path, {}, {raw.headers.begin(), raw.headers.end()}, std::move(body), {}, {}};
    for (const auto& [name, value] : raw.params) request.query.emplace_back(name, value);
    // httplib keeps the parameters in a multimap; restore the order they were sent in.
    std::sort(request.query.begin(), request.query.end(), [&raw](const auto& a, const auto& b) {
      return raw.target.find(httplib::detail::encode_query_param(a.first) + "=") <
             raw.target.find(httplib::detail::encode_query_param(b.first) + "=");
    });
    if (request.header("Content-Type").value_or("").starts_with("multipart/form-data; boundary=Brindle-")) {
      // The server has read the parts; keep the file last and check it.
      for (const auto& [name, file] : raw.files) {
        ReplicaRequest::Part part{file.name, std::nullopt, std::nullopt, file.content};
        if (!file.filename.empty()) part.filename = file.filename;
        if (!file.content_type.empty()) part.contentType = file.content_type;
        request.parts.push_back(std::move(part));
      }
      std::stable_partition(request.parts.begin(), request.parts.end(),
                            [](const ReplicaRequest::Part& part) { return part.name != "file"; });
      const auto* file = request.parts.empty() ? nullptr : &request.parts.back();
      if (file == nullptr || file->name != "file" || file->filename != "tesselhost.wav" ||
          file->contentType != "audio/wav") {
        request.multipartProblem = "the last part is not the file tesselhost.wav (audio/wav)";
      }
    } else if (request.header("Content-Type").value_or("").starts_with("multipart/")) {
      request.multipartProblem = "the boundary is not Brindle-<UUID>";
    }
    const std::string rest = request.path.substr(1);
    const std::string service = rest.substr(0, rest.find('/'));
    Reply reply;
    try {
      reply = state->answer(service, request);
    } catch (const std::exception& error) {
      reply = refusal(std::string("the replica could not read the request: ") + error.what());
    }
    {
      std::lock_guard lock(state->mutex);
      state->requests.push_back(std::move(request));
    }
    response.status = reply.status;
    for (const auto& [name, value] : reply.headers) response.set_header(name, value);
    auto pieces = std::make_shared<std::vector<std::string>>(std::move(reply.pieces));
    if (reply.drop) {
      auto whole = std::make_shared<std::string>(pieces->front());
      response.set_content_provider(whole->size(), reply.contentType,
                                    [whole](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                      const std::size_t half = whole->size() / 2;
                                      if (offset >= half) return false;
                                      sink.write(whole->data() + offset, std::min(length, half - offset));
                                      return true;
                                    });
    } else if (pieces->size() == 1) {
      response.set_content(pieces->front(), reply.contentType);
    } else {
      response.set_chunked_content_provider(reply.contentType, [pieces](std::size_t, httplib::DataSink& sink) {
        for (const auto& piece : *pieces) sink.write(piece.data(), piece.size());
        sink.done();
        return true;
      });
    }
  };
  state->server.Get(".*", [handle](const httplib::Request& raw, httplib::Response& response) { handle(raw, response, ""); });
  state->server.Post(".*", [handle](const httplib::Request& raw, httplib::Response& response) {
    handle(raw, response, raw.body);
  });
  state->server.set_tcp_nodelay(true);
  state->server.set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr error) {
    std::string what = "unknown";
    try { std::rethrow_exception(error); } catch (const std::exception& e) { what = e.what(); } catch (...) {}
    response.status = 500;
    response.set_content("the replica failed: " + what, "text/plain");
  });
  state->port = state->server.bind_to_any_port("127.0.0.1");
  if (state->port <= 0) throw std::runtime_error("the replicas could not bind 127.0.0.1");
  state->listener = std::jthread([state] { state->server.listen_after_bind(); });
  // stop() only takes effect once the accept loop runs.
  while (!state->server.is_running()) std::this_thread::yield();
}

LoopbackBatchSpeechServices::~LoopbackBatchSpeechServices() {
  state_->server.stop();
  if (state_->listener.joinable()) state_->listener.join();
}

std::string LoopbackBatchSpeechServices::baseURL(const std::string& service) const {
  static const std::map<std::string, std::string> paths = {
      {"deepgram", "/deepgram/v1"},
      {"elevenlabs", "/elevenlabs/v1"},
      {"cartesia", "/cartesia"},
      {"mistral", "/mistral"},
      {"soniox", "/soniox/v1"},
      {"assemblyai", "/assemblyai"},
      {"glm", "/glm/api/paas/v4/audio/transcriptions"},
      {"stepfun", "/stepfun/v1/audio/asr/sse"},
      {"aliyun-bailian", "/aliyun-bailian/compatible-mode/v1/chat/completions"},
      {"models", "/models/v1"}};
  return "http://127.0.0.1:" + std::to_string(state_->port) + paths.at(service);
}

std::string LoopbackBatchSpeechServices::transcriptOf(const std::string& service) { return service + " heard you"; }

void LoopbackBatchSpeechServices::setScenario(ReplicaScenario scenario) {
  state_->scenario.store(scenario);
  std::lock_guard lock(state_->mutex);
  state_->polls.clear();
}

std::vector<ReplicaRequest> LoopbackBatchSpeechServices::requests() const {
  std::lock_guard lock(state_->mutex);
  return state_->requests;
}

void LoopbackBatchSpeechServices::clearRequests() {
  std::lock_guard lock(state_->mutex);
  state_->requests.clear();
  state_->polls.clear();
}

}  // namespace orvid::testing
