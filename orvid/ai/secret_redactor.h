#pragma once

#include <string>
#include <string_view>

// Strips credentials from text that may carry them: service error bodies, debug
// copies of requests and responses, process output and progress messages.
namespace orvid::SecretRedactor {

// Replaces the secret after each credential label with "[REDACTED]", keeping the
// label itself. Recognised, case-insensitively and in this order:
//   "Authorization: Bearer <secret>" (also Proxy-Authorization, "=" and "token"),
//   "Bearer <secret>" / "token <secret>" on their own,
//   "x-api-key: <secret>", "api_key=<secret>", "apiKey": "<secret>" and the like,
//   "X-...-Token: <secret>" and other X- headers ending in token/secret/credential/key.
// A label also counts when glued to an escape or an invisible character before it
// ("\nBearer <secret>" in a JSON body, "\u200bBearer", U+FEFF + "api_key=").
// Every other byte of `text`, including malformed UTF-8, is returned unchanged. Should
// the regular-expression engine fail, the whole text comes back as "[REDACTED]".
std::string redact(std::string_view text);

}  // namespace orvid::SecretRedactor
