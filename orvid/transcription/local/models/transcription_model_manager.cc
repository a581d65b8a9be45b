#include "orvid/transcription/local/models/transcription_model_manager.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <fstream>
#include <system_error>

#include <nlohmann/json.hpp>

#include "orvid/ai/secret_redactor.h"
#include "orvid/automation/orvid_process_running.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/transcription/local/models/file_download_session.h"
#include "orvid/transcription/local/models/hugging_face_download_endpoints.h"
#include "orvid/transcription/local/models/hugging_face_mlx_model_downloader.h"
#include "orvid/transcription/local/models/orvid_model_download_error.h"
#include "orvid/transcription/local/speech_model_library.h"

namespace orvid {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kPartialSuffix = ".partial";
constexpr std::string_view kStagingSuffix = ".extracting";
// Names of models earlier releases installed that no engine loads any more.
constexpr std::string_view kObsoleteModelNames[] = {"sense-voice-int8", "parakeet-tdt-0.6b-v2-int8",
                                                    "parakeet-tdt-0.6b-v3-int8", "cohere-int8"};
constexpr std::string_view kWhisperKitComponents[] = {"MelSpectrogram", "AudioEncoder", "TextDecoder"};

bool isSystemSpeech(const LocalTranscriptionModelDescriptor& descriptor) {
  return descriptor.artifactFormat == LocalTranscriptionArtifactFormat::systemSpeech;
}

// A model the system's package manager installed, at the absolute path its file name gives.
bool isSystemPackage(const LocalTranscriptionModelDescriptor& descriptor) {
  return descriptor.artifactFormat == LocalTranscriptionArtifactFormat::systemPackage;
}

// Removes whatever is at `path`; a missing entry is not an error.
void removeEntry(const fs::path& path) {
  std::error_code error;
  fs::remove_all(path, error);
  if (error) throw fs::filesystem_error("cannot remove", path, error);
}

bool entryExists(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::int64_t fileSize(const fs::path& path) {
  std::error_code error;
  auto size = fs::file_size(path, error);
  return error ? 0 : std::int64_t(size);
}

std::optional<double> fraction(std::int64_t downloaded, std::int64_t total) {
  if (downloaded < 1 || total < 1) return std::nullopt;
  return std::min(1.0, double(downloaded) / double(total));
}

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool isTarGzip(const LocalTranscriptionModelDescriptor& descriptor) {
  auto named = [](std::string text) {
    text = internal::lowercaseASCII(text);
    return endsWith(text, ".tar.gz") || endsWith(text, ".tgz");
  };
  return named(descriptor.fileName) || (descriptor.downloadURL && named(descriptor.downloadURL->path()));
}

std::string fileURLText(const fs::path& directory) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string text = "file://";
  for (unsigned char c : directory.string()) {
    if (std::isalnum(c) || std::string_view("/-._~").find(char(c)) != std::string_view::npos) {
      text += char(c);
    } else {
      text += '%';
      text += kHex[c >> 4];
      text += kHex[c & 15];
    }
  }
  if (!endsWith(text, "/")) text += '/';
  return text;
}

fs::path pathOfFileURL(const std::string& text) {
  if (text.rfind("file://", 0) != 0) {
    throw nlohmann::json::other_error::create(501, "rootDirectory is not a file URL",
                                              static_cast<const nlohmann::json*>(nullptr));
  }
  std::string path;
  for (std::size_t i = 7; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      path += char(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      path += text[i];
    }
  }
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

void to_json(nlohmann::json& json, const LocalTranscriptionModelManagerSnapshot& snapshot) {
  json = nlohmann::json{{"rootDirectory", fileURLText(snapshot.rootDirectory)}, {"states", snapshot.states}};
}

void from_json(const nlohmann::json& json, LocalTranscriptionModelManagerSnapshot& snapshot) {
  snapshot.rootDirectory = pathOfFileURL(json.at("rootDirectory").get<std::string>());
  snapshot.states = json.at("states").get<std::map<std::string, LocalTranscriptionModelState>>();
}

// One running download and the callers waiting for it.
struct TranscriptionModelManager::DownloadTask {
  std::stop_source stop;
  std::mutex mutex;
  std::condition_variable_any finished;
  bool done = false;
  std::optional<LocalTranscriptionModelState> state;
  std::exception_ptr error;
};

TranscriptionModelManager::TranscriptionModelManager(fs::path rootDirectory,
                                                     std::vector<LocalTranscriptionModelDescriptor> descriptors,
                                                     std::shared_ptr<OrvidHTTPClient> httpClient,
                                                     std::shared_ptr<MLXModelDownloading> mlxDownloader,
                                                     TranscriptionModelManagerOptions options)
    : rootDirectory_(std::move(rootDirectory)),
      descriptors_(std::move(descriptors)),
      httpClient_(httpClient ? std::move(httpClient) : std::make_shared<CurlOrvidHTTPClient>()),
      mlxDownloader_(std::move(mlxDownloader)),
      options_(std::move(options)) {
  if (!mlxDownloader_) mlxDownloader_ = std::make_shared<HuggingFaceMLXModelDownloader>(defaults(), *httpClient_);
}

TranscriptionModelManager::~TranscriptionModelManager() = default;

const UserDefaults& TranscriptionModelManager::defaults() const {
  return options_.defaults != nullptr ? *options_.defaults : UserDefaults::standard();
}

const LocalTranscriptionModelDescriptor* TranscriptionModelManager::descriptor(const std::string& modelID) const {
  auto found = std::find_if(descriptors_.begin(), descriptors_.end(),
                            [&](const auto& descriptor) { return descriptor.id == modelID; });
  return found == descriptors_.end() ? nullptr : &*found;
}

fs::path TranscriptionModelManager::entry(const LocalTranscriptionModelDescriptor& descriptor,
                                          std::string_view suffix) const {
  if (isSystemPackage(descriptor)) return fs::path(descriptor.fileName);
  return rootDirectory_ / (descriptor.fileName + std::string(suffix));
}

std::optional<fs::path> TranscriptionModelManager::finalURL(const std::string& modelID) const {
  const auto* found = descriptor(modelID);
  if (found == nullptr) return std::nullopt;
  return entry(*found);
}

void TranscriptionModelManager::prepareStorage() const {
  std::error_code error;
  fs::create_directories(rootDirectory_, error);
  if (error) throw fs::filesystem_error("cannot create the models folder", rootDirectory_, error);
  for (auto name : kObsoleteModelNames) {
    for (std::string_view suffix : {std::string_view(), kPartialSuffix, kStagingSuffix}) {
      removeEntry(rootDirectory_ / (std::string(name) + std::string(suffix)));
    }
  }
  // Staging folders left by an interrupted unpacking; those of downloads running
  // here are in use.
  std::vector<fs::path> inUse;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [modelID, task] : activeDownloads_) {
      if (const auto* found = descriptor(modelID)) inUse.push_back(entry(*found, kStagingSuffix));
    }
  }
  fs::directory_iterator listing(rootDirectory_, error);
  if (error) throw fs::filesystem_error("cannot list the models folder", rootDirectory_, error);
  std::vector<fs::path> leftovers;
  for (const auto& item : listing) {
    if (endsWith(item.path().filename().string(), kStagingSuffix) &&
        std::find(inUse.begin(), inUse.end(), item.path()) == inUse.end()) {
      leftovers.push_back(item.path());
    }
  }
  for (const auto& leftover : leftovers) removeEntry(leftover);
}

