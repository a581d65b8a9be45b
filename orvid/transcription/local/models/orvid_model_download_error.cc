#include "orvid/transcription/local/models/orvid_model_download_error.h"

#include <utility>

namespace orvid {

OrvidModelDownloadError::OrvidModelDownloadError(Case errorCase, std::string payload, std::int64_t number,
                                                 std::string message)
    : case_(errorCase), payload_(std::move(payload)), number_(number), message_(std::move(message)) {}

OrvidModelDownloadError OrvidModelDownloadError::unknownModel(std::string modelID) {
  std::string message = "No model is known as \"" + modelID + "\".";
  return {Case::unknownModel, std::move(modelID), 0, std::move(message)};
}

OrvidModelDownloadError OrvidModelDownloadError::missingDownloadURL(std::string modelID) {
  std::string message = "The model \"" + modelID + "\" has no download URL.";
  return {Case::missingDownloadURL, std::move(modelID), 0, std::move(message)};
}

OrvidModelDownloadError OrvidModelDownloadError::missingRepositoryID(std::string modelID) {
  std::string message = "The model \"" + modelID + "\" has no repository to download from.";
  return {Case::missingRepositoryID, std::move(modelID), 0, std::move(message)};
}

OrvidModelDownloadError OrvidModelDownloadError::invalidRepositoryID(std::string repositoryID) {
  std::string message = "\"" + repositoryID + "\" is not a valid model repository.";
  return {Case::invalidRepositoryID, std::move(repositoryID), 0, std::move(message)};
}

OrvidModelDownloadError OrvidModelDownloadError::archiveExtractionFailed(std::string errorOutput) {
  std::string message = errorOutput.empty() ? "The model archive could not be unpacked."
                                            : "The model archive could not be unpacked: " + errorOutput;
  return {Case::archiveExtractionFailed, std::move(errorOutput), 0, std::move(message)};
}

OrvidModelDownloadError OrvidModelDownloadError::httpStatus(int status) {
  return {Case::httpStatus, "", status, "The download server answered with HTTP status " + std::to_string(status) + "."};
}

OrvidModelDownloadError OrvidModelDownloadError::stalled(std::int64_t seconds) {
  return {Case::stalled, "", seconds,
          "The download stalled: no data arrived for " + std::to_string(seconds) +
              " seconds. The part already downloaded is kept; try again to resume."};
}

OrvidModelDownloadError OrvidModelDownloadError::checksumMismatch(std::string actualSHA256) {
  std::string message = "The downloaded file does not match its expected SHA-256 checksum (it has " + actualSHA256 +
                        "); it was discarded.";
  return {Case::checksumMismatch, std::move(actualSHA256), 0, std::move(message)};
}

}  // namespace orvid
