#include "orvid/transcription/local/models/model_scope_mlx_model_downloader.h"

#include <system_error>

#include <nlohmann/json.hpp>

#include "orvid/platform/cancellation.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/transcription/local/models/file_download_session.h"
#include "orvid/transcription/local/models/hugging_face_download_endpoints.h"
#include "orvid/transcription/local/models/orvid_model_download_error.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;

template <typename T>
T field(const nlohmann::json& object, const char* key, T fallback) {
  auto found = object.find(key);
  if (found == object.end()) return fallback;
  if constexpr (std::is_same_v<T, bool>) {
    return found->is_boolean() ? found->get<bool>() : fallback;
  } else if constexpr (std::is_same_v<T, std::string>) {
    return found->is_string() ? found->get<std::string>() : fallback;
  } else {
    return found->is_number_integer() ? found->get<T>() : fallback;
  }
}

// Removes a folder when the download leaves, however it leaves.
class RemovedOnExit {
 public:
  explicit RemovedOnExit(fs::path folder) : folder_(std::move(folder)) {}
  ~RemovedOnExit() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  RemovedOnExit(const RemovedOnExit&) = delete;
  RemovedOnExit& operator=(const RemovedOnExit&) = delete;

 private:
  fs::path folder_;
};

// Downloads one file into `target`, resuming from `target` + ".partial".
void downloadFile(const URL& url, const fs::path& target, const std::function<void(std::int64_t)>& received,
                  std::stop_token stop) {
  fs::path partial = target;
  partial += ".partial";
  std::error_code error;
  auto offset = fs::exists(partial, error) ? std::int64_t(fs::file_size(partial, error)) : 0;
  if (error) offset = 0;
  OrvidHTTPRequest request;
  request.url = url;
  request.timeout = std::chrono::seconds(60);
  if (offset >= 1) request.setHeader("Range", "bytes=" + std::to_string(offset) + "-");
  FileDownloadSession session(partial, offset,
                              [&](std::int64_t bytes, std::int64_t, double) { received(bytes); });
  session.start(request, stop);
  fs::rename(partial, target);
}

}  // namespace

ModelScopeFileListEnvelope parseModelScopeFileList(std::string_view body) {
  auto json = nlohmann::json::parse(body, nullptr, false);
  if (!json.is_object()) throw OrvidHTTPError::transportFailed("the ModelScope file list is not a JSON object");
  ModelScopeFileListEnvelope envelope;
  envelope.code = field<int>(json, "Code", 0);
  envelope.success = field<bool>(json, "Success", false);
  auto data = json.find("Data");
  if (data != json.end() && data->is_object()) {
    auto files = data->find("Files");
    if (files != data->end() && files->is_array()) {
      envelope.files.emplace();
      for (const auto& entry : *files) {
        if (!entry.is_object()) continue;
        envelope.files->push_back({field<std::string>(entry, "Path", ""), field<std::int64_t>(entry, "Size", 0),
                                   field<std::string>(entry, "Type", "")});
      }
    }
  }
  return envelope;
}

ModelScopeMLXModelDownloader::ModelScopeMLXModelDownloader(OrvidHTTPClient& httpClient, std::optional<URL> baseURL)
    : httpClient_(httpClient), baseURL_(baseURL.value_or(HuggingFaceDownloadEndpoints::modelScopeBaseURL())) {}

std::vector<ModelScopeFile> ModelScopeMLXModelDownloader::fetchFileList(const std::string& repoId,
                                                                        std::stop_token stop) const {
  auto url = HuggingFaceDownloadEndpoints::modelScopeFileListURL(baseURL_, repoId);
  if (!url) throw OrvidModelDownloadError::invalidRepositoryID(repoId);
  OrvidHTTPRequest request;
  request.url = *url;
  auto response = httpClient_.data(request, stop);
  if (response.statusCode != 200) throw OrvidModelDownloadError::httpStatus(response.statusCode);
  auto envelope = parseModelScopeFileList(
      std::string_view(reinterpret_cast<const char*>(response.body.data()), response.body.size()));
  if (!envelope.success) throw OrvidModelDownloadError::invalidRepositoryID(repoId);
  std::vector<ModelScopeFile> files;
  for (auto& file : envelope.files.value_or(std::vector<ModelScopeFile>{})) {
    if (file.type == "blob" && !file.path.empty()) files.push_back(std::move(file));
  }
  return files;
}

void ModelScopeMLXModelDownloader::downloadModel(const LocalTranscriptionModelDescriptor& descriptor,
                                                 const fs::path& destination,
                                                 const ModelDownloadProgressHandler& progress, std::stop_token stop) {
  if (!descriptor.repositoryID) throw OrvidModelDownloadError::missingRepositoryID(descriptor.id);
  const std::string& repoId = *descriptor.repositoryID;
  fs::path staging = destination;
  staging.replace_extension("modelscope-staging");
  fs::remove_all(staging);
  fs::create_directories(staging);
  RemovedOnExit cleanup(staging);

  std::vector<ModelScopeFile> selected;
  for (auto& file : fetchFileList(repoId, stop)) {
    if (MLXModelDownloadSupport::isCheckpointFile(file.path, descriptor.engineType) &&
        MLXModelDownloadSupport::isContainedRelativePath(file.path)) {
      selected.push_back(file);
    }
  }
  ModelDownloadProgress overall;
  for (const auto& file : selected) overall.totalUnitCount += file.size;
  if (overall.totalUnitCount < 1) overall.totalUnitCount = MLXModelDownloadSupport::expectedTotalBytes(descriptor);

  std::int64_t finished = 0;
  for (const auto& file : selected) {
    checkCancellation(stop);
    auto url = HuggingFaceDownloadEndpoints::modelScopeFileURL(baseURL_, repoId, file.path, "master");
    if (!url) throw OrvidModelDownloadError::invalidRepositoryID(repoId);
    fs::path target = staging / fs::path(file.path).relative_path();
    fs::create_directories(target.parent_path());
    downloadFile(*url, target, [&](std::int64_t bytes) {
      overall.completedUnitCount = finished + bytes;
      if (progress) progress(overall);
    }, stop);
    finished += std::int64_t(fs::file_size(target));
    overall.completedUnitCount = finished;
    if (progress) progress(overall);
  }
  fs::remove_all(destination);
  fs::rename(staging, destination);
}

}  // namespace orvid
