#include "orvid/core/corelib/orvid_settings.h"

#include <fstream>

#include <gtest/gtest.h>

#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"

namespace orvid {
namespace {

// A settings file holding `contents`, read by a fresh UserDefaults.
OrvidSettings loadFrom(const TemporaryDirectory& folder, const std::string& contents) {
  auto file = folder / "settings.json";
  std::ofstream(file, std::ios::binary | std::ios::trunc) << contents;
  UserDefaults defaults(file);
  return OrvidSettingsPersistence::load(defaults);
}

TEST(OrvidSettingsPersistenceTest, MissingUnreadableOrEmptySettingsReadAsDefaults) {
  TemporaryDirectory folder;
  UserDefaults missing(folder / "absent.json");
  EXPECT_EQ(OrvidSettingsPersistence::load(missing), OrvidSettings{});
  for (const char* contents : {"", "not json", "[1,2]", "{}"}) {
    EXPECT_EQ(loadFrom(folder, contents), OrvidSettings{}) << contents;
  }
}

TEST(OrvidSettingsPersistenceTest, ReadsEveryStoredField) {
  TemporaryDirectory folder;
  auto settings = loadFrom(folder, R"({
    "modelDownloadSource": "modelScope",
    "useHfMirror": true,
    "autocorrectEnabled": true,
    "autocorrectRules": {"capitalizeSentences": true, "spaceBeforeUnits": false},
    "inverseTextNormalizationEnabled": true,
    "chineseConversionMode": "s2twp",
    "unrelatedKey": 42
  })");
  EXPECT_EQ(settings.modelDownloadSource, ModelDownloadSource::modelScope);
  EXPECT_TRUE(settings.useHfMirror);
  EXPECT_TRUE(settings.autocorrectEnabled);
  EXPECT_EQ(settings.autocorrectRules, (std::map<std::string, bool>{{"capitalizeSentences", true},
                                                                     {"spaceBeforeUnits", false}}));
  EXPECT_TRUE(settings.inverseTextNormalizationEnabled);
  EXPECT_EQ(settings.chineseConversionMode, "s2twp");
}

TEST(OrvidSettingsPersistenceTest, SwitchesReadLikeTheMacAndOtherKindsFallBackToDefaults) {
  TemporaryDirectory folder;
  struct Row { const char* contents; OrvidSettings expected; };
  OrvidSettings mirrorOnly;
  mirrorOnly.useHfMirror = true;
  OrvidSettings rules;
  rules.autocorrectRules = {{"keep", true}, {"number", true}, {"text", false}};
  OrvidSettings itnOff;
  const Row rows[] = {
      {R"({"modelDownloadSource": "ModelScope"})", {}},
      {R"({"modelDownloadSource": 2, "useHfMirror": 1})", mirrorOnly},
      {R"({"useHfMirror": "YES"})", mirrorOnly},
      {R"({"autocorrectRules": {"keep": true, "number": 1, "text": "on", "null": null}})", rules},
      {R"({"inverseTextNormalizationEnabled": null})", itnOff},
  };
  for (const auto& row : rows) EXPECT_EQ(loadFrom(folder, row.contents), row.expected) << row.contents;
}

TEST(OrvidSettingsPersistenceTest, SaveThenLoadGivesTheSameSettingsAndRemovesAnUnsetSource) {
  TemporaryDirectory folder;
  UserDefaults defaults(folder / "settings.json");
  OrvidSettings settings;
  settings.modelDownloadSource = ModelDownloadSource::huggingFaceMirror;
  settings.autocorrectEnabled = true;
  settings.autocorrectRules = {{"a", true}, {"b", false}};
  settings.chineseConversionMode = "t2s";
  OrvidSettingsPersistence::save(settings, defaults);
  EXPECT_EQ(defaults.string("modelDownloadSource"), "huggingFaceMirror");

  UserDefaults reread(folder / "settings.json");
  EXPECT_EQ(OrvidSettingsPersistence::load(reread), settings);

  settings.modelDownloadSource.reset();
  OrvidSettingsPersistence::save(settings, defaults);
  EXPECT_FALSE(defaults.value("modelDownloadSource"));
  EXPECT_EQ(OrvidSettingsPersistence::load(defaults), settings);
}

}  // namespace
}  // namespace orvid
