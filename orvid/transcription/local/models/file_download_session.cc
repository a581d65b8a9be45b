#include "orvid/transcription/local/models/file_download_session.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>
#include <string_view>
#include <system_error>
#include <vector>

#include <curl/curl.h>
#include <openssl/evp.h>

#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"
#include "orvid/transcription/local/models/orvid_model_download_error.h"

namespace orvid {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;
using Seconds = std::chrono::duration<double>;

constexpr Seconds speedSampleInterval{0.5};
constexpr Seconds progressReportInterval{0.2};
// libcurl's receive buffer. Each chunk goes straight to the file, unbuffered: a chunk of
// this size is still in the cache when it is written, where a second copy through a
// large stdio buffer is not.
constexpr long kReceiveBufferBytes = 128 * 1024;

void initialiseCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::filesystem::filesystem_error fileError(const std::string& what, const std::filesystem::path& file, int code) {
  return std::filesystem::filesystem_error(what, file, std::error_code(code, std::generic_category()));
}

OrvidHTTPError transportError(CURLcode code, const char* errorText) {
  std::string detail = errorText[0] != '\0' ? std::string(errorText) : std::string(curl_easy_strerror(code));
  switch (code) {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT: return OrvidHTTPError::badURL(detail);
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return OrvidHTTPError::cannotFindHost(detail);
    case CURLE_COULDNT_CONNECT: return OrvidHTTPError::cannotConnectToHost(detail);
    case CURLE_OPERATION_TIMEDOUT: return OrvidHTTPError::timedOut(detail);
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM: return OrvidHTTPError::networkConnectionLost(detail);
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR: return OrvidHTTPError::secureConnectionFailed(detail);
    default: return OrvidHTTPError::transportFailed(detail);
  }
}

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct HeaderListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

void check(CURLcode code, const char* what) {
  if (code != CURLE_OK) throw OrvidHTTPError::transportFailed(std::string(what) + ": " + curl_easy_strerror(code));
}

}  // namespace

std::string sha256HexOfFile(const std::filesystem::path& file) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> input(std::fopen(file.c_str(), "rb"), &std::fclose);
  if (!input) throw fileError("cannot read", file, errno);
  std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is not available");
  }
  std::vector<unsigned char> buffer(1 << 20);
  while (std::size_t count = std::fread(buffer.data(), 1, buffer.size(), input.get())) {
    EVP_DigestUpdate(context.get(), buffer.data(), count);
  }
  if (std::ferror(input.get())) throw fileError("cannot read", file, EIO);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  EVP_DigestFinal_ex(context.get(), digest.data(), &length);
  static constexpr char hex[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    text += hex[digest[i] >> 4];
    text += hex[digest[i] & 0xf];
  }
  return text;
}

struct FileDownloadSession::Impl {
  std::filesystem::path file;
  std::FILE* handle = nullptr;
  ProgressHandler progressHandler;
  FileDownloadOptions options;
  Clock clock;

  mutable std::mutex mutex;  // guards the three figures readers may ask for
  std::int64_t totalBytesDownloaded = 0;
  std::int64_t expectedContentLength = 0;
  double currentSpeed = 0;

  std::int64_t startOffset = 0;
  std::int64_t bytesSinceLastSample = 0;
  TimePoint lastSampleTime;
  TimePoint lastProgressReportTime = TimePoint::min();

  // The running transfer, touched only by curl's callbacks on the calling thread.
  CURL* easy = nullptr;
  std::stop_token stop;
  bool responseHandled = false;
  long status = 0;
  std::vector<OrvidHTTPHeader> headers;
  std::optional<OrvidModelDownloadError> statusError;
  std::exception_ptr writeError;
  // The stall watchdog, on the real clock: when a byte last arrived, and whether it fired.
  std::chrono::steady_clock::time_point lastByteTime;
  curl_off_t lastDownloaded = 0;
  bool stalled = false;
  std::int64_t reportedBytes = -1;
  std::array<char, CURL_ERROR_SIZE> errorText{};

  void closeFile() {
    if (handle != nullptr) std::fclose(handle);
    handle = nullptr;
  }

  void report(bool forced) {
    auto now = clock();
    if (!forced && lastProgressReportTime != TimePoint::min() &&
        Seconds(now - lastProgressReportTime) < progressReportInterval) {
      return;
    }
    lastProgressReportTime = now;
    std::int64_t received, expected;
    double speed;
    {
      std::lock_guard lock(mutex);
      received = totalBytesDownloaded;
      expected = expectedContentLength;
      speed = currentSpeed;
    }
    reportedBytes = received;
    if (progressHandler) progressHandler(received, expected, speed);
  }

