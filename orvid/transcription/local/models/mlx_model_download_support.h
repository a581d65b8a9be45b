#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/core/corelib/local_transcription_model.h"

namespace orvid {

// How far a download of a whole checkpoint folder has come, in bytes when the
// sizes are known.
struct ModelDownloadProgress {
  std::int64_t totalUnitCount = 0;
  std::int64_t completedUnitCount = 0;
  // completed / total in 0...1; 0 when the total is unknown.
  double fractionCompleted() const;
  bool operator==(const ModelDownloadProgress&) const = default;
};

// Receives progress from any thread; must not block.
using ModelDownloadProgressHandler = std::function<void(const ModelDownloadProgress&)>;

// Downloads a checkpoint-folder model (safetensors weights with their configuration)
// into a folder.
class MLXModelDownloading {
 public:
  virtual ~MLXModelDownloading() = default;
  // Downloads the model of `descriptor` so that `destination` holds its files,
  // replacing anything there. Throws OrvidModelDownloadError, OrvidHTTPError,
  // std::filesystem::filesystem_error, or CancellationError once `stop` is requested.
  virtual void downloadModel(const LocalTranscriptionModelDescriptor& descriptor,
                             const std::filesystem::path& destination, const ModelDownloadProgressHandler& progress,
                             std::stop_token stop = {}) = 0;
};

namespace MLXModelDownloadSupport {

// The file patterns an engine family needs beyond the weights and JSON files:
// "*.mvn", "*.model", "tokenizer*" for mlxSenseVoice, "*.model" for mlxCohere.
std::vector<std::string> extraFilePatterns(LocalTranscriptionEngineType type);

// True when `pattern` ("*" matching any run of characters, everything else literal,
// case-sensitive) matches the whole of `name`.
bool matchesGlob(std::string_view name, std::string_view pattern);

// Whether a file of a repository listing belongs in the checkpoint folder: not a
// hidden file (last component starting with "."), and either its last component
// matches one of the engine's extra patterns or its lower-cased extension is
// "safetensors", "json", "txt" or "wav".
bool isCheckpointFile(std::string_view path, LocalTranscriptionEngineType type);

// True for a relative path without "." or ".." components, which stays inside the
// folder it is joined to.
bool isContainedRelativePath(std::string_view path);

// A checkpoint folder is complete when it holds "config.json" and a non-empty
// ".safetensors" file, plus "am.mvn" for mlxSenseVoice and a ".model" file for
// mlxCohere. A folder that cannot be listed is not complete.
bool isModelInstalled(const LocalTranscriptionModelDescriptor& descriptor, const std::filesystem::path& folder);

// True for "owner/name" with both parts non-empty and made of letters, digits,
// "-", "_" and ".", neither part being "." or "..".
bool isValidRepositoryID(std::string_view repositoryID);

// The descriptor's download size: exact bytes when known, else megabytes x 1,000,000.
std::int64_t expectedTotalBytes(const LocalTranscriptionModelDescriptor& descriptor);

}  // namespace MLXModelDownloadSupport

}  // namespace orvid
