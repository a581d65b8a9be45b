#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/platform/url.h"
#include "orvid/transcription/local/models/mlx_model_download_support.h"

namespace orvid {

class OrvidHTTPClient;

// One entry of ModelScope's repository file list.
struct ModelScopeFile {
  std::string path;       // "Path"
  std::int64_t size = 0;  // "Size"
  std::string type;       // "Type": "blob" for files, "tree" for folders
  bool operator==(const ModelScopeFile&) const = default;
};

// The file list answer: {"Code": ..., "Success": ..., "Data": {"Files": [...]}}.
struct ModelScopeFileListEnvelope {
  int code = 0;
  bool success = false;
  std::optional<std::vector<ModelScopeFile>> files;
  bool operator==(const ModelScopeFileListEnvelope&) const = default;
};

// Reads a file list leniently: a missing or mistyped field takes its default, a
// mistyped file entry is skipped. Throws OrvidHTTPError::transportFailed when the
// text is not a JSON object.
ModelScopeFileListEnvelope parseModelScopeFileList(std::string_view body);

// Downloads a checkpoint folder from ModelScope file by file: each file resumes from
// its ".partial" file inside a staging folder next to the destination, which replaces
// the destination once every file has arrived.
class ModelScopeMLXModelDownloader final : public MLXModelDownloading {
 public:
  // `baseURL` is ModelScope's web root (another root serves tests).
  explicit ModelScopeMLXModelDownloader(OrvidHTTPClient& httpClient, std::optional<URL> baseURL = std::nullopt);

  void downloadModel(const LocalTranscriptionModelDescriptor& descriptor, const std::filesystem::path& destination,
                     const ModelDownloadProgressHandler& progress, std::stop_token stop = {}) override;

  // The repository's files to download, as (path, size), in listing order. Throws
  // OrvidModelDownloadError::httpStatus for an answer other than 200 and
  // invalidRepositoryID when ModelScope does not report success.
  std::vector<ModelScopeFile> fetchFileList(const std::string& repoId, std::stop_token stop = {}) const;

 private:
  OrvidHTTPClient& httpClient_;
  URL baseURL_;
};

}  // namespace orvid