  // Delivers the bytes a throttled report held back once the transfer goes quiet, so
  // that a stalled download shows what it really has.
  void reportHeldBack() {
    std::int64_t received;
    {
      std::lock_guard lock(mutex);
      received = totalBytesDownloaded;
    }
    if (responseHandled && received != reportedBytes) report(false);
  }

  // The final response's status and length decide whether the file is continued or
  // started over; error statuses end the transfer without reading the body.
  void handleResponse() {
    responseHandled = true;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    if (status != 200 && status != 206) {
      statusError = OrvidModelDownloadError::httpStatus(int(status));
      return;
    }
    curl_off_t length = -1;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    std::int64_t expected = length >= 1 ? std::int64_t(length) : 0;
    {
      std::lock_guard lock(mutex);
      if (status == 206 && startOffset != 0) {
        expectedContentLength = startOffset + expected;
      } else {
        expectedContentLength = expected;
        totalBytesDownloaded = 0;
        startOffset = 0;
      }
    }
    if (startOffset == 0) {
      // The server sent the whole file: start it over. Appending writes follow the new end.
      std::fflush(handle);
      std::error_code ignored;
      std::filesystem::resize_file(file, 0, ignored);
    }
    lastProgressReportTime = clock();
    if (progressHandler) progressHandler(totalBytesDownloaded, expectedContentLength, currentSpeed);
  }

  std::size_t receive(const char* data, std::size_t length) {
    if (!responseHandled) handleResponse();
    if (statusError) return 0;
    if (std::fwrite(data, 1, length, handle) != length) {
      writeError = std::make_exception_ptr(fileError("cannot write", file, errno));
      return 0;
    }
    auto now = clock();
    {
      std::lock_guard lock(mutex);
      totalBytesDownloaded += std::int64_t(length);
      bytesSinceLastSample += std::int64_t(length);
      Seconds elapsed = now - lastSampleTime;
      if (elapsed >= speedSampleInterval) {
        currentSpeed = double(bytesSinceLastSample) / elapsed.count();
        bytesSinceLastSample = 0;
        lastSampleTime = now;
      }
    }
    report(false);
    return length;
  }

  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
    return static_cast<Impl*>(user)->receive(data, size * count);
  }

  static std::size_t onHeaderLine(char* data, std::size_t size, std::size_t count, void* user) {
    auto* self = static_cast<Impl*>(user);
    self->lastByteTime = std::chrono::steady_clock::now();
    std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
      self->headers.clear();  // a redirect or interim answer came before; keep the last block
    } else if (auto colon = line.find(':'); colon != std::string_view::npos) {
      self->headers.push_back({std::string(internal::trimASCIIWhitespace(line.substr(0, colon))),
                               std::string(internal::trimASCIIWhitespace(line.substr(colon + 1)))});
    }
    return size * count;
  }

  // Called on every chunk and about once a second while idle; a non-zero answer aborts.
  static int onTransferInfo(void* user, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t) {
    auto* self = static_cast<Impl*>(user);
    if (self->stop.stop_requested()) return 1;
    auto now = std::chrono::steady_clock::now();
    if (downloaded != self->lastDownloaded) {
      self->lastDownloaded = downloaded;
      self->lastByteTime = now;
    } else if (self->options.stallTimeout && now - self->lastByteTime >= *self->options.stallTimeout) {
      self->stalled = true;
      return 1;
    } else {
      self->reportHeldBack();
    }
    return 0;
  }
};

FileDownloadSession::FileDownloadSession(std::filesystem::path file, std::int64_t startOffset,
                                         ProgressHandler progressHandler, FileDownloadOptions options, Clock clock)
    : impl_(std::make_unique<Impl>()) {
  impl_->file = std::move(file);
  impl_->progressHandler = std::move(progressHandler);
  impl_->options = std::move(options);
  impl_->clock = clock ? std::move(clock) : Clock([] { return std::chrono::steady_clock::now(); });
  impl_->handle = std::fopen(impl_->file.c_str(), "ab");
  if (impl_->handle == nullptr) throw fileError("cannot open for writing", impl_->file, errno);
  std::setvbuf(impl_->handle, nullptr, _IONBF, 0);
  impl_->startOffset = startOffset;
  impl_->totalBytesDownloaded = startOffset;
  impl_->lastSampleTime = impl_->clock();
}

FileDownloadSession::~FileDownloadSession() { impl_->closeFile(); }

std::int64_t FileDownloadSession::totalBytesDownloaded() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->totalBytesDownloaded;
}

