#include "orvid/platform/curl_orvid_http_client.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <curl/curl.h>

#include "orvid/platform/cancellation.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

using Clock = std::chrono::steady_clock;

// curl_global_init is not thread-safe in every build; it runs once, before the first handle.
void initialiseCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// The state of one transfer, reached from curl's callbacks on the calling thread.
struct Transfer {
  std::stop_token stop;
  OrvidHTTPResponse response;
  Clock::time_point lastActivity = Clock::now();
  curl_off_t uploaded = 0;
  curl_off_t downloaded = 0;
  std::array<char, CURL_ERROR_SIZE> errorText{};
  // For stream(): the handle, the receiver of a 2xx body, and what the receiver threw.
  CURL* handle = nullptr;
  const OrvidHTTPClient::BodyReceiver* receiver = nullptr;
  std::exception_ptr receiverError;
};

size_t receiveBody(char* data, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  size_t length = size * count;
  transfer->lastActivity = Clock::now();
  if (transfer->receiver != nullptr) {
    long status = 0;
    curl_easy_getinfo(transfer->handle, CURLINFO_RESPONSE_CODE, &status);
    if (status >= 200 && status < 300) {
      try {
        (*transfer->receiver)(std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(data), length));
      } catch (...) {
        transfer->receiverError = std::current_exception();
        return CURL_WRITEFUNC_ERROR;
      }
      return length;
    }
  }
  transfer->response.body.insert(transfer->response.body.end(), data, data + length);
  return length;
}

size_t receiveHeaderLine(char* data, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  size_t length = size * count;
  transfer->lastActivity = Clock::now();
  std::string_view line(data, length);
  auto& headers = transfer->response.headers;
  if (line.starts_with("HTTP/")) {
    // A new status line: an interim answer or a redirect came before; keep only the last block.
    headers.clear();
    return length;
  }
  if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
    // A folded continuation of the previous field.
    if (!headers.empty()) {
      auto continuation = internal::trimASCIIWhitespace(line);
      if (!continuation.empty()) {
        headers.back().value += ' ';
        headers.back().value += continuation;
      }
    }
    return length;
  }
  auto colon = line.find(':');
  if (colon == std::string_view::npos) return length;  // the blank line that ends the block
  headers.push_back({std::string(internal::trimASCIIWhitespace(line.substr(0, colon))), std::string(internal::trimASCIIWhitespace(line.substr(colon + 1)))});
  return length;
}

int reportProgress(void* user, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded) {
  auto* transfer = static_cast<Transfer*>(user);
  if (transfer->stop.stop_requested()) return 1;  // aborts with CURLE_ABORTED_BY_CALLBACK
  if (downloaded != transfer->downloaded || uploaded != transfer->uploaded) {
    transfer->downloaded = downloaded;
    transfer->uploaded = uploaded;
    transfer->lastActivity = Clock::now();
  }
  return 0;
}

OrvidHTTPError transportError(CURLcode code, const Transfer& transfer) {
  std::string detail = transfer.errorText[0] != '\0' ? std::string(transfer.errorText.data())
                                                      : std::string(curl_easy_strerror(code));
  switch (code) {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
      return OrvidHTTPError::badURL(detail);
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return OrvidHTTPError::cannotFindHost(detail);
    case CURLE_COULDNT_CONNECT:
      return OrvidHTTPError::cannotConnectToHost(detail);
    case CURLE_OPERATION_TIMEDOUT:
      return OrvidHTTPError::timedOut(detail);
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return OrvidHTTPError::networkConnectionLost(detail);
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return OrvidHTTPError::secureConnectionFailed(detail);
    default:
      return OrvidHTTPError::transportFailed(detail);
  }
}

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct HeaderListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

// A multi handle driving one easy handle; removes it again before cleaning up.
class SingleTransferMulti {
 public:
  explicit SingleTransferMulti(CURL* easy) : multi_(curl_multi_init()), easy_(easy) {
    if (multi_ == nullptr) throw OrvidHTTPError::transportFailed("curl_multi_init failed");
    CURLMcode code = curl_multi_add_handle(multi_, easy_);
    if (code != CURLM_OK) {
      curl_multi_cleanup(multi_);
      throw OrvidHTTPError::transportFailed(curl_multi_strerror(code));
    }
  }
  ~SingleTransferMulti() {
    curl_multi_remove_handle(multi_, easy_);
    curl_multi_cleanup(multi_);
  }
  SingleTransferMulti(const SingleTransferMulti&) = delete;
  SingleTransferMulti& operator=(const SingleTransferMulti&) = delete;

