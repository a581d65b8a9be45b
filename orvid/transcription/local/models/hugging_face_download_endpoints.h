#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/platform/url.h"

namespace orvid {

class UserDefaults;

// Where models are downloaded from: the user's choice of source in the settings,
// the web roots of the Hugging Face hub, its mirror and ModelScope, and the URLs
// built on them.
namespace HuggingFaceDownloadEndpoints {

// "https://huggingface.co", "https://hf-mirror.com", "https://www.modelscope.cn".
const URL& defaultHubBaseURL();
const URL& mirrorHubBaseURL();
const URL& modelScopeBaseURL();

// The source stored under the model-download-source key when it is one of the three
// raw texts exactly; otherwise the mirror when the use-mirror switch is on, else the hub.
ModelDownloadSource resolvedDownloadSource(const UserDefaults& defaults);
bool useMirrorEnabled(const UserDefaults& defaults);
bool isModelScope(const UserDefaults& defaults);
// The sources to try in order: ModelScope, mirror, hub for ModelScope; the one source otherwise.
std::vector<ModelDownloadSource> downloadSources(const UserDefaults& defaults);
std::vector<ModelDownloadSource> downloadSources(ModelDownloadSource source);

URL hubBaseURL(ModelDownloadSource source);
URL resolvedHubBaseURL(const UserDefaults& defaults);
std::string resolvedHubEndpoint(const UserDefaults& defaults);

// For the mirror, a URL whose host contains the hub's host name moves to the mirror's
// host (scheme, port, path and query kept). Every other URL and source: unchanged.
std::optional<URL> rewriting(const std::optional<URL>& url, ModelDownloadSource source);

// The root in the process environment variable HF_ENDPOINT; absent when it is unset,
// empty or not an absolute http(s) URL.
std::optional<URL> hubEndpointOverride();
// `url` with its scheme, host and port replaced by those of HF_ENDPOINT (path, query
// and user information kept), so that a self-hosted hub serves hub downloads.
// Unchanged when HF_ENDPOINT is not set, and when it is the mirror's root: that is the
// value applyEndpointEnvironment writes for the mirror and ModelScope sources, and each
// source then keeps its own root so that falling back to the hub still reaches the hub.
URL applyingHubEndpointOverride(const URL& url);

// Sets HF_ENDPOINT to the mirror's root for the mirror and ModelScope sources and
// removes it for the hub. For the host, when the user changes the source.
void applyEndpointEnvironment(const UserDefaults& defaults);

// base + "/api/v1/models/" + repoId + "/repo?Revision=" + revision + "&FilePath=" + filePath,
// revision and file path percent-encoded for a query.
std::optional<URL> modelScopeFileURL(const std::string& repoId, const std::string& filePath,
                                     const std::string& revision = "master");
// base + "/models/" + repoId.
std::optional<URL> modelScopeModelPageURL(const std::string& repoId);
// base + "/api/v1/models/" + repoId (percent-encoded for a path) + "/repo/files?Revision=master".
std::optional<URL> modelScopeFileListURL(const std::string& repoId);
// The same three against another root (a loopback server in tests).
std::optional<URL> modelScopeFileURL(const URL& base, const std::string& repoId, const std::string& filePath,
                                     const std::string& revision);
std::optional<URL> modelScopeFileListURL(const URL& base, const std::string& repoId);

}  // namespace HuggingFaceDownloadEndpoints

}  // namespace orvid
