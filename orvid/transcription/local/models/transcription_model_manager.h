#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/transcription/local/models/mlx_model_download_support.h"

namespace orvid {

class OrvidHTTPClient;
class OrvidProcessRunning;
class UserDefaults;

// Every model's on-disk state at one moment, for a settings screen.
struct LocalTranscriptionModelManagerSnapshot {
  std::filesystem::path rootDirectory;
  // Keyed by model identifier.
  std::map<std::string, LocalTranscriptionModelState> states;

  bool operator==(const LocalTranscriptionModelManagerSnapshot&) const = default;
};

// {"rootDirectory": "file:///…/models/", "states": {"<id>": {…}, …}}
void to_json(nlohmann::json& json, const LocalTranscriptionModelManagerSnapshot& snapshot);
void from_json(const nlohmann::json& json, LocalTranscriptionModelManagerSnapshot& snapshot);

// What the host may change beyond the manager's collaborators.
struct TranscriptionModelManagerOptions {
  // The settings that choose the download source; null: UserDefaults::standard().
  const UserDefaults* defaults = nullptr;
  // Runs the archive unpackers; null: a PosixSpawnOrvidProcessRunner.
  std::shared_ptr<OrvidProcessRunning> processRunner;
  // A direct download that receives no byte for this long ends its attempt with
  // OrvidModelDownloadError::stalled (the partial file kept); absent: no watchdog.
  std::optional<std::chrono::seconds> stallTimeout = std::chrono::seconds(30);
  // The ZIP unpackers tried in order; the first that exists is used.
  std::vector<std::filesystem::path> zipUnpackers = {"/usr/bin/unzip", "/usr/bin/bsdtar"};
  // Told the model's identifier when a caller joins a download already running, just
  // before it starts waiting; must not block.
  std::function<void(const std::string& modelID)> joinObserver;
};

// The on-disk side of on-device models: one root folder where every model has a fixed
// place (N installed, "N.partial" downloading, "N.extracting" unpacking, N being the
// descriptor's file name; a model of the system's packages lives at the absolute path
// its file name gives and is only looked at), the installed checks, resumable downloads with one transfer
// per model, archive installation, deletion and clean-up of leftovers. Thread-safe;
// its lock is never held across a transfer, an unpacker run or a progress callback.
class TranscriptionModelManager {
 public:
  // Receives the model's state as a download goes; called from the transferring
  // thread, must not block.
  using ProgressHandler = std::function<void(const LocalTranscriptionModelState&)>;

  // A `httpClient` that is the libcurl client streams direct downloads to disk with
  // resume and live progress; any other client fetches whole bodies. A null
  // `mlxDownloader` downloads checkpoint folders from the sources the settings choose.
  TranscriptionModelManager(std::filesystem::path rootDirectory,
                            std::vector<LocalTranscriptionModelDescriptor> descriptors,
                            std::shared_ptr<OrvidHTTPClient> httpClient,
                            std::shared_ptr<MLXModelDownloading> mlxDownloader = nullptr,
                            TranscriptionModelManagerOptions options = {});
  ~TranscriptionModelManager();
  TranscriptionModelManager(const TranscriptionModelManager&) = delete;
  TranscriptionModelManager& operator=(const TranscriptionModelManager&) = delete;

  const std::filesystem::path& rootDirectory() const { return rootDirectory_; }
  const std::vector<LocalTranscriptionModelDescriptor>& descriptors() const { return descriptors_; }

  // Creates the root folder, removes the obsolete models' leftovers and every staging
  // folder not in use by a running download. Throws std::filesystem::filesystem_error.
  void prepareStorage() const;

  // Prepares the storage, then every descriptor's state in order; a model counts as
  // downloading while a download of it runs here.
  LocalTranscriptionModelManagerSnapshot snapshot() const;

  // Where the model is (or would be) installed; absent for an unknown identifier.
  std::optional<std::filesystem::path> finalURL(const std::string& modelID) const;

  // Downloads and installs the model and returns its state. A second call for a model
  // already downloading joins that download (its progress handler is not attached) and
  // returns its outcome. `stop` ends this caller's wait; the caller that started the
  // transfer also stops it, which ends every joined caller with CancellationError too.
  // Throws OrvidModelDownloadError, OrvidHTTPError, SpeechModelLibraryError (models
  // whose downloader is not available on this platform), std::filesystem::filesystem_error
  // and CancellationError. An interrupted download keeps its partial file for a resume.
  LocalTranscriptionModelState downloadModel(const std::string& modelID, ProgressHandler progress = {},
                                             std::stop_token stop = {});

  // Stops the model's running download, if any; its callers get CancellationError.
  void cancelDownload(const std::string& modelID);
  bool isDownloadingActive(const std::string& modelID) const;

  // Removes the model, its partial file and its staging folder; nothing for an unknown
  // identifier or a model of the system's packages. A running download is not stopped. Throws std::filesystem::filesystem_error.
  void deleteModel(const std::string& modelID);

 private:
  struct DownloadTask;

  LocalTranscriptionModelState performDownload(const LocalTranscriptionModelDescriptor& descriptor,
                                               const ProgressHandler& progress, std::stop_token stop);
  LocalTranscriptionModelState downloadMLXModel(const LocalTranscriptionModelDescriptor& descriptor,
                                                const ProgressHandler& progress, std::stop_token stop);
  LocalTranscriptionModelState downloadDirectly(const LocalTranscriptionModelDescriptor& descriptor,
                                                const ProgressHandler& progress, std::stop_token stop);
  void attempt(const LocalTranscriptionModelDescriptor& descriptor, const URL& url, const ProgressHandler& progress,
               std::stop_token stop);
  void installDirectoryArchive(const std::filesystem::path& archive, const LocalTranscriptionModelDescriptor& descriptor,
                               std::stop_token stop);
  void unpack(const std::filesystem::path& archive, const std::filesystem::path& staging, bool tarGzip,
              std::stop_token stop);
  std::vector<URL> candidateURLs(const URL& downloadURL) const;
  LocalTranscriptionModelState state(const LocalTranscriptionModelDescriptor& descriptor) const;
  bool isModelInstalled(const LocalTranscriptionModelDescriptor& descriptor) const;
  const LocalTranscriptionModelDescriptor* descriptor(const std::string& modelID) const;
  std::filesystem::path entry(const LocalTranscriptionModelDescriptor& descriptor, std::string_view suffix = {}) const;
  const UserDefaults& defaults() const;

  const std::filesystem::path rootDirectory_;
  const std::vector<LocalTranscriptionModelDescriptor> descriptors_;
  const std::shared_ptr<OrvidHTTPClient> httpClient_;
  std::shared_ptr<MLXModelDownloading> mlxDownloader_;
  const TranscriptionModelManagerOptions options_;

  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<DownloadTask>> activeDownloads_;
};

}  // namespace orvid
