#include "orvid/transcription/local/models/transcription_model_manager.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "orvid/automation/orvid_process_running.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/platform/in_memory_orvid_http_client.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/testing/scoped_environment_variable.h"
#include "orvid/testing/scripted_http_server.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/local/models/file_download_session.h"
#include "orvid/transcription/local/models/orvid_model_download_error.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;
using testing::rangeReply;
using testing::readFile;
using testing::ScriptedHTTPServer;
using testing::ScriptedReply;
using testing::ScriptedRequest;
using testing::thrown;
using testing::writeFile;

const std::string content = testing::randomBytes(1 << 20);

std::string sha256Of(const std::string& bytes, const fs::path& scratch) {
  writeFile(scratch, bytes);
  return sha256HexOfFile(scratch);
}

LocalTranscriptionModelDescriptor model(const std::string& url, bool isDirectory = false) {
  LocalTranscriptionModelDescriptor descriptor;
  descriptor.id = "test-model";
  descriptor.fileName = isDirectory ? "test-model" : "test-model.bin";
  descriptor.downloadURL = URL::parse(url);
  descriptor.downloadSizeBytes = std::int64_t(content.size());
  descriptor.isDirectory = isDirectory;
  return descriptor;
}

// A models folder, the settings beside it and a manager over the real libcurl client.
struct Fixture {
  TemporaryDirectory folder;
  fs::path root = folder / "models";
  UserDefaults defaults{folder / "settings.json"};

  std::unique_ptr<TranscriptionModelManager> manager(std::vector<LocalTranscriptionModelDescriptor> descriptors,
                                                     TranscriptionModelManagerOptions options = {},
                                                     std::shared_ptr<OrvidHTTPClient> client = nullptr) {
    options.defaults = &defaults;
    if (!client) client = std::make_shared<CurlOrvidHTTPClient>();
    return std::make_unique<TranscriptionModelManager>(root, std::move(descriptors), client, nullptr, options);
  }
};

TEST(TranscriptionModelManagerTest, ResumesADroppedDownloadToAByteIdenticalFile) {
  Fixture fixture;
  int attempts = 0;
  ScriptedHTTPServer server([&](const ScriptedRequest& request) {
    auto reply = rangeReply(content, request);
    if (attempts++ == 0) reply.cutAfter = content.size() * 2 / 5;
    return reply;
  });
  auto descriptor = model(server.baseURL() + "/ggml-test.bin");
  descriptor.sha256 = sha256Of(content, fixture.folder / "expected");
  auto manager = fixture.manager({descriptor});

  auto dropped = thrown<OrvidHTTPError>([&] { manager->downloadModel("test-model"); });
  ASSERT_TRUE(dropped);
  auto interrupted = manager->snapshot().states.at("test-model");
  EXPECT_FALSE(interrupted.isInstalled);
  EXPECT_EQ(interrupted.downloadedBytes, std::int64_t(content.size() * 2 / 5));

  std::vector<LocalTranscriptionModelState> reports;
  auto installed = manager->downloadModel("test-model", [&](const auto& state) { reports.push_back(state); });
  EXPECT_TRUE(installed.isInstalled);
  EXPECT_FALSE(installed.isDownloading);
  EXPECT_EQ(server.requests().at(1).headers.at("range"), "bytes=" + std::to_string(content.size() * 2 / 5) + "-");
  EXPECT_EQ(readFile(fixture.root / "test-model.bin"), content);
  EXPECT_FALSE(fs::exists(fixture.root / "test-model.bin.partial"));
  ASSERT_GE(reports.size(), 2u);
  EXPECT_EQ(reports.front().downloadedBytes, interrupted.downloadedBytes);
  EXPECT_EQ(reports.back().downloadedBytes, std::int64_t(content.size()));
  EXPECT_EQ(reports.back().progress, 1.0);
  for (std::size_t i = 1; i < reports.size(); ++i) EXPECT_GE(reports[i].downloadedBytes, reports[i - 1].downloadedBytes);
}

