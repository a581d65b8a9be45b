#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace orvid {

// A model download that failed for a reason of its own (transport failures are
// OrvidHTTPError, cancellation is CancellationError, file-system failures are
// std::filesystem::filesystem_error). Messages never quote a server's answer.
class OrvidModelDownloadError : public std::exception {
 public:
  enum class Case {
    unknownModel,             // payload: the model identifier
    missingDownloadURL,       // payload: the model identifier
    missingRepositoryID,      // payload: the model identifier
    invalidRepositoryID,      // payload: the repository identifier
    archiveExtractionFailed,  // payload: the unpacker's (redacted) error output
    httpStatus,               // status: the server's status code
    stalled,                  // seconds: how long no byte arrived
    checksumMismatch,         // payload: the SHA-256 the file actually has
  };
  static OrvidModelDownloadError unknownModel(std::string modelID);
  static OrvidModelDownloadError missingDownloadURL(std::string modelID);
  static OrvidModelDownloadError missingRepositoryID(std::string modelID);
  static OrvidModelDownloadError invalidRepositoryID(std::string repositoryID);
  static OrvidModelDownloadError archiveExtractionFailed(std::string errorOutput);
  static OrvidModelDownloadError httpStatus(int status);
  static OrvidModelDownloadError stalled(std::int64_t seconds);
  static OrvidModelDownloadError checksumMismatch(std::string actualSHA256);

  Case errorCase() const { return case_; }
  const std::string& payload() const { return payload_; }
  // The status code of httpStatus, the seconds of stalled; 0 otherwise.
  std::int64_t number() const { return number_; }
  const char* what() const noexcept override { return message_.c_str(); }
  bool operator==(const OrvidModelDownloadError& other) const {
    return case_ == other.case_ && payload_ == other.payload_ && number_ == other.number_;
  }

 private:
  OrvidModelDownloadError(Case errorCase, std::string payload, std::int64_t number, std::string message);
  Case case_;
  std::string payload_;
  std::int64_t number_;
  std::string message_;
};

}  // namespace orvid
