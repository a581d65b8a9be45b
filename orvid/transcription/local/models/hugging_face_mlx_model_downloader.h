#pragma once

#include <optional>
#include <string>

#include "orvid/platform/url.h"
#include "orvid/transcription/local/models/mlx_model_download_support.h"

namespace orvid {

class OrvidHTTPClient;
class UserDefaults;

// Downloads a checkpoint folder from the sources the settings choose, in order
// (ModelScope, then the mirror, then the hub when ModelScope is chosen): a network or
// server failure moves on to the next source, cancellation never does, and the last
// failure is thrown. Hub and mirror downloads go through the hub's file API
// ("/api/models/<repo>/tree/main", "/<repo>/resolve/main/<file>") on `httpClient`;
// when HF_ENDPOINT is set they go to that root instead.
class HuggingFaceMLXModelDownloader final : public MLXModelDownloading {
 public:
  // `bundledToken` stands in for a token shipped with the host, used when HF_TOKEN is
  // unset or empty. `modelScopeBaseURL` overrides ModelScope's root (tests).
  HuggingFaceMLXModelDownloader(const UserDefaults& defaults, OrvidHTTPClient& httpClient,
                                std::optional<std::string> bundledToken = std::nullopt,
                                std::optional<URL> modelScopeBaseURL = std::nullopt);

  void downloadModel(const LocalTranscriptionModelDescriptor& descriptor, const std::filesystem::path& destination,
                     const ModelDownloadProgressHandler& progress, std::stop_token stop = {}) override;

  // One attempt against the hub at `hubBaseURL` (HF_ENDPOINT replaces its origin when
  // set). Files are staged in ".huggingface" next to the destination, which is removed
  // afterwards in every case. Throws OrvidModelDownloadError::missingRepositoryID,
  // invalidRepositoryID, httpStatus, OrvidHTTPError, filesystem errors or CancellationError.
  void downloadFromHuggingFace(const LocalTranscriptionModelDescriptor& descriptor,
                               const std::filesystem::path& destination, const URL& hubBaseURL,
                               const ModelDownloadProgressHandler& progress, std::stop_token stop = {});

  // HF_TOKEN when set and non-empty, else the bundled token when non-empty.
  std::optional<std::string> bearerToken() const;

 private:
  const UserDefaults& defaults_;
  OrvidHTTPClient& httpClient_;
  std::optional<std::string> bundledToken_;
  std::optional<URL> modelScopeBaseURL_;
};

}  // namespace orvid