TEST(TranscriptionModelManagerTest, AnswersToAResumedDownload) {
  struct Case {
    std::string name;
    std::vector<int> statuses;  // per request; 0 answers the Range as a file server does
    bool wrongDigest = false;
    std::optional<int> failure;  // the httpStatus thrown, or -1 for a checksum mismatch
    std::size_t requests;
    std::int64_t partialLeft;  // bytes left in the partial file after a failure
  };
  const std::vector<Case> cases = {
      {"Range ignored: starts over", {200}, false, std::nullopt, 1, 0},
      {"416: the partial file is dropped, then a plain request", {416, 0}, false, std::nullopt, 2, 0},
      {"416 twice: the status is the failure", {416, 416}, false, 416, 2, 0},
      {"server error: the partial file stays", {500}, false, 500, 1, 100},
      {"wrong digest: nothing installed", {0}, true, -1, 1, -1},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Fixture fixture;
    std::atomic<std::size_t> request = 0;
    ScriptedHTTPServer server([&](const ScriptedRequest& sent) {
      int status = test.statuses.at(std::min(request++, test.statuses.size() - 1));
      if (status == 0) return rangeReply(content, sent);
      return testing::scriptedAnswer(status, status == 200 ? content : "Authorization: Bearer sk-secret");
    });
    auto descriptor = model(server.baseURL() + "/m.bin");
    descriptor.sha256 = test.wrongDigest ? std::string(64, '0') : sha256Of(content, fixture.folder / "expected");
    writeFile(fixture.root / "test-model.bin.partial", content.substr(0, 100));
    auto manager = fixture.manager({descriptor});

    auto error = thrown<OrvidModelDownloadError>([&] { manager->downloadModel("test-model"); });
    EXPECT_EQ(server.requests().size(), test.requests);
    if (!test.failure) {
      ASSERT_FALSE(error) << error->what();
      EXPECT_EQ(readFile(fixture.root / "test-model.bin"), content);
      EXPECT_EQ(server.requests().back().headers.contains("range"), test.requests == 1);
      continue;
    }
    ASSERT_TRUE(error);
    EXPECT_EQ(error->errorCase(), *test.failure < 0 ? OrvidModelDownloadError::Case::checksumMismatch
                                                    : OrvidModelDownloadError::Case::httpStatus);
    EXPECT_EQ(std::string(error->what()).find("sk-secret"), std::string::npos);
    EXPECT_FALSE(fs::exists(fixture.root / "test-model.bin"));
    auto partial = fixture.root / "test-model.bin.partial";
    EXPECT_EQ(fs::exists(partial) ? std::int64_t(fs::file_size(partial)) : -1, test.partialLeft);
  }
}

// Runs the real tools to pack `files` into an archive of the given kind.
std::string archiveOf(const fs::path& scratch, const std::string& kind) {
  auto source = scratch / "source";
  writeFile(source / "config.json", "{}");
  writeFile(source / "weights" / "model.bin", content.substr(0, 4096));
  auto archive = scratch / ("archive." + kind);
  auto command = kind == "zip" ? "cd '" + source.string() + "' && /usr/bin/python3 -m zipfile -c '" +
                                     archive.string() + "' config.json weights"
                               : "/usr/bin/tar -czf '" + archive.string() + "' -C '" + source.string() + "' .";
  EXPECT_EQ(std::system(command.c_str()), 0);
  return readFile(archive);
}

// An unpacker whose error output quotes a credential.
class SecretSpeakingUnpacker : public OrvidProcessRunning {
 public:
  OrvidProcessResult run(const fs::path&, const std::vector<std::string>&, std::stop_token) override {
    return {2, "", "tar: cannot open https://hub.example/m.tgz?api_key=sk-live-1234567890abcdef\n"};
  }
};

