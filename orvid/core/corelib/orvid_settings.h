#pragma once

#include <map>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/corelib/local_transcription_model.h"

namespace orvid {

class UserDefaults;

// The user's settings that the voice engine reads itself.
struct OrvidSettings {
  // Where on-device models are downloaded from; absent when the user never chose.
  std::optional<ModelDownloadSource> modelDownloadSource;
  // The older switch for the Hugging Face mirror, read when no source is chosen.
  bool useHfMirror = false;
  // Apply the autocorrect rules after cleanup.
  bool autocorrectEnabled = false;
  // Rule name to enabled flag.
  std::map<std::string, bool> autocorrectRules;
  // Normalise spoken numbers, dates and the like after cleanup.
  bool inverseTextNormalizationEnabled = false;
  // The Chinese script conversion applied last ("none", "s2t", "t2s", ...).
  std::string chineseConversionMode = "none";

  bool operator==(const OrvidSettings&) const = default;
};

// Reads and writes OrvidSettings in the user defaults, one key per field.
struct OrvidSettingsPersistence {
  struct Key {
    static constexpr const char* modelDownloadSource = "modelDownloadSource";
    static constexpr const char* useHfMirror = "useHfMirror";
    static constexpr const char* autocorrectEnabled = "autocorrectEnabled";
    static constexpr const char* autocorrectRules = "autocorrectRules";
    static constexpr const char* inverseTextNormalizationEnabled = "inverseTextNormalizationEnabled";
    static constexpr const char* chineseConversionMode = "chineseConversionMode";
  };

  // The stored settings. A missing key, or a value of the wrong kind (a download
  // source that is not one of the three names, a non-Boolean switch, a non-text
  // mode), reads as the field's default; non-Boolean rule entries are skipped.
  // Switches stored as integers read as false for 0 and true otherwise.
  static OrvidSettings load(const UserDefaults& from);
  // Writes every field (an absent download source removes its key). Throws
  // std::filesystem::filesystem_error when the settings file cannot be written.
  static void save(const OrvidSettings& settings, UserDefaults& to);
};

// JSON: the field names as keys, an absent download source omitted.
void to_json(nlohmann::json& json, const OrvidSettings& settings);
void from_json(const nlohmann::json& json, OrvidSettings& settings);

}  // namespace orvid