bool TranscriptionModelManager::isModelInstalled(const LocalTranscriptionModelDescriptor& descriptor) const {
  if (isSystemSpeech(descriptor)) return true;
  auto folder = entry(descriptor);
  if (descriptor.engineType == LocalTranscriptionEngineType::whisperKit) {
    return std::all_of(std::begin(kWhisperKitComponents), std::end(kWhisperKitComponents), [&](auto component) {
      return entryExists(folder / (std::string(component) + ".mlmodelc")) ||
             entryExists(folder / (std::string(component) + ".mlpackage"));
    });
  }
  if (descriptor.artifactFormat == LocalTranscriptionArtifactFormat::mlxCheckpointDirectory) {
    return MLXModelDownloadSupport::isModelInstalled(descriptor, folder);
  }
  return entryExists(folder);
}

LocalTranscriptionModelState TranscriptionModelManager::state(const LocalTranscriptionModelDescriptor& descriptor) const {
  LocalTranscriptionModelState state;
  state.modelID = descriptor.id;
  if (isSystemSpeech(descriptor)) {
    state.isInstalled = true;
    return state;
  }
  if (isSystemPackage(descriptor)) {
    state.isInstalled = entryExists(entry(descriptor));
    state.path = descriptor.fileName;
    return state;
  }
  state.isInstalled = isModelInstalled(descriptor);
  state.isDownloading = entryExists(entry(descriptor, kPartialSuffix));
  state.isExtracting = entryExists(entry(descriptor, kStagingSuffix));
  state.downloadedBytes = fileSize(entry(descriptor, kPartialSuffix));
  state.progress = fraction(state.downloadedBytes, MLXModelDownloadSupport::expectedTotalBytes(descriptor));
  state.path = entry(descriptor).string();
  return state;
}