  CURLM* get() const { return multi_; }

 private:
  CURLM* multi_;
  CURL* easy_;
};

void check(CURLcode code, const char* what) {
  if (code != CURLE_OK) throw OrvidHTTPError::transportFailed(std::string(what) + ": " + curl_easy_strerror(code));
}

void checkMulti(CURLMcode code) {
  if (code != CURLM_OK) throw OrvidHTTPError::transportFailed(curl_multi_strerror(code));
}


// Header fields that never carry a credential. Any other field (Authorization,
// x-api-key, a provider's custom field, ...) may, so it never crosses to another origin.
bool isCredentialFree(std::string_view name) {
  for (std::string_view safe : {"Accept", "Accept-Encoding", "Accept-Language", "Cache-Control", "Content-Type",
                                "Content-Length", "Expect", "User-Agent"}) {
    if (httpHeaderNamesEqual(name, safe)) return true;
  }
  return false;
}

bool carriesCredentials(const OrvidHTTPRequest& request) {
  if (!request.url.userInfo().empty()) return true;
  return std::any_of(request.headers.begin(), request.headers.end(),
                     [](const OrvidHTTPHeader& header) { return !isCredentialFree(header.name); });
}

int effectivePort(const URL& url) { return url.port().value_or(url.scheme() == "https" ? 443 : 80); }

bool sameOrigin(const URL& a, const URL& b) {
  using internal::lowercaseASCII;
  return lowercaseASCII(a.scheme()) == lowercaseASCII(b.scheme()) && lowercaseASCII(a.host()) == lowercaseASCII(b.host()) &&
         effectivePort(a) == effectivePort(b);
}

std::string origin(const URL& url) {
  return internal::lowercaseASCII(url.scheme()) + "://" + url.host() + ":" + std::to_string(effectivePort(url));
}

constexpr int maximumRedirects = 16;

bool isFollowedRedirect(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// The request a redirect leads to: 303 (and 301/302 after a POST) become a GET without a
// body, as browsers do; 307 and 308 repeat the method and body. Throws for a target that
// is not http(s), and for one on another origin while the request carries credentials.
OrvidHTTPRequest redirected(const OrvidHTTPRequest& request, long status, const std::string& location) {
  auto target = URL::parse(location);
  if (!target || (target->scheme() != "http" && target->scheme() != "https")) {
    throw OrvidHTTPError::badURL("redirect to a URL that is not http or https");
  }
  if (!sameOrigin(request.url, *target) && carriesCredentials(request)) {
    throw OrvidHTTPError::redirectRefused("from " + origin(request.url) + " to " + origin(*target));
  }
  OrvidHTTPRequest next = request;
  next.url = *target;
  bool becomesGet = (status == 303 && request.method != "HEAD") ||
                    ((status == 301 || status == 302) && request.method == "POST");
  if (becomesGet) {
    next.method = "GET";
    next.body.reset();
    std::erase_if(next.headers, [](const OrvidHTTPHeader& header) {
      return httpHeaderNamesEqual(header.name, "Content-Type") || httpHeaderNamesEqual(header.name, "Content-Length");
    });
  }
  return next;
}

// One request on the wire: the answer, and where a redirect would lead.
struct Hop {
  OrvidHTTPResponse response;
  std::optional<std::string> location;
};

void setOptions(CURL* handle, const std::string& url, CURLSH* share, Transfer& transfer,
                std::chrono::milliseconds timeout) {
  check(curl_easy_setopt(handle, CURLOPT_URL, url.c_str()), "URL");
  check(curl_easy_setopt(handle, CURLOPT_SHARE, share), "share");
  check(curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, transfer.errorText.data()), "error buffer");
  check(curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L), "no signal");
  check(curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https"), "protocols");
  // Redirects are followed by hand, so that credentials never reach another origin.
  check(curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L), "redirects");
  check(curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, ""), "encodings");
  check(curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &receiveBody), "body callback");
  check(curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer), "body data");
  check(curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &receiveHeaderLine), "header callback");
  check(curl_easy_setopt(handle, CURLOPT_HEADERDATA, &transfer), "header data");
  check(curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L), "progress");
  check(curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &reportProgress), "progress callback");
  check(curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &transfer), "progress data");
  if (timeout.count() > 0) {
    check(curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeout.count())), "connect timeout");
  }
}