TEST(TranscriptionModelManagerTest, InstallsArchivesAndDiscardsWhatCannotBeUnpacked) {
  struct Case {
    std::string name;
    std::string urlEnding;
    std::string packer;  // "zip", "tgz" or "" for bytes that are no archive
    std::vector<fs::path> zipUnpackers;
    bool secretSpeaking = false;
  };
  std::vector<Case> cases = {
      {"tar-gzip by the URL's .tgz", ".tgz", "tgz", {}},
      {"tar-gzip by .tar.gz", ".tar.gz", "tgz", {}},
      {"ZIP with unzip", ".zip", "zip", {"/usr/bin/unzip"}},
      {"corrupt tar-gzip", ".tgz", "", {}},
      {"corrupt ZIP", ".zip", "", {"/usr/bin/unzip"}},
      {"unpacker output with a key", ".tgz", "", {}, true},
  };
  if (fs::exists("/usr/bin/bsdtar")) cases.push_back({"ZIP with bsdtar", ".zip", "zip", {"/usr/bin/bsdtar"}});
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Fixture fixture;
    std::string served = test.packer.empty() ? content.substr(0, 5000) : archiveOf(fixture.folder.path(), test.packer);
    ScriptedHTTPServer server([&](const ScriptedRequest& request) { return rangeReply(served, request); });
    TranscriptionModelManagerOptions options;
    if (!test.zipUnpackers.empty()) options.zipUnpackers = test.zipUnpackers;
    if (test.secretSpeaking) options.processRunner = std::make_shared<SecretSpeakingUnpacker>();
    auto manager = fixture.manager({model(server.baseURL() + "/model" + test.urlEnding, true)}, options);

    auto error = thrown<OrvidModelDownloadError>([&] { manager->downloadModel("test-model"); });
    EXPECT_FALSE(fs::exists(fixture.root / "test-model.extracting"));
    if (test.packer.empty()) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->errorCase(), OrvidModelDownloadError::Case::archiveExtractionFailed);
      EXPECT_FALSE(error->payload().empty());
      EXPECT_EQ(std::string(error->what()).find("sk-live"), std::string::npos) << error->what();
      EXPECT_FALSE(fs::exists(fixture.root / "test-model"));
      EXPECT_EQ(readFile(fixture.root / "test-model.partial"), served);
      continue;
    }
    ASSERT_FALSE(error) << error->what();
    EXPECT_EQ(readFile(fixture.root / "test-model" / "weights" / "model.bin"), content.substr(0, 4096));
    EXPECT_FALSE(fs::exists(fixture.root / "test-model.partial"));
  }
}

TEST(TranscriptionModelManagerTest, TwoCallersShareOneTransfer) {
  Fixture fixture;
  std::mutex mutex;
  std::condition_variable changed;
  bool joined = false;
  ScriptedHTTPServer server([&](const ScriptedRequest& request) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(20), [&] { return joined; });
    return rangeReply(content, request);
  });
  TranscriptionModelManagerOptions options;
  options.joinObserver = [&](const std::string&) {
    std::lock_guard lock(mutex);
    joined = true;
    changed.notify_all();
  };
  auto manager = fixture.manager({model(server.baseURL() + "/m.bin")}, options);
  std::optional<LocalTranscriptionModelState> first;
  bool started = false;
  std::jthread starter([&] {
    first = manager->downloadModel("test-model", [&](const LocalTranscriptionModelState&) {
      std::lock_guard lock(mutex);
      started = true;
      changed.notify_all();
    });
  });
  {
    std::unique_lock lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] { return started; }));
  }
  auto second = manager->downloadModel("test-model");
  starter.join();
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_TRUE(second.isInstalled);
  EXPECT_EQ(first, second);
  EXPECT_FALSE(manager->isDownloadingActive("test-model"));
}

TEST(TranscriptionModelManagerTest, CancellingKeepsThePartialFileForAResume) {
  Fixture fixture;
  ScriptedHTTPServer server([&](const ScriptedRequest& request) {
    auto reply = rangeReply(content, request);
    reply.cutAfter = content.size() / 4;
    reply.stall = true;
    return reply;
  });
  auto manager = fixture.manager({model(server.baseURL() + "/m.bin")});
  auto error = thrown<CancellationError>([&] {
    manager->downloadModel("test-model", [&](const LocalTranscriptionModelState& state) {
      if (state.downloadedBytes >= std::int64_t(content.size() / 4)) manager->cancelDownload("test-model");
    });
  });
  EXPECT_TRUE(error);
  EXPECT_FALSE(manager->isDownloadingActive("test-model"));
  EXPECT_EQ(fs::file_size(fixture.root / "test-model.bin.partial"), content.size() / 4);
}