LocalTranscriptionModelManagerSnapshot TranscriptionModelManager::snapshot() const {
  prepareStorage();
  LocalTranscriptionModelManagerSnapshot snapshot;
  snapshot.rootDirectory = rootDirectory_;
  for (const auto& descriptor : descriptors_) {
    auto modelState = state(descriptor);
    modelState.isDownloading = isDownloadingActive(descriptor.id);
    snapshot.states[descriptor.id] = std::move(modelState);
  }
  return snapshot;
}

bool TranscriptionModelManager::isDownloadingActive(const std::string& modelID) const {
  std::lock_guard lock(mutex_);
  return activeDownloads_.contains(modelID);
}

void TranscriptionModelManager::cancelDownload(const std::string& modelID) {
  std::lock_guard lock(mutex_);
  if (auto found = activeDownloads_.find(modelID); found != activeDownloads_.end()) found->second->stop.request_stop();
}

LocalTranscriptionModelState TranscriptionModelManager::downloadModel(const std::string& modelID,
                                                                      ProgressHandler progress, std::stop_token stop) {
  std::shared_ptr<DownloadTask> task;
  bool joined = false;
  {
    std::lock_guard lock(mutex_);
    auto& registered = activeDownloads_[modelID];
    joined = registered != nullptr;
    if (!joined) registered = std::make_shared<DownloadTask>();
    task = registered;
  }
  if (joined) {
    if (options_.joinObserver) options_.joinObserver(modelID);
    std::unique_lock lock(task->mutex);
    if (!task->finished.wait(lock, stop, [&] { return task->done; })) throw CancellationError();
    if (task->error) std::rethrow_exception(task->error);
    return *task->state;
  }

  std::stop_callback forward(stop, [&task] { task->stop.request_stop(); });
  std::optional<LocalTranscriptionModelState> outcome;
  std::exception_ptr error;
  try {
    prepareStorage();
    const auto* found = descriptor(modelID);
    if (found == nullptr) throw OrvidModelDownloadError::unknownModel(modelID);
    outcome = performDownload(*found, progress, task->stop.get_token());
  } catch (...) {
    error = std::current_exception();
  }
  {
    std::lock_guard lock(mutex_);
    activeDownloads_.erase(modelID);
  }
  {
    std::lock_guard lock(task->mutex);
    task->done = true;
    task->state = outcome;
    task->error = error;
  }
  task->finished.notify_all();
  if (error) std::rethrow_exception(error);
  return *outcome;
}

LocalTranscriptionModelState TranscriptionModelManager::performDownload(
    const LocalTranscriptionModelDescriptor& descriptor, const ProgressHandler& progress, std::stop_token stop) {
  if (isSystemPackage(descriptor)) {
    if (isModelInstalled(descriptor)) return state(descriptor);
    throw OrvidModelDownloadError::missingDownloadURL(descriptor.id);
  }
  if (descriptor.engineType == LocalTranscriptionEngineType::whisperKit) {
    if (isModelInstalled(descriptor)) return state(descriptor);
    throw SpeechModelLibraryError::notSupportedOnPlatform(SpeechModelLibrary::whisperKit);
  }
  if (descriptor.artifactFormat == LocalTranscriptionArtifactFormat::mlxCheckpointDirectory) {
    return downloadMLXModel(descriptor, progress, stop);
  }
  return downloadDirectly(descriptor, progress, stop);
}