void setMethodAndBody(CURL* handle, const OrvidHTTPRequest& request) {
  static const char emptyBody[] = "";
  const char* bodyData = emptyBody;
  curl_off_t bodySize = 0;
  if (request.body && !request.body->empty()) {
    bodyData = reinterpret_cast<const char*>(request.body->data());
    bodySize = static_cast<curl_off_t>(request.body->size());
  }
  if (request.method == "POST") {
    check(curl_easy_setopt(handle, CURLOPT_POST, 1L), "method");
    check(curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, bodySize), "body size");
    check(curl_easy_setopt(handle, CURLOPT_POSTFIELDS, bodyData), "body");
  } else if (request.body) {
    check(curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, bodySize), "body size");
    check(curl_easy_setopt(handle, CURLOPT_POSTFIELDS, bodyData), "body");
    check(curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str()), "method");
  } else if (request.method == "GET") {
    check(curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L), "method");
  } else if (request.method == "HEAD") {
    check(curl_easy_setopt(handle, CURLOPT_NOBODY, 1L), "method");
  } else {
    check(curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str()), "method");
  }
}

// Header fields in curl's form ("Name;" for an empty value). Bodies are sent without
// waiting for "100 Continue" unless the caller asks for it.
std::unique_ptr<curl_slist, HeaderListDeleter> headerList(const OrvidHTTPRequest& request) {
  std::unique_ptr<curl_slist, HeaderListDeleter> list;
  auto append = [&](const std::string& line) {
    curl_slist* extended = curl_slist_append(list.get(), line.c_str());
    if (extended == nullptr) throw OrvidHTTPError::transportFailed("curl_slist_append failed");
    list.release();
    list.reset(extended);
  };
  for (const auto& header : request.headers) {
    append(header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
  }
  if (!request.headerValue("Expect")) append("Expect:");
  return list;
}

// Drives the handle until the transfer ends; returns curl's result for it. Throws
// CancellationError once `stop` is requested and timedOut once nothing has moved
// for `timeout`.
CURLcode run(CURL* handle, Transfer& transfer, std::chrono::milliseconds timeout, std::stop_token stop) {
  SingleTransferMulti multi(handle);
  // Declared after the multi handle so it is gone before the handle is cleaned up.
  std::stop_callback wake(stop, [&multi] { curl_multi_wakeup(multi.get()); });
  while (true) {
    int running = 0;
    checkMulti(curl_multi_perform(multi.get(), &running));
    checkCancellation(stop);
    if (running == 0) break;
    int waitMilliseconds = 1000;
    if (timeout.count() > 0) {
      auto now = Clock::now();
      auto deadline = transfer.lastActivity + timeout;
      if (now >= deadline) throw OrvidHTTPError::timedOut("no data for " + std::to_string(timeout.count()) + " ms");
      auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
      waitMilliseconds = static_cast<int>(std::clamp<long long>(left, 1, 1000));
    }
    checkMulti(curl_multi_poll(multi.get(), nullptr, 0, waitMilliseconds, nullptr));
  }
  CURLcode result = CURLE_OK;
  int queued = 0;
  while (CURLMsg* message = curl_multi_info_read(multi.get(), &queued)) {
    if (message->msg == CURLMSG_DONE && message->easy_handle == handle) result = message->data.result;
  }
  return result;
}

}  // namespace

// The connection cache, DNS cache and TLS sessions shared by every transfer of one client.
struct CurlOrvidHTTPClient::Impl {
  CURLSH* share = nullptr;
  std::array<std::mutex, CURL_LOCK_DATA_LAST> locks;

