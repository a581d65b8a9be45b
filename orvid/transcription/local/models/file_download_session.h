#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "orvid/platform/orvid_http_client.h"

namespace orvid {

// Options beyond the plain resumable transfer.
struct FileDownloadOptions {
  // Ends the attempt with OrvidModelDownloadError::stalled when no byte arrives for
  // this long (checked about once a second). The file keeps what arrived, for a resume.
  // The request's own timeout still applies and ends it with OrvidHTTPError::timedOut.
  std::optional<std::chrono::seconds> stallTimeout;
  // Lower-case hex SHA-256 the complete file must have. On a mismatch the file is
  // deleted and OrvidModelDownloadError::checksumMismatch is thrown.
  std::optional<std::string> expectedSHA256;
};

// One resumable transfer of a URL into a file, streamed to disk as it arrives.
// Serves one request; make a new session for a retry.
class FileDownloadSession {
 public:
  // (bytes in the file so far, expected total bytes or 0 when unknown, bytes per second).
  // Called on the transferring thread; must not block.
  using ProgressHandler = std::function<void(std::int64_t received, std::int64_t expected, double bytesPerSecond)>;
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  // Creates `file` empty when it does not exist and opens it for appending.
  // `startOffset` is how many bytes of it the request's Range header skips.
  // Throws std::filesystem::filesystem_error when the file cannot be opened.
  FileDownloadSession(std::filesystem::path file, std::int64_t startOffset, ProgressHandler progressHandler,
                      FileDownloadOptions options = {}, Clock clock = {});
  ~FileDownloadSession();
  FileDownloadSession(const FileDownloadSession&) = delete;
  FileDownloadSession& operator=(const FileDownloadSession&) = delete;

  // Runs `request` (redirects followed) and blocks until it ends. A request without a
  // Range header asks for "bytes=<startOffset>-" when `startOffset` is at least 1. A 206 answer to a
  // request from a non-zero offset appends; a 200 answer truncates the file and starts
  // over from byte 0. Returns the final response without its body. Throws
  // OrvidModelDownloadError::httpStatus for any status but 200 and 206 (the server's
  // body is never read into the error), OrvidModelDownloadError::stalled and
  // checksumMismatch (see FileDownloadOptions), OrvidHTTPError for transport failures,
  // std::filesystem::filesystem_error when the file cannot be written, and
  // CancellationError once `stop` is requested. The file keeps what arrived in every
  // case but a checksum mismatch.
  OrvidHTTPResponse start(const OrvidHTTPRequest& request, std::stop_token stop = {});

  // Progress as last reported.
  std::int64_t totalBytesDownloaded() const;
  std::int64_t expectedContentLength() const;
  double currentSpeed() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvid

namespace orvid {

// The lower-case hex SHA-256 of the file's contents. Throws
// std::filesystem::filesystem_error when it cannot be read.
std::string sha256HexOfFile(const std::filesystem::path& file);

}  // namespace orvid