LocalTranscriptionModelState TranscriptionModelManager::downloadMLXModel(
    const LocalTranscriptionModelDescriptor& descriptor, const ProgressHandler& progress, std::stop_token stop) {
  if (isModelInstalled(descriptor)) return state(descriptor);
  auto report = [&](std::int64_t downloaded, std::optional<double> fractionDone) {
    if (!progress) return;
    LocalTranscriptionModelState modelState;
    modelState.modelID = descriptor.id;
    modelState.isDownloading = true;
    modelState.downloadedBytes = downloaded;
    modelState.progress = fractionDone;
    modelState.path = entry(descriptor).string();
    progress(modelState);
  };
  auto expected = MLXModelDownloadSupport::expectedTotalBytes(descriptor);
  auto partial = fileSize(entry(descriptor, kPartialSuffix));
  report(partial, fraction(partial, expected));
  mlxDownloader_->downloadModel(
      descriptor, entry(descriptor),
      [&](const ModelDownloadProgress& reported) {
        auto total = std::max<std::int64_t>({reported.totalUnitCount, expected, 1});
        double done = reported.fractionCompleted();
        if (!std::isfinite(done)) done = 0;
        done = std::clamp(done, 0.0, 1.0);
        auto downloaded = std::int64_t(std::llround(done * double(total)));
        report(downloaded, std::min(1.0, double(downloaded) / double(total)));
      },
      stop);
  return state(descriptor);
}

std::vector<URL> TranscriptionModelManager::candidateURLs(const URL& downloadURL) const {
  std::vector<URL> candidates;
  for (auto source : HuggingFaceDownloadEndpoints::downloadSources(defaults())) {
    if (source == ModelDownloadSource::modelScope) continue;
    auto candidate = *HuggingFaceDownloadEndpoints::rewriting(downloadURL, source);
    // A self-hosted hub named by HF_ENDPOINT serves what the hub would.
    if (source == ModelDownloadSource::huggingFace &&
        candidate.host().find(HuggingFaceDownloadEndpoints::defaultHubBaseURL().host()) != std::string::npos) {
      candidate = HuggingFaceDownloadEndpoints::applyingHubEndpointOverride(candidate);
    }
    if (std::find(candidates.begin(), candidates.end(), candidate) == candidates.end()) candidates.push_back(candidate);
  }
  return candidates;
}

LocalTranscriptionModelState TranscriptionModelManager::downloadDirectly(
    const LocalTranscriptionModelDescriptor& descriptor, const ProgressHandler& progress, std::stop_token stop) {
  if (!descriptor.downloadURL) throw OrvidModelDownloadError::missingDownloadURL(descriptor.id);
  std::exception_ptr lastFailure;
  bool succeeded = false;
  for (const auto& url : candidateURLs(*descriptor.downloadURL)) {
    checkCancellation(stop);
    try {
      try {
        attempt(descriptor, url, progress, stop);
      } catch (const OrvidModelDownloadError& error) {
        // The server has nothing past what the partial file holds: start over once.
        if (error.errorCase() != OrvidModelDownloadError::Case::httpStatus || error.number() != 416) throw;
        removeEntry(entry(descriptor, kPartialSuffix));
        attempt(descriptor, url, progress, stop);
      }
      succeeded = true;
      break;
    } catch (const CancellationError&) {
      throw;
    } catch (...) {
      checkCancellation(stop);
      lastFailure = std::current_exception();
    }
  }
  if (!succeeded) std::rethrow_exception(lastFailure);

  auto installed = entry(descriptor);
  removeEntry(installed);
  if (descriptor.isDirectory) {
    installDirectoryArchive(entry(descriptor, kPartialSuffix), descriptor, stop);
  } else {
    fs::rename(entry(descriptor, kPartialSuffix), installed);
  }
  return state(descriptor);
}

