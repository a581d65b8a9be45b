#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "orvid/platform/url.h"

// JSON helpers for URL fields: a URL travels as its absolute text.
namespace orvid::json_support {

// Writes the URL's absolute text under `key`; nothing when absent.
inline void putOptionalURL(nlohmann::json& json, const char* key, const std::optional<URL>& url) {
  if (url) json[key] = url->absoluteString();
}

// Reads an absolute URL from `value`; throws nlohmann::json::other_error when it does not parse.
inline URL urlFromJSON(const nlohmann::json& value, const char* key) {
  auto text = value.get<std::string>();
  auto url = URL::parse(text);
  if (!url) throw nlohmann::json::other_error::create(501, std::string("not a URL in ") + key + ": " + text, &value);
  return *url;
}

// A missing or null key reads as absent; anything else must be an absolute URL.
inline void getOptionalURL(const nlohmann::json& json, const char* key, std::optional<URL>& url) {
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) {
    url.reset();
    return;
  }
  url = urlFromJSON(*it, key);
}

}  // namespace orvid::json_support