TEST(TranscriptionModelManagerTest, SnapshotClearsLeftoversAndReportsEachModel) {
  Fixture fixture;
  for (auto leftover : {"cohere-int8/model.onnx", "sense-voice-int8.partial", "other.extracting/x", "test-model.bin.partial"}) {
    writeFile(fixture.root / leftover, "0123456789");
  }
  auto direct = model("https://huggingface.co/o/r/resolve/main/test-model.bin");
  LocalTranscriptionModelDescriptor system;
  system.id = "system";
  system.fileName = "system";
  system.artifactFormat = LocalTranscriptionArtifactFormat::systemSpeech;
  LocalTranscriptionModelDescriptor package;
  package.id = "package";
  package.fileName = (fixture.folder / "usr-share-model").string();
  package.artifactFormat = LocalTranscriptionArtifactFormat::systemPackage;
  writeFile(fixture.folder / "usr-share-model" / "mdef", "model");
  auto manager = fixture.manager({direct, system, package});

  auto snapshot = manager->snapshot();
  EXPECT_FALSE(fs::exists(fixture.root / "cohere-int8"));
  EXPECT_FALSE(fs::exists(fixture.root / "sense-voice-int8.partial"));
  EXPECT_FALSE(fs::exists(fixture.root / "other.extracting"));
  const auto& partial = snapshot.states.at("test-model");
  EXPECT_FALSE(partial.isInstalled);
  EXPECT_FALSE(partial.isDownloading);  // no download runs here
  EXPECT_EQ(partial.downloadedBytes, 10);
  EXPECT_DOUBLE_EQ(*partial.progress, 10.0 / double(content.size()));
  EXPECT_EQ(partial.path, (fixture.root / "test-model.bin").string());
  EXPECT_TRUE(snapshot.states.at("system").isInstalled);
  EXPECT_FALSE(snapshot.states.at("system").path);
  EXPECT_TRUE(snapshot.states.at("package").isInstalled);
  EXPECT_EQ(manager->finalURL("package"), fixture.folder / "usr-share-model");
  manager->deleteModel("package");  // the system's files are never removed
  EXPECT_TRUE(fs::exists(fixture.folder / "usr-share-model" / "mdef"));

  writeFile(fixture.root / "test-model.bin", "model");
  manager->deleteModel("test-model");
  EXPECT_TRUE(fs::is_empty(fixture.root));
}

TEST(TranscriptionModelManagerTest, CandidateURLsFollowTheDownloadSource) {
  const std::string path = "/ggerganov/whisper.cpp/resolve/main/ggml-tiny.bin";
  struct Case {
    std::optional<std::string> source;
    std::optional<std::string> hfEndpoint;
    std::vector<std::string> hosts;
  };
  const std::vector<Case> cases = {
      {std::nullopt, std::nullopt, {"https://huggingface.co"}},
      {"huggingFaceMirror", std::nullopt, {"https://hf-mirror.com"}},
      {"modelScope", std::nullopt, {"https://hf-mirror.com", "https://huggingface.co"}},
      {"huggingFace", "http://127.0.0.1:9", {"http://127.0.0.1:9"}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.source.value_or("default"));
    Fixture fixture;
    if (test.source) fixture.defaults.set("modelDownloadSource", *test.source);
    testing::ScopedEnvironmentVariable endpoint("HF_ENDPOINT", test.hfEndpoint);
    auto client = InMemoryOrvidHTTPClient::answering(503, {});
    auto manager = fixture.manager({model("https://huggingface.co" + path)}, {}, client);
    auto error = thrown<OrvidModelDownloadError>([&] { manager->downloadModel("test-model"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number(), 503);
    std::vector<std::string> requested;
    for (const auto& request : client->requests()) requested.push_back(request.url.absoluteString());
    std::vector<std::string> expected;
    for (const auto& host : test.hosts) expected.push_back(host + path);
    EXPECT_EQ(requested, expected);
  }
}

}  // namespace
}  // namespace orvid
