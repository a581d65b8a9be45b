#include "orvid/transcription/local/models/file_download_session.h"

#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/testing/scoped_environment_variable.h"
#include "orvid/testing/scripted_http_server.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/local/models/hugging_face_mlx_model_downloader.h"
#include "orvid/transcription/local/models/model_scope_mlx_model_downloader.h"
#include "orvid/transcription/local/models/orvid_model_download_error.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;
using testing::ScopedEnvironmentVariable;
using testing::thrown;
using Request = testing::ScriptedRequest;
using Reply = testing::ScriptedReply;
using testing::ScriptedHTTPServer;
using testing::randomBytes;
using testing::rangeReply;
using testing::readFile;
using testing::writeFile;
using testing::scriptedAnswer;

OrvidHTTPRequest get(const std::string& url, std::int64_t offset = 0) {
  OrvidHTTPRequest request;
  request.url = *URL::parse(url);
  if (offset > 0) request.setHeader("Range", "bytes=" + std::to_string(offset) + "-");
  return request;
}

const std::string content = randomBytes(1 << 20);
const std::size_t fortyPercent = content.size() * 2 / 5;

TEST(FileDownloadSessionTest, ResumesAfterADroppedConnectionToAByteIdenticalFile) {
  int attempt = 0;
  ScriptedHTTPServer server([&](const Request& request) {
    Reply reply = rangeReply(content, request);
    if (attempt++ == 0) reply.cutAfter = fortyPercent;
    return reply;
  });
  TemporaryDirectory folder;
  fs::path partial = folder / "model.bin.partial";
  auto firstFailure = thrown<OrvidHTTPError>([&] {
    FileDownloadSession(partial, 0, nullptr).start(get(server.baseURL() + "/model.bin"));
  });
  ASSERT_TRUE(firstFailure);
  EXPECT_EQ(firstFailure->errorCase(), OrvidHTTPError::Case::networkConnectionLost);
  auto kept = std::int64_t(fs::file_size(partial));
  EXPECT_EQ(kept, std::int64_t(fortyPercent));

  std::int64_t lastReceived = 0, lastExpected = 0;
  FileDownloadSession session(partial, kept, [&](std::int64_t received, std::int64_t expected, double) {
    lastReceived = received;
    lastExpected = expected;
  }, FileDownloadOptions{});
  auto response = session.start(get(server.baseURL() + "/model.bin"));  // the session adds the Range header
  EXPECT_EQ(response.statusCode, 206);
  EXPECT_EQ(server.requests().at(1).headers.at("range"), "bytes=" + std::to_string(fortyPercent) + "-");
  EXPECT_EQ(lastReceived, std::int64_t(content.size()));
  EXPECT_EQ(lastExpected, std::int64_t(content.size()));
  fs::path whole = folder / "whole.bin";
  writeFile(whole, content);
  EXPECT_EQ(sha256HexOfFile(partial), sha256HexOfFile(whole));
}

TEST(FileDownloadSessionTest, AnswersToAResumedRequest) {
  const std::string head = content.substr(0, 100);
  TemporaryDirectory folder;
  fs::path whole = folder / "whole.bin";
  writeFile(whole, content);
  const std::string rightSHA = sha256HexOfFile(whole);
  struct Case {
    const char* name;
    std::function<Reply(const Request&)> answer;
    std::optional<std::string> expectedSHA256;
    std::optional<OrvidModelDownloadError> error;
    std::optional<std::string> fileAfter;  // absent: the file is gone
    std::int64_t expectedLength;
  };
  const std::vector<Case> cases = {
      {"range ignored: restart from zero", [&](const Request&) { return scriptedAnswer(200, content); }, std::nullopt,
       std::nullopt, content, std::int64_t(content.size())},
      {"range honoured, checksum right", [&](const Request& r) { return rangeReply(content, r); }, rightSHA,
       std::nullopt, content, std::int64_t(content.size())},
      {"416 keeps the partial file", [&](const Request&) { return scriptedAnswer(416, "secret-server-detail"); },
       std::nullopt, OrvidModelDownloadError::httpStatus(416), head, 0},
      {"wrong checksum discards the file", [&](const Request& r) { return rangeReply(content, r); },
       std::string(64, '0'), OrvidModelDownloadError::checksumMismatch(rightSHA), std::nullopt,
       std::int64_t(content.size())},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScriptedHTTPServer server(c.answer);
    fs::path partial = folder / "model.partial";
    writeFile(partial, head);
    FileDownloadSession session(partial, 100, nullptr, FileDownloadOptions{std::nullopt, c.expectedSHA256});
    auto error = thrown<OrvidModelDownloadError>([&] { session.start(get(server.baseURL() + "/m", 100)); });
    EXPECT_EQ(error, c.error);
    if (error) {
      EXPECT_EQ(std::string(error->what()).find("secret-server-detail"), std::string::npos);
    }
    EXPECT_EQ(session.expectedContentLength(), c.expectedLength);
    if (c.fileAfter) {
      EXPECT_TRUE(readFile(partial) == *c.fileAfter);
    } else {
      EXPECT_FALSE(fs::exists(partial));
    }
    fs::remove(partial);
  }
}

