#include "orvid/core/corelib/orvid_settings.h"

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/user_defaults.h"

namespace orvid {
namespace {

using Key = OrvidSettingsPersistence::Key;

std::optional<ModelDownloadSource> sourceIn(const std::optional<nlohmann::json>& value) {
  if (!value || !value->is_string()) return std::nullopt;
  return modelDownloadSource(value->get<std::string>());
}

std::map<std::string, bool> rulesIn(const std::optional<nlohmann::json>& value) {
  std::map<std::string, bool> rules;
  if (!value || !value->is_object()) return rules;
  for (const auto& [name, enabled] : value->items()) {
    if (auto on = UserDefaults::booleanValue(enabled)) rules[name] = *on;
  }
  return rules;
}

// Reads the settings from one object of stored values, with the lenient rules of load().
OrvidSettings settingsIn(const nlohmann::json& values) {
  auto valueOf = [&](const char* key) -> std::optional<nlohmann::json> {
    auto it = values.find(key);
    if (it == values.end()) return std::nullopt;
    return *it;
  };
  auto switchOf = [&](const char* key) {
    auto value = valueOf(key);
    return value && UserDefaults::booleanValue(*value).value_or(false);
  };
  OrvidSettings settings;
  settings.modelDownloadSource = sourceIn(valueOf(Key::modelDownloadSource));
  settings.useHfMirror = switchOf(Key::useHfMirror);
  settings.autocorrectEnabled = switchOf(Key::autocorrectEnabled);
  settings.autocorrectRules = rulesIn(valueOf(Key::autocorrectRules));
  settings.inverseTextNormalizationEnabled = switchOf(Key::inverseTextNormalizationEnabled);
  if (auto mode = json_support::stringMember(values, Key::chineseConversionMode)) {
    settings.chineseConversionMode = std::move(*mode);
  }
  return settings;
}

}  // namespace

OrvidSettings OrvidSettingsPersistence::load(const UserDefaults& from) { return settingsIn(from.dictionary()); }

void OrvidSettingsPersistence::save(const OrvidSettings& settings, UserDefaults& to) {
  if (settings.modelDownloadSource) {
    to.set(Key::modelDownloadSource, rawValue(*settings.modelDownloadSource));
  } else {
    to.remove(Key::modelDownloadSource);
  }
  to.set(Key::useHfMirror, settings.useHfMirror);
  to.set(Key::autocorrectEnabled, settings.autocorrectEnabled);
  to.set(Key::autocorrectRules, settings.autocorrectRules);
  to.set(Key::inverseTextNormalizationEnabled, settings.inverseTextNormalizationEnabled);
  to.set(Key::chineseConversionMode, settings.chineseConversionMode);
}

void to_json(nlohmann::json& json, const OrvidSettings& settings) {
  json = nlohmann::json::object();
  json_support::putOptional(json, Key::modelDownloadSource, settings.modelDownloadSource);
  json[Key::useHfMirror] = settings.useHfMirror;
  json[Key::autocorrectEnabled] = settings.autocorrectEnabled;
  json[Key::autocorrectRules] = settings.autocorrectRules;
  json[Key::inverseTextNormalizationEnabled] = settings.inverseTextNormalizationEnabled;
  json[Key::chineseConversionMode] = settings.chineseConversionMode;
}

void from_json(const nlohmann::json& json, OrvidSettings& settings) {
  if (!json.is_object()) throw nlohmann::json::type_error::create(302, "settings must be an object", &json);
  settings = settingsIn(json);
}

}  // namespace orvid
