#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace orvid {

// The user's settings: one JSON object in a file, read on construction and
// rewritten atomically (temporary file, then rename) on every change. A missing
// or unreadable file reads as no settings. Thread-safe.
class UserDefaults {
 public:
  explicit UserDefaults(std::filesystem::path file);

  // The settings of the current user: "settings.json" in configDirectory().
  static UserDefaults& standard();
  // $ORVID_CONFIG_HOME if set, else $XDG_CONFIG_HOME/orvid, else $HOME/.config/orvid.
  static std::filesystem::path configDirectory();

  const std::filesystem::path& file() const { return file_; }

  std::optional<nlohmann::json> value(const std::string& key) const;
  std::optional<std::string> string(const std::string& key) const;
  // The stored switch under `key`: see booleanValue().
  std::optional<bool> boolean(const std::string& key) const;
  // The whole settings object.
  nlohmann::json dictionary() const;

  // Stores `value` under `key` and writes the file. Throws std::filesystem::filesystem_error
  // when the file cannot be written; the stored settings are then unchanged.
  void set(const std::string& key, nlohmann::json value);
  void remove(const std::string& key);
  // Reads the file again, replacing what is held.
  void reload();

  // A stored value read as a switch, the way the Mac reads its settings: a boolean
  // as itself, a number as "not zero", a text as true when, after leading white space,
  // signs and zeros, it starts with 'Y', 'y', 'T', 't' or a digit 1-9 ("YES", "true",
  // "1") and false otherwise. Absent for null, arrays and objects.
  static std::optional<bool> booleanValue(const nlohmann::json& value);

 private:
  void writeLocked(const nlohmann::json& values) const;

  std::filesystem::path file_;
  mutable std::mutex mutex_;
  nlohmann::json values_;
};

// Writes `contents` to `path` atomically: a temporary file in the same folder with
// `permissions`, flushed to disk, then renamed over `path`. Creates missing folders.
// Throws std::filesystem::filesystem_error on failure and leaves `path` untouched.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         std::filesystem::perms permissions = std::filesystem::perms::owner_read |
                                                              std::filesystem::perms::owner_write);

}  // namespace orvid
