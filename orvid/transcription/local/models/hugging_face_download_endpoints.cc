#include "orvid/transcription/local/models/hugging_face_download_endpoints.h"

#include <cstdlib>

#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/platform/user_defaults.h"

namespace orvid::HuggingFaceDownloadEndpoints {
namespace {

using Key = OrvidSettingsPersistence::Key;

URL constant(const char* text) { return *URL::parse(text); }

std::string originText(const std::string& scheme, const std::string& userInfo, const std::string& host,
                       std::optional<int> port) {
  std::string text = scheme + "://";
  if (!userInfo.empty()) text += userInfo + "@";
  text += host;
  if (port) text += ":" + std::to_string(*port);
  return text;
}

// `url` moved to another origin; unchanged when the result does not parse.
URL movingOrigin(const URL& url, const std::string& scheme, const std::string& host, std::optional<int> port) {
  std::string text = originText(scheme, url.userInfo(), host, port) + url.path();
  if (url.query()) text += "?" + *url.query();
  if (url.fragment()) text += "#" + *url.fragment();
  return URL::parse(text).value_or(url);
}

std::string baseText(const URL& base) {
  std::string text = base.absoluteString();
  while (!text.empty() && text.back() == '/') text.pop_back();
  return text;
}

}  // namespace

const URL& defaultHubBaseURL() {
  static const URL url = constant("https://huggingface.co");
  return url;
}

const URL& mirrorHubBaseURL() {
  static const URL url = constant("https://hf-mirror.com");
  return url;
}

const URL& modelScopeBaseURL() {
  static const URL url = constant("https://www.modelscope.cn");
  return url;
}

ModelDownloadSource resolvedDownloadSource(const UserDefaults& defaults) {
  if (auto text = defaults.string(Key::modelDownloadSource)) {
    if (auto source = modelDownloadSource(*text)) return *source;
  }
  return defaults.boolean(Key::useHfMirror).value_or(false) ? ModelDownloadSource::huggingFaceMirror
                                                             : ModelDownloadSource::huggingFace;
}

bool useMirrorEnabled(const UserDefaults& defaults) {
  return resolvedDownloadSource(defaults) == ModelDownloadSource::huggingFaceMirror;
}

bool isModelScope(const UserDefaults& defaults) {
  return resolvedDownloadSource(defaults) == ModelDownloadSource::modelScope;
}

std::vector<ModelDownloadSource> downloadSources(ModelDownloadSource source) {
  if (source == ModelDownloadSource::modelScope) {
    return {ModelDownloadSource::modelScope, ModelDownloadSource::huggingFaceMirror, ModelDownloadSource::huggingFace};
  }
  return {source};
}

std::vector<ModelDownloadSource> downloadSources(const UserDefaults& defaults) {
  return downloadSources(resolvedDownloadSource(defaults));
}

URL hubBaseURL(ModelDownloadSource source) {
  switch (source) {
    case ModelDownloadSource::huggingFace: return defaultHubBaseURL();
    case ModelDownloadSource::huggingFaceMirror: return mirrorHubBaseURL();
    case ModelDownloadSource::modelScope: return modelScopeBaseURL();
  }
  return defaultHubBaseURL();
}

URL resolvedHubBaseURL(const UserDefaults& defaults) { return hubBaseURL(resolvedDownloadSource(defaults)); }

std::string resolvedHubEndpoint(const UserDefaults& defaults) { return resolvedHubBaseURL(defaults).absoluteString(); }

std::optional<URL> rewriting(const std::optional<URL>& url, ModelDownloadSource source) {
  if (!url) return std::nullopt;
  if (source != ModelDownloadSource::huggingFaceMirror) return url;
  if (url->host().find(defaultHubBaseURL().host()) == std::string::npos) return url;
  return movingOrigin(*url, url->scheme(), mirrorHubBaseURL().host(), url->port());
}

std::optional<URL> hubEndpointOverride() {
  const char* value = std::getenv("HF_ENDPOINT");
  if (value == nullptr || *value == '\0') return std::nullopt;
  auto url = URL::parse(value);
  if (!url || (url->scheme() != "http" && url->scheme() != "https")) return std::nullopt;
  return url;
}

URL applyingHubEndpointOverride(const URL& url) {
  auto endpoint = hubEndpointOverride();
  if (!endpoint || *endpoint == mirrorHubBaseURL()) return url;
  return movingOrigin(url, endpoint->scheme(), endpoint->host(), endpoint->port());
}

void applyEndpointEnvironment(const UserDefaults& defaults) {
  if (resolvedDownloadSource(defaults) == ModelDownloadSource::huggingFace) {
    ::unsetenv("HF_ENDPOINT");
  } else {
    ::setenv("HF_ENDPOINT", mirrorHubBaseURL().absoluteString().c_str(), 1);
  }
}

std::optional<URL> modelScopeFileURL(const URL& base, const std::string& repoId, const std::string& filePath,
                                     const std::string& revision) {
  return URL::parse(baseText(base) + "/api/v1/models/" + repoId + "/repo?Revision=" +
                    percentEncode(revision, URLCharacterSet::queryAllowed) +
                    "&FilePath=" + percentEncode(filePath, URLCharacterSet::queryAllowed));
}

std::optional<URL> modelScopeFileURL(const std::string& repoId, const std::string& filePath,
                                     const std::string& revision) {
  return modelScopeFileURL(modelScopeBaseURL(), repoId, filePath, revision);
}

std::optional<URL> modelScopeModelPageURL(const std::string& repoId) {
  return URL::parse(baseText(modelScopeBaseURL()) + "/models/" + repoId);
}

std::optional<URL> modelScopeFileListURL(const URL& base, const std::string& repoId) {
  return URL::parse(baseText(base) + "/api/v1/models/" + percentEncode(repoId, URLCharacterSet::pathAllowed) +
                    "/repo/files?Revision=master");
}

std::optional<URL> modelScopeFileListURL(const std::string& repoId) {
  return modelScopeFileListURL(modelScopeBaseURL(), repoId);
}

}  // namespace orvid::HuggingFaceDownloadEndpoints
