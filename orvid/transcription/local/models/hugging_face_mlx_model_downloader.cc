#include "orvid/transcription/local/models/hugging_face_mlx_model_downloader.h"

#include <cstdlib>
#include <exception>
#include <fstream>
#include <system_error>

#include <nlohmann/json.hpp>

#include "orvid/platform/cancellation.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/transcription/local/models/hugging_face_download_endpoints.h"
#include "orvid/transcription/local/models/model_scope_mlx_model_downloader.h"
#include "orvid/transcription/local/models/orvid_model_download_error.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;

struct HubFile {
  std::string path;
  std::int64_t size = 0;
};

std::string baseText(const URL& url) {
  std::string text = url.absoluteString();
  while (!text.empty() && text.back() == '/') text.pop_back();
  return text;
}

OrvidHTTPRequest hubRequest(const std::string& url, const std::optional<std::string>& token) {
  auto parsed = URL::parse(url);
  if (!parsed) throw OrvidHTTPError::badURL(url);
  OrvidHTTPRequest request;
  request.url = *parsed;
  if (token) request.setHeader("Authorization", "Bearer " + *token);
  return request;
}

// The repository's files from the hub's tree listing; entries that are not files,
// or whose fields are missing, are skipped.
std::vector<HubFile> listRepository(OrvidHTTPClient& client, const std::string& base, const std::string& repoId,
                                    const std::optional<std::string>& token, std::stop_token stop) {
  auto response = client.data(hubRequest(base + "/api/models/" + repoId + "/tree/main?recursive=true", token), stop);
  if (response.statusCode != 200) throw OrvidModelDownloadError::httpStatus(response.statusCode);
  auto json = nlohmann::json::parse(response.body.begin(), response.body.end(), nullptr, false);
  if (!json.is_array()) throw OrvidHTTPError::transportFailed("the hub's file list is not a JSON array");
  std::vector<HubFile> files;
  for (const auto& entry : json) {
    if (!entry.is_object() || entry.value("type", "") != "file") continue;
    auto path = entry.find("path");
    if (path == entry.end() || !path->is_string() || path->get<std::string>().empty()) continue;
    auto size = entry.find("size");
    files.push_back({path->get<std::string>(), size != entry.end() && size->is_number_integer() ? size->get<std::int64_t>() : 0});
  }
  return files;
}

bool isCancellation(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const CancellationError&) {
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

HuggingFaceMLXModelDownloader::HuggingFaceMLXModelDownloader(const UserDefaults& defaults, OrvidHTTPClient& httpClient,
                                                             std::optional<std::string> bundledToken,
                                                             std::optional<URL> modelScopeBaseURL)
    : defaults_(defaults),
      httpClient_(httpClient),
      bundledToken_(std::move(bundledToken)),
      modelScopeBaseURL_(std::move(modelScopeBaseURL)) {}

std::optional<std::string> HuggingFaceMLXModelDownloader::bearerToken() const {
  if (const char* token = std::getenv("HF_TOKEN"); token != nullptr && *token != '\0') return std::string(token);
  if (bundledToken_ && !bundledToken_->empty()) return bundledToken_;
  return std::nullopt;
}

void HuggingFaceMLXModelDownloader::downloadModel(const LocalTranscriptionModelDescriptor& descriptor,
                                                  const fs::path& destination,
                                                  const ModelDownloadProgressHandler& progress, std::stop_token stop) {
  std::exception_ptr lastFailure;
  for (auto source : HuggingFaceDownloadEndpoints::downloadSources(defaults_)) {
    checkCancellation(stop);
    try {
      if (source == ModelDownloadSource::modelScope) {
        ModelScopeMLXModelDownloader(httpClient_, modelScopeBaseURL_).downloadModel(descriptor, destination, progress, stop);
      } else {
        downloadFromHuggingFace(descriptor, destination, HuggingFaceDownloadEndpoints::hubBaseURL(source), progress, stop);
      }
      return;
    } catch (...) {
      lastFailure = std::current_exception();
      if (isCancellation(lastFailure) || stop.stop_requested()) throw CancellationError();
    }
  }
  if (lastFailure) std::rethrow_exception(lastFailure);
}

void HuggingFaceMLXModelDownloader::downloadFromHuggingFace(const LocalTranscriptionModelDescriptor& descriptor,
                                                            const fs::path& destination, const URL& hubBaseURL,
                                                            const ModelDownloadProgressHandler& progress,
                                                            std::stop_token stop) {
  if (!descriptor.repositoryID) throw OrvidModelDownloadError::missingRepositoryID(descriptor.id);
  const std::string& repoId = *descriptor.repositoryID;
  if (!MLXModelDownloadSupport::isValidRepositoryID(repoId)) throw OrvidModelDownloadError::invalidRepositoryID(repoId);

  fs::path cache = destination.parent_path() / ".huggingface";
  struct CacheRemoval {
    fs::path folder;
    ~CacheRemoval() {
      std::error_code ignored;
      fs::remove_all(folder, ignored);
    }
  } cacheRemoval{cache};

  auto token = bearerToken();
  std::string base = baseText(HuggingFaceDownloadEndpoints::applyingHubEndpointOverride(hubBaseURL));
  std::vector<HubFile> selected;
  bool hasWeights = false;
  for (auto& file : listRepository(httpClient_, base, repoId, token, stop)) {
    if (!MLXModelDownloadSupport::isCheckpointFile(file.path, descriptor.engineType) ||
        !MLXModelDownloadSupport::isContainedRelativePath(file.path)) {
      continue;
    }
    hasWeights = hasWeights || fs::path(file.path).extension() == ".safetensors";
    selected.push_back(std::move(file));
  }
  if (!hasWeights) throw OrvidModelDownloadError::invalidRepositoryID(repoId);

  ModelDownloadProgress overall;
  for (const auto& file : selected) overall.totalUnitCount += file.size;
  if (overall.totalUnitCount < 1) overall.totalUnitCount = MLXModelDownloadSupport::expectedTotalBytes(descriptor);
  fs::path folder = cache / "models" / repoId;
  for (const auto& file : selected) {
    checkCancellation(stop);
    auto response = httpClient_.data(
        hubRequest(base + "/" + repoId + "/resolve/main/" + percentEncode(file.path, URLCharacterSet::pathAllowed), token),
        stop);
    if (response.statusCode != 200) throw OrvidModelDownloadError::httpStatus(response.statusCode);
    fs::path target = folder / file.path;
    fs::create_directories(target.parent_path());
    std::ofstream output(target, std::ios::binary | std::ios::trunc);
    output.write(reinterpret_cast<const char*>(response.body.data()), std::streamsize(response.body.size()));
    output.close();
    if (!output) throw fs::filesystem_error("cannot write", target, std::make_error_code(std::errc::io_error));
    overall.completedUnitCount += std::int64_t(response.body.size());
    if (progress) progress(overall);
  }
  fs::create_directories(destination.parent_path());
  fs::remove_all(destination);
  fs::rename(folder, destination);
}

}  // namespace orvid