void TranscriptionModelManager::attempt(const LocalTranscriptionModelDescriptor& descriptor, const URL& url,
                                        const ProgressHandler& progress, std::stop_token stop) {
  auto partial = entry(descriptor, kPartialSuffix);
  auto offset = fileSize(partial);
  auto expected = MLXModelDownloadSupport::expectedTotalBytes(descriptor);
  OrvidHTTPRequest request;
  request.url = url;
  request.timeout = std::chrono::seconds(60);
  if (offset >= 1) request.setHeader("Range", "bytes=" + std::to_string(offset) + "-");

  auto report = [&](std::int64_t downloaded, std::int64_t total, std::optional<double> speed) {
    if (!progress) return;
    LocalTranscriptionModelState modelState;
    modelState.modelID = descriptor.id;
    modelState.isDownloading = true;
    modelState.downloadedBytes = downloaded;
    modelState.progress = fraction(downloaded, total);
    modelState.bytesPerSecond = speed;
    modelState.path = entry(descriptor).string();
    progress(modelState);
  };
  report(offset, expected, std::nullopt);

  if (dynamic_cast<CurlOrvidHTTPClient*>(httpClient_.get()) != nullptr) {
    FileDownloadOptions downloadOptions;
    downloadOptions.stallTimeout = options_.stallTimeout;
    downloadOptions.expectedSHA256 = descriptor.sha256;
    FileDownloadSession session(
        partial, offset,
        [&](std::int64_t received, std::int64_t total, double speed) {
          report(received, total >= 1 ? total : expected, speed);
        },
        downloadOptions);
    session.start(request, stop);
    return;
  }

  auto response = httpClient_->data(request, stop);
  if (response.statusCode != 200 && response.statusCode != 206) {
    throw OrvidModelDownloadError::httpStatus(response.statusCode);
  }
  bool append = response.statusCode == 206 && offset > 0;
  {
    std::ofstream output(partial, std::ios::binary | (append ? std::ios::app : std::ios::trunc));
    output.write(reinterpret_cast<const char*>(response.body.data()), std::streamsize(response.body.size()));
    output.close();
    if (!output) throw fs::filesystem_error("cannot write", partial, std::make_error_code(std::errc::io_error));
  }
  if (descriptor.sha256) {
    auto actual = sha256HexOfFile(partial);
    if (actual != internal::lowercaseASCII(*descriptor.sha256)) {
      removeEntry(partial);
      throw OrvidModelDownloadError::checksumMismatch(actual);
    }
  }
  auto size = fileSize(partial);
  report(size, expected, std::nullopt);
}

void TranscriptionModelManager::installDirectoryArchive(const fs::path& archive,
                                                        const LocalTranscriptionModelDescriptor& descriptor,
                                                        std::stop_token stop) {
  auto staging = entry(descriptor, kStagingSuffix);
  removeEntry(staging);
  std::error_code error;
  fs::create_directories(staging, error);
  if (error) throw fs::filesystem_error("cannot create the staging folder", staging, error);
  try {
    unpack(archive, staging, isTarGzip(descriptor), stop);
    checkCancellation(stop);
    auto installed = entry(descriptor);
    removeEntry(installed);
    fs::rename(staging, installed);
    removeEntry(archive);
  } catch (...) {
    removeEntry(staging);
    throw;
  }
}

void TranscriptionModelManager::unpack(const fs::path& archive, const fs::path& staging, bool tarGzip,
                                       std::stop_token stop) {
  fs::path tool;
  std::vector<std::string> arguments;
  if (tarGzip) {
    tool = "/usr/bin/tar";
    arguments = {"-xzf", archive.string(), "-C", staging.string()};
  } else {
    auto found = std::find_if(options_.zipUnpackers.begin(), options_.zipUnpackers.end(),
                              [](const fs::path& candidate) { return entryExists(candidate); });
    if (found == options_.zipUnpackers.end()) {
      throw OrvidModelDownloadError::archiveExtractionFailed(
          "No ZIP unpacker is installed (looked for unzip and bsdtar).");
    }
    tool = *found;
    if (tool.filename() == "unzip") {
      arguments = {"-q", "-o", archive.string(), "-d", staging.string()};
    } else {
      arguments = {"-xf", archive.string(), "-C", staging.string()};
    }
  }
  auto runner = options_.processRunner ? options_.processRunner : std::make_shared<PosixSpawnOrvidProcessRunner>();
  auto result = runner->run(tool, arguments, stop);
  checkCancellation(stop);
  if (result.terminationStatus != 0) throw OrvidModelDownloadError::archiveExtractionFailed(SecretRedactor::redact(result.stderr));
}

void TranscriptionModelManager::deleteModel(const std::string& modelID) {
  const auto* found = descriptor(modelID);
  if (found == nullptr || isSystemPackage(*found)) return;
  for (std::string_view suffix : {std::string_view(), kPartialSuffix, kStagingSuffix}) removeEntry(entry(*found, suffix));
}

}  // namespace orvid
