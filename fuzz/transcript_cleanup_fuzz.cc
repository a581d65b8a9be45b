// Feeds arbitrary text to TranscriptCleanupEngine::clean with fuzz-chosen settings.
// The first byte picks the user's settings (autocorrect, number normalisation,
// Chinese conversion), the second the configuration switches, threshold and
// language; the rest, cut at its first NUL byte, is the transcript and then the
// dictionary terms, one a line. clean() may never throw and is deterministic; it
// keeps well-formed text well-formed and, when neither text nor terms bring them,
// leaves no invisible characters; with filler removal on, no filler word survives
// as a word. The helpers keep their documented shapes: similarity is a symmetric
// ratio that is 1 for equal texts, each term's first spoken form is itself, and
// the configuration's JSON form decodes back equal.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/textprocessing/transcript_cleanup_engine.h"

namespace {

using orvid::fuzz::require;

using orvid::TranscriptCleanupConfiguration;
using orvid::TranscriptCleanupEngine;
using orvid::UserDefaults;
namespace internal = orvid::internal;

constexpr std::array<const char*, 4> kConversionModes = {"none", "s2t", "t2s", "tw2sp"};
constexpr std::array<const char*, 6> kLanguages = {"", "auto", "en", "zh-Hans", "zh-Hant", "fr"};

// Memory-backed when the system has it: every save flushes the file to disk.
std::filesystem::path scratchFolder() {
  const std::filesystem::path memory = "/dev/shm";
  return std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
}

// Every combination of the settings clean() reads, each in its own file in a
// folder of this process's own, removed at exit.
struct SettingsFiles {
  std::filesystem::path folder = scratchFolder() /
                                 ("orvid-cleanup-fuzz-" + std::to_string(static_cast<long>(::getpid())));
  std::vector<std::unique_ptr<UserDefaults>> settings;

  SettingsFiles() {
    for (std::size_t choice = 0; choice < 4 * kConversionModes.size(); ++choice) {
      orvid::OrvidSettings values;
      values.autocorrectEnabled = choice & 1;
      values.inverseTextNormalizationEnabled = choice & 2;
      values.chineseConversionMode = kConversionModes[choice / 4];
      auto file = std::make_unique<UserDefaults>(folder / ("settings-" + std::to_string(choice) + ".json"));
      orvid::OrvidSettingsPersistence::save(values, *file);
      settings.push_back(std::move(file));
    }
  }
  ~SettingsFiles() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
};

const UserDefaults& settings(std::uint8_t choice) {
  static const SettingsFiles files;
  return *files.settings[choice % files.settings.size()];
}

bool hasInvisibleCharacters(std::string_view text) {
  for (const std::string_view invisible : {"\xE2\x80\x8B", "\xE2\x80\x8C", "\xE2\x80\x8D", "\xEF\xBB\xBF"}) {
    if (text.find(invisible) != std::string_view::npos) return true;
  }
  return false;
}

std::vector<std::string> lines(std::string_view text) {
  std::vector<std::string> result;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    result.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

std::vector<std::uint8_t> input(std::uint8_t settings, std::uint8_t configuration, std::string_view text,
                                std::string_view terms) {
  std::vector<std::uint8_t> bytes = {settings, configuration};
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.push_back(0);
  bytes.insert(bytes.end(), terms.begin(), terms.end());
  return bytes;
}

orvid::fuzz::Seeds seeds() {
  return {
      {"fillers", input(0, 0x03, "um so uh I I I think like twenty three percent, erm, yes", "")},
      {"dictionary", input(1, 0x10, "we pushed it to git hub and the a w s bucket via open ai", "GitHub\nAWS\nOpenAI")},
      {"numbers", input(2, 0x20, "meet me at seven thirty pm on the twenty first", "")},
      {"chinese", input(14, 0x30, "我们在二零二四年三月五日用App,很好 一百二十三", "開發者")},
      {"invisible", input(3, 0x07, "\xE2\x80\x8Bhello\xEF\xBB\xBF  world\xE2\x80\x8D", "wor ld")},
      {"broken-utf8", input(7, 0x01, "caf\xC3 \xE9 t\xE4st", "caf\xC3\xA9")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data + 2), size - 2);
  const std::size_t cut = std::min(rest.find('\0'), rest.size());
  const std::string_view text = rest.substr(0, cut);
  const std::string_view terms = rest.substr(std::min(cut + 1, rest.size()));

  TranscriptCleanupConfiguration configuration;
  configuration.removesFillers = data[1] & 1;
  configuration.collapsesStutters = data[1] & 2;
  configuration.wordCorrectionThreshold = 0.5 + 0.1 * ((data[1] >> 2) % 6);
  configuration.dictionaryTerms = lines(terms);
  if (data[1] & 0x80) configuration.dictionaryContext = std::string(terms);
  const std::optional<std::string> language =
      data[1] & 0x40 ? std::nullopt : std::optional<std::string>(kLanguages[(data[1] >> 4) % kLanguages.size()]);

  const TranscriptCleanupEngine engine(settings(data[0]));
  const std::string cleaned = engine.clean(text, configuration, language);
  require(engine.clean(text, configuration, language) == cleaned, "cleaning is deterministic");
  if (internal::isValidUTF8(text) && internal::isValidUTF8(terms)) {
    require(internal::isValidUTF8(cleaned), "well-formed text stays well-formed");
    if (!hasInvisibleCharacters(terms)) require(!hasInvisibleCharacters(cleaned), "invisible characters are removed");
  }
  if (configuration.removesFillers) {
    const std::string filtered = engine.removeFillers(text);
    std::string_view words = filtered;
    while (!words.empty()) {
      const std::size_t end = std::min(words.find(' '), words.size());
      require(!engine.fillerWords.contains(internal::lowercaseASCII(words.substr(0, end))),
              "no filler word survives filler removal");
      words.remove_prefix(std::min(end + 1, words.size()));
    }
  }

  const double similarity = TranscriptCleanupEngine::similarity(text, terms);
  require(similarity >= 0 && similarity <= 1, "similarity is a ratio");
  require(similarity == TranscriptCleanupEngine::similarity(terms, text), "similarity is symmetric");
  require(TranscriptCleanupEngine::similarity(text, text) == 1, "a text is wholly similar to itself");
  for (const std::string& term : configuration.dictionaryTerms) {
    const auto forms = TranscriptCleanupEngine::spokenForms(term);
    require(!forms.empty() && forms.front() == term, "a term's first spoken form is itself");
  }
  for (const std::string& term :
       TranscriptCleanupEngine::normalizedDictionaryTerms(configuration.dictionaryTerms, configuration.dictionaryContext)) {
    require(!term.empty() && internal::trimASCIIWhitespace(term) == term, "dictionary terms are trimmed");
  }

  const nlohmann::json json = configuration;
  require(json.get<TranscriptCleanupConfiguration>() == configuration, "the configuration's JSON decodes back equal");
  return 0;
}