std::int64_t FileDownloadSession::expectedContentLength() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->expectedContentLength;
}

double FileDownloadSession::currentSpeed() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->currentSpeed;
}

OrvidHTTPResponse FileDownloadSession::start(const OrvidHTTPRequest& request, std::stop_token stop) {
  Impl& self = *impl_;
  if (self.handle == nullptr) throw fileError("the download session was already used", self.file, EBADF);
  checkCancellation(stop);
  initialiseCurlOnce();
  std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
  if (!easy) throw OrvidHTTPError::transportFailed("curl_easy_init failed");
  CURL* handle = easy.get();
  self.easy = handle;
  self.stop = stop;

  std::string url = request.url.absoluteString();
  check(curl_easy_setopt(handle, CURLOPT_URL, url.c_str()), "URL");
  check(curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, self.errorText.data()), "error buffer");
  check(curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L), "no signal");
  check(curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https"), "protocols");
  check(curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https"), "redirect protocols");
  check(curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L), "redirects");
  check(curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 16L), "redirect limit");
  check(curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method == "GET" ? nullptr : request.method.c_str()),
        "method");
  // Larger reads than libcurl's 16 KiB: a model is hundreds of megabytes.
  check(curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, kReceiveBufferBytes), "buffer size");
  check(curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Impl::onBody), "body callback");
  check(curl_easy_setopt(handle, CURLOPT_WRITEDATA, &self), "body data");
  check(curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &Impl::onHeaderLine), "header callback");
  check(curl_easy_setopt(handle, CURLOPT_HEADERDATA, &self), "header data");
  check(curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L), "progress");
  check(curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &Impl::onTransferInfo), "progress callback");
  check(curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &self), "progress data");
  // The request's timeout bounds connecting and idling (libcurl's low-speed check, which
  // averages over a few seconds); the stall watchdog counts exactly from the last byte.
  if (request.timeout.count() > 0) {
    long idleSeconds = std::max<long>(1, long((request.timeout.count() + 999) / 1000));
    check(curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L), "low speed limit");
    check(curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, idleSeconds), "low speed time");
    check(curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, long(request.timeout.count())), "connect timeout");
  }
  self.lastByteTime = std::chrono::steady_clock::now();
  std::vector<OrvidHTTPHeader> headers = request.headers;
  if (self.startOffset >= 1 && !request.headerValue("Range")) {
    headers.push_back({"Range", "bytes=" + std::to_string(self.startOffset) + "-"});
  }
  std::unique_ptr<curl_slist, HeaderListDeleter> headerList;
  for (const auto& header : headers) {
    std::string line = header.value.empty() ? header.name + ";" : header.name + ": " + header.value;
    curl_slist* extended = curl_slist_append(headerList.get(), line.c_str());
    if (extended == nullptr) throw OrvidHTTPError::transportFailed("curl_slist_append failed");
    headerList.release();
    headerList.reset(extended);
  }
  check(curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headerList.get()), "headers");

  CURLcode result = curl_easy_perform(handle);
  if (!self.responseHandled && !self.statusError) {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    if (status != 0) self.handleResponse();
  }
  self.report(true);
  self.closeFile();

  if (self.statusError) throw *self.statusError;
  if (self.writeError) std::rethrow_exception(self.writeError);
  if (result == CURLE_ABORTED_BY_CALLBACK && stop.stop_requested()) throw CancellationError();
  if (result == CURLE_ABORTED_BY_CALLBACK && self.stalled) {
    throw OrvidModelDownloadError::stalled(self.options.stallTimeout->count());
  }
  if (result != CURLE_OK) throw transportError(result, self.errorText.data());
  if (!self.responseHandled) throw OrvidHTTPError::transportFailed("the transfer ended without a response");

  if (self.options.expectedSHA256) {
    auto actual = sha256HexOfFile(self.file);
    if (actual != internal::lowercaseASCII(*self.options.expectedSHA256)) {
      std::error_code ignored;
      std::filesystem::remove(self.file, ignored);
      throw OrvidModelDownloadError::checksumMismatch(actual);
    }
  }

  OrvidHTTPResponse response;
  char* effectiveURL = nullptr;
  curl_easy_getinfo(handle, CURLINFO_EFFECTIVE_URL, &effectiveURL);
  response.url = (effectiveURL != nullptr ? URL::parse(effectiveURL) : std::nullopt).value_or(request.url);
  response.statusCode = int(self.status);
  response.headers = std::move(self.headers);
  return response;
}

}  // namespace orvid