  static void lock(CURL*, curl_lock_data data, curl_lock_access, void* user) {
    static_cast<Impl*>(user)->locks[static_cast<size_t>(data)].lock();
  }
  static void unlock(CURL*, curl_lock_data data, void* user) {
    static_cast<Impl*>(user)->locks[static_cast<size_t>(data)].unlock();
  }

  // Sends `request` once, without following a redirect.
  Hop perform(const OrvidHTTPRequest& request, std::stop_token stop, const BodyReceiver* receiver) {
    checkCancellation(stop);
    const auto& scheme = request.url.scheme();
    if (scheme != "http" && scheme != "https") throw OrvidHTTPError::badURL("unsupported scheme \"" + scheme + "\"");
    if (request.method.empty()) throw OrvidHTTPError::badURL("empty method");

    // Declared before the handle, which writes into its error buffer until cleaned up.
    Transfer transfer;
    transfer.stop = stop;
    transfer.response.url = request.url;
    transfer.receiver = receiver;
    std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
    if (!easy) throw OrvidHTTPError::transportFailed("curl_easy_init failed");
    CURL* handle = easy.get();
    transfer.handle = handle;

    std::string url = request.url.absoluteString();
    setOptions(handle, url, share, transfer, request.timeout);
    setMethodAndBody(handle, request);
    auto headers = headerList(request);
    check(curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get()), "headers");

    CURLcode result = run(handle, transfer, request.timeout, stop);
    if (result == CURLE_ABORTED_BY_CALLBACK && stop.stop_requested()) throw CancellationError();
    if (transfer.receiverError) std::rethrow_exception(transfer.receiverError);
    if (result != CURLE_OK) throw transportError(result, transfer);

    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    transfer.response.statusCode = static_cast<int>(status);
    Hop hop{std::move(transfer.response), std::nullopt};
    char* location = nullptr;
    if (curl_easy_getinfo(handle, CURLINFO_REDIRECT_URL, &location) == CURLE_OK && location != nullptr) {
      hop.location = std::string(location);
    }
    return hop;
  }

  // Sends `request`, following redirects, with `receiver` (if any) taking a 2xx body.
  OrvidHTTPResponse follow(const OrvidHTTPRequest& request, std::stop_token stop, const BodyReceiver* receiver);
};

CurlOrvidHTTPClient::CurlOrvidHTTPClient() : impl_(std::make_unique<Impl>()) {
  initialiseCurlOnce();
  impl_->share = curl_share_init();
  if (impl_->share == nullptr) throw OrvidHTTPError::transportFailed("curl_share_init failed");
  curl_share_setopt(impl_->share, CURLSHOPT_LOCKFUNC, &Impl::lock);
  curl_share_setopt(impl_->share, CURLSHOPT_UNLOCKFUNC, &Impl::unlock);
  curl_share_setopt(impl_->share, CURLSHOPT_USERDATA, impl_.get());
  curl_share_setopt(impl_->share, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
  curl_share_setopt(impl_->share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
  curl_share_setopt(impl_->share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

CurlOrvidHTTPClient::~CurlOrvidHTTPClient() { curl_share_cleanup(impl_->share); }

OrvidHTTPResponse CurlOrvidHTTPClient::data(const OrvidHTTPRequest& request, std::stop_token stop) {
  return impl_->follow(request, stop, nullptr);
}

OrvidHTTPResponse CurlOrvidHTTPClient::stream(const OrvidHTTPRequest& request, const BodyReceiver& receiver,
                                              std::stop_token stop) {
  return impl_->follow(request, stop, &receiver);
}

OrvidHTTPResponse CurlOrvidHTTPClient::Impl::follow(const OrvidHTTPRequest& request, std::stop_token stop,
                                                    const BodyReceiver* receiver) {
  std::optional<OrvidHTTPRequest> followed;  // the request a redirect leads to; copied only then
  for (int redirects = 0;; ++redirects) {
    const OrvidHTTPRequest& hop = followed ? *followed : request;
    Hop result = perform(hop, stop, receiver);
    if (!isFollowedRedirect(result.response.statusCode) || !result.location) return std::move(result.response);
    if (redirects == maximumRedirects) {
      throw OrvidHTTPError::transportFailed("more than " + std::to_string(maximumRedirects) + " redirects");
    }
    followed = redirected(hop, result.response.statusCode, *result.location);
  }
}

}  // namespace orvid