TEST(FileDownloadSessionTest, StallAndCancellationEndTheAttemptAndKeepThePartialFile) {
  ScriptedHTTPServer server([&](const Request& request) {
    Reply reply = rangeReply(content, request);
    reply.cutAfter = fortyPercent;
    reply.stall = true;
    return reply;
  });
  TemporaryDirectory folder;
  {
    fs::path partial = folder / "stalled.partial";
    FileDownloadSession session(partial, 0, nullptr, FileDownloadOptions{std::chrono::seconds(1), std::nullopt});
    auto error = thrown<OrvidModelDownloadError>([&] { session.start(get(server.baseURL() + "/m")); });
    EXPECT_EQ(error, OrvidModelDownloadError::stalled(1));
    EXPECT_NE(std::string(error ? error->what() : "").find("stalled"), std::string::npos);
    EXPECT_EQ(fs::file_size(partial), fortyPercent);
  }
  {
    fs::path partial = folder / "cancelled.partial";
    std::stop_source stop;
    // Stopped on the first report, when the answer's head arrives; the stalled body never ends.
    FileDownloadSession session(partial, 0, [&](std::int64_t, std::int64_t, double) { stop.request_stop(); });
    EXPECT_TRUE(thrown<CancellationError>([&] { session.start(get(server.baseURL() + "/m"), stop.get_token()); }));
    EXPECT_TRUE(fs::exists(partial));
  }
}

TEST(FileDownloadSessionTest, ThrottlesProgressReportsAndSamplesSpeedOnTheGivenClock) {
  ScriptedHTTPServer server([&](const Request& request) { return rangeReply(content, request); });
  TemporaryDirectory folder;
  // Every reading of the clock moves it on by 50 ms, so each chunk costs 100 ms.
  auto now = std::chrono::steady_clock::time_point{};
  std::vector<std::pair<std::chrono::steady_clock::time_point, double>> reports;
  FileDownloadSession session(
      folder / "m", 0, [&](std::int64_t, std::int64_t, double speed) { reports.emplace_back(now, speed); }, {},
      [&] { return now += std::chrono::milliseconds(50); });
  session.start(get(server.baseURL() + "/m"));
  ASSERT_GE(reports.size(), 3u);
  EXPECT_EQ(reports.front().second, 0);  // the report on the answer's head, before any sample
  for (std::size_t i = 1; i + 1 < reports.size(); ++i) {
    EXPECT_GE(reports[i].first - reports[i - 1].first, std::chrono::milliseconds(200)) << i;
  }
  EXPECT_GT(session.currentSpeed(), 0);
}

LocalTranscriptionModelDescriptor checkpointModel() {
  LocalTranscriptionModelDescriptor descriptor;
  descriptor.id = "sense-voice";
  descriptor.fileName = "sense-voice";
  descriptor.isDirectory = true;
  descriptor.engineType = LocalTranscriptionEngineType::mlxSenseVoice;
  descriptor.artifactFormat = LocalTranscriptionArtifactFormat::mlxCheckpointDirectory;
  descriptor.repositoryID = "org/sense-voice";
  return descriptor;
}

const std::map<std::string, std::string> repository = {
    {"config.json", "{}"}, {"model.safetensors", content.substr(0, 5000)}, {"am.mvn", "mvn"},
    {".gitattributes", "x"}, {"README.md", "# readme"}};

