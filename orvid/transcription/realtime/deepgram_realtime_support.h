#pragma once

#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/ai/orvid_credential_store.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/core/transcription_records.h"
#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/url.h"

// The socket request of Deepgram's live transcription service and the reading of
// its result events.
namespace orvid::DeepgramRealtimeSupport {

// A GET of wss://<baseURL's user, host and port><path> where the path is baseURL's
// when it already ends in "/listen" (in any case) and baseURL's path + "/listen"
// otherwise, with the query (baseURL's own is replaced) model, encoding=linear16,
// sample_rate=16000, channels=1, interim_results=true, then language (the
// normalised `language`, when there is one) and smart_format, punctuate, diarize
// (each only when its option is a Boolean); "Authorization: Token <key>" and a
// 60-second timeout. Throws OrvidProviderError::missingCredential when no
// non-empty key is stored, the store's own errors, and
// OrvidProviderError::missingBaseURL when no URL can be formed.
OrvidHTTPRequest websocketRequest(const URL& baseURL, const std::string& configurationID, const std::string& modelID,
                                  const std::optional<std::string>& language,
                                  const TranscriptionProviderOptions& providerOptions,
                                  const OrvidCredentialStore& credentialStore);

// The partial result of a "Results" event: the first alternative's trimmed
// "transcript" of its "channel", final when "is_final" says so. Absent for any
// other event, and for a missing or blank transcript. isReplace stays absent.
std::optional<TranscriptionPartialResult> partial(const nlohmann::json& event);

}  // namespace orvid::DeepgramRealtimeSupport
