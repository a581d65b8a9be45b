// Feeds arbitrary bytes to UserDefaults as the settings file and reads
// OrvidSettings from it. Neither may throw. A file that is not a JSON object reads
// as no settings; stored switches read as UserDefaults::booleanValue says (checked
// here against the rule it documents); the settings saved to a fresh file load back
// equal, and their JSON form decodes back equal.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/platform/user_defaults.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

using nlohmann::json;
using orvid::OrvidSettings;
using orvid::OrvidSettingsPersistence;
using orvid::UserDefaults;
using Key = OrvidSettingsPersistence::Key;

// Memory-backed when the system has it: every save flushes the file to disk.
std::filesystem::path scratchFolder() {
  const std::filesystem::path memory = "/dev/shm";
  return std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
}

// A folder of this process's own, removed at exit.
struct Folder {
  std::filesystem::path path = scratchFolder() /
                               ("orvid-settings-fuzz-" + std::to_string(static_cast<long>(::getpid())));
  Folder() { std::filesystem::create_directories(path); }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

const std::filesystem::path& folder() {
  static const Folder folder;
  return folder.path;
}

// The documented reading of a stored switch.
std::optional<bool> expectedSwitch(const json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number()) return value.get<double>() != 0;
  if (!value.is_string()) return std::nullopt;
  const std::string& text = value.get_ref<const std::string&>();
  std::size_t i = text.find_first_not_of(" \t\n\r");
  if (i == std::string::npos) return false;
  if (text[i] == '+' || text[i] == '-') ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

orvid::fuzz::Seeds seeds() {
  return {
      {"all", bytes(R"({"modelDownloadSource":"huggingFaceMirror","useHfMirror":"YES","autocorrectEnabled":1,)"
                    R"("autocorrectRules":{"noSpaceBetweenCJK":false,"sentenceCapitalization":"no","x":null},)"
                    R"("inverseTextNormalizationEnabled":" +007","chineseConversionMode":"s2twp"})")},
      {"wrong-kinds", bytes(R"({"modelDownloadSource":3,"useHfMirror":[true],"autocorrectEnabled":0.0,)"
                            R"("autocorrectRules":[1],"chineseConversionMode":false})")},
      {"other-keys", bytes(R"({"unrelated":{"deep":[1,2,3]},"useHfMirror":"-0"})")},
      {"array", bytes("[1,2]")},
      {"broken", bytes("{\"useHfMirror\":tr")},
      {"empty", {}},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::filesystem::path file = folder() / "settings.json";
  {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    require(static_cast<bool>(out), "the settings file is written");
  }
  const UserDefaults stored(file);
  const json values = stored.dictionary();
  const auto parsed = json::parse(data, data + size, nullptr, false);
  if (!parsed.is_discarded() && parsed.is_object()) {
    require(values == parsed, "a JSON object file is read as it is");
  } else {
    require(values.empty(), "any other file reads as no settings");
  }

  for (const auto& [key, value] : values.items()) {
    const std::optional<bool> expected = expectedSwitch(value);
    require(UserDefaults::booleanValue(value) == expected, "booleanValue follows its documented rule");
    require(stored.boolean(key) == expected, "boolean() reads as booleanValue()");
    require(stored.value(key) == value, "value() is the stored value");
  }

  const OrvidSettings settings = OrvidSettingsPersistence::load(stored);
  for (const char* key : {Key::useHfMirror, Key::autocorrectEnabled, Key::inverseTextNormalizationEnabled}) {
    const bool expected = values.contains(key) && expectedSwitch(values[key]).value_or(false);
    const bool loaded = key == std::string_view(Key::useHfMirror)          ? settings.useHfMirror
                        : key == std::string_view(Key::autocorrectEnabled) ? settings.autocorrectEnabled
                                                                           : settings.inverseTextNormalizationEnabled;
    require(loaded == expected, "a switch reads as its stored value, or off");
  }
  const auto mode = values.find(Key::chineseConversionMode);
  require(settings.chineseConversionMode ==
              (mode != values.end() && mode->is_string() ? mode->get<std::string>() : std::string("none")),
          "the conversion mode is the stored text, or none");
  if (settings.modelDownloadSource) {
    require(values.at(Key::modelDownloadSource) == json(*settings.modelDownloadSource),
            "a download source is one of the stored names");
  }
  for (const auto& [name, enabled] : settings.autocorrectRules) {
    require(values.at(Key::autocorrectRules).contains(name), "rules come from the stored rules");
    require(expectedSwitch(values.at(Key::autocorrectRules).at(name)) == enabled, "a rule reads as a switch");
  }

  UserDefaults saved(folder() / "saved.json");
  const json left = saved.dictionary();
  for (const auto& [key, value] : left.items()) saved.remove(key);
  OrvidSettingsPersistence::save(settings, saved);
  require(OrvidSettingsPersistence::load(saved) == settings, "saved settings load back equal");
  require(OrvidSettingsPersistence::load(UserDefaults(saved.file())) == settings,
          "saved settings load back equal from the file");
  require(json(settings).get<OrvidSettings>() == settings, "the JSON form decodes back equal");
  return 0;
}