TEST(CheckpointDownloaderTest, HubDownloadFollowsHFEndpointAndTakesOnlyCheckpointFiles) {
  ScriptedHTTPServer server([&](const Request& request) {
    if (request.target == "/api/models/org/sense-voice/tree/main?recursive=true") {
      nlohmann::json list = nlohmann::json::array();
      for (const auto& [path, bytes] : repository) list.push_back({{"type", "file"}, {"path", path}, {"size", bytes.size()}});
      return scriptedAnswer(200, list.dump());
    }
    const std::string prefix = "/org/sense-voice/resolve/main/";
    if (request.target.starts_with(prefix) && repository.contains(request.target.substr(prefix.size()))) {
      return scriptedAnswer(200, repository.at(request.target.substr(prefix.size())));
    }
    return scriptedAnswer(404, "");
  });
  TemporaryDirectory folder;
  UserDefaults defaults(folder / "settings.json");
  ScopedEnvironmentVariable endpoint("HF_ENDPOINT", server.baseURL() + "/ignored-path");
  ScopedEnvironmentVariable token("HF_TOKEN", "");
  CurlOrvidHTTPClient client;
  HuggingFaceMLXModelDownloader downloader(defaults, client, "bundled-token");
  EXPECT_EQ(downloader.bearerToken(), "bundled-token");
  ModelDownloadProgress last;
  fs::path destination = folder / "models" / "sense-voice";
  downloader.downloadModel(checkpointModel(), destination, [&](const ModelDownloadProgress& p) { last = p; });
  EXPECT_TRUE(MLXModelDownloadSupport::isModelInstalled(checkpointModel(), destination));
  EXPECT_FALSE(fs::exists(destination / "README.md"));
  EXPECT_FALSE(fs::exists(destination / ".gitattributes"));
  EXPECT_TRUE(readFile(destination / "model.safetensors") == repository.at("model.safetensors"));
  EXPECT_FALSE(fs::exists(folder / "models" / ".huggingface"));
  EXPECT_EQ(last.fractionCompleted(), 1.0);
  EXPECT_EQ(server.requests().front().headers.at("authorization"), "Bearer bundled-token");
}

TEST(CheckpointDownloaderTest, ModelScopeDownloadStartsOverAfterAFailureAndSkipsHiddenAndMarkdownFiles) {
  int weightRequests = 0;
  ScriptedHTTPServer server([&](const Request& request) {
    if (request.target == "/api/v1/models/org%2Fsense-voice/repo/files?Revision=master" ||
        request.target == "/api/v1/models/org/sense-voice/repo/files?Revision=master") {
      nlohmann::json files = nlohmann::json::array();
      for (const auto& [path, bytes] : repository) files.push_back({{"Path", path}, {"Size", bytes.size()}, {"Type", "blob"}});
      files.push_back({{"Path", "nested"}, {"Type", "tree"}});
      return scriptedAnswer(200, nlohmann::json{{"Code", 200}, {"Success", true}, {"Data", {{"Files", files}}}}.dump());
    }
    const std::string prefix = "/api/v1/models/org/sense-voice/repo?Revision=master&FilePath=";
    if (!request.target.starts_with(prefix)) return scriptedAnswer(404, "");
    Reply reply = rangeReply(repository.at(request.target.substr(prefix.size())), request);
    if (request.target.ends_with("safetensors") && weightRequests++ == 0) reply.cutAfter = 2000;
    return reply;
  });
  TemporaryDirectory folder;
  CurlOrvidHTTPClient client;
  ModelScopeMLXModelDownloader downloader(client, URL::parse(server.baseURL()));
  fs::path destination = folder / "sense-voice";
  EXPECT_TRUE(thrown<OrvidHTTPError>([&] { downloader.downloadModel(checkpointModel(), destination, nullptr); }));
  EXPECT_FALSE(fs::exists(folder / "sense-voice.modelscope-staging"));
  // The staging folder went with its partial file, so the second attempt starts over.
  downloader.downloadModel(checkpointModel(), destination, nullptr);
  EXPECT_TRUE(MLXModelDownloadSupport::isModelInstalled(checkpointModel(), destination));
  EXPECT_FALSE(fs::exists(destination / "README.md"));
  EXPECT_FALSE(fs::exists(destination / ".gitattributes"));
  EXPECT_EQ(weightRequests, 2);
}

}  // namespace
}  // namespace orvid
