#include "orvid/core/corelib/text/opencc.h"

#include <array>
#include <cstdlib>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include <opencc/Config.hpp>
#include <opencc/Conversion.hpp>
#include <opencc/ConversionChain.hpp>
#include <opencc/Converter.hpp>
#include <opencc/DictEntry.hpp>
#include <opencc/DictGroup.hpp>
#include <opencc/Exception.hpp>
#include <opencc/Lexicon.hpp>
#include <opencc/MarisaDict.hpp>
#include <opencc/MaxMatchSegmentation.hpp>
#include <opencc/SerializableDict.hpp>
#include <opencc/TextDict.hpp>

namespace orvid {
namespace {

constexpr std::array<std::pair<OpenCCMode, const char*>, 16> kModes{{
    {OpenCCMode::none, "none"},
    {OpenCCMode::hk2s, "hk2s"},
    {OpenCCMode::hk2t, "hk2t"},
    {OpenCCMode::jp2t, "jp2t"},
    {OpenCCMode::s2hk, "s2hk"},
    {OpenCCMode::s2hkFinance, "s2hk-finance"},
    {OpenCCMode::s2t, "s2t"},
    {OpenCCMode::s2tw, "s2tw"},
    {OpenCCMode::s2twp, "s2twp"},
    {OpenCCMode::t2hk, "t2hk"},
    {OpenCCMode::t2jp, "t2jp"},
    {OpenCCMode::t2s, "t2s"},
    {OpenCCMode::t2tw, "t2tw"},
    {OpenCCMode::tw2s, "tw2s"},
    {OpenCCMode::tw2sp, "tw2sp"},
    {OpenCCMode::tw2t, "tw2t"},
}};

// Hong Kong financial usage for Mainland terms, applied before the s2hk dictionaries.
// Keys are Simplified; their Traditional spellings are added when the converter is built.
constexpr std::array<std::pair<const char*, const char*>, 22> kHongKongFinancePhrases{{
    {"保证金", "按金"},
    {"保证金账户", "孖展戶口"},
    {"首次公开募股", "首次公開招股"},
    {"首次公开发行", "首次公開招股"},
    {"公开发行", "公開招股"},
    {"招股说明书", "招股章程"},
    {"招股书", "招股章程"},
    {"募集资金", "集資"},
    {"募资", "集資"},
    {"做空", "沽空"},
    {"卖空", "沽空"},
    {"空头头寸", "淡倉"},
    {"多头头寸", "好倉"},
    {"认股权证", "認股證"},
    {"市价单", "市價盤"},
    {"限价单", "限價盤"},
    {"分红", "派息"},
    {"股票回购", "股份回購"},
    {"证券账户", "證券戶口"},
    {"银行账户", "銀行戶口"},
    {"券商", "證券行"},
    {"抵押贷款", "按揭貸款"},
}};

using ConverterPtr = std::shared_ptr<const opencc::Converter>;

opencc::DictPtr loadDictionary(const std::filesystem::path& directory, const char* file) {
  return opencc::SerializableDict::NewFromFile<opencc::MarisaDict>((directory / file).string());
}

// s2hk with the financial phrases taking precedence over the general phrases.
ConverterPtr buildHongKongFinanceConverter(const std::filesystem::path& directory) {
  auto stPhrases = loadDictionary(directory, "STPhrases.ocd2");
  auto stCharacters = loadDictionary(directory, "STCharacters.ocd2");
  auto hkVariants = loadDictionary(directory, "HKVariants.ocd2");

  // Traditional spellings of the keys, so that already converted text matches too.
  opencc::Converter traditional(
      "s2t", std::make_shared<opencc::MaxMatchSegmentation>(stPhrases),
      std::make_shared<opencc::ConversionChain>(std::list<opencc::ConversionPtr>{std::make_shared<opencc::Conversion>(
          std::make_shared<opencc::DictGroup>(std::list<opencc::DictPtr>{stPhrases, stCharacters}))}));
  std::map<std::string, std::string> phrases;
  for (const auto& [simplified, hongKong] : kHongKongFinancePhrases) {
    phrases.emplace(simplified, hongKong);
    phrases.emplace(traditional.Convert(simplified), hongKong);
  }
  auto lexicon = std::make_shared<opencc::Lexicon>();
  for (const auto& [key, value] : phrases) lexicon->Add(opencc::DictEntryFactory::New(key, value));
  lexicon->Sort();
  auto finance = std::make_shared<opencc::TextDict>(lexicon);

  auto segmentation =
      std::make_shared<opencc::MaxMatchSegmentation>(std::make_shared<opencc::DictGroup>(std::list<opencc::DictPtr>{
          finance, stPhrases}));
  auto chain = std::make_shared<opencc::ConversionChain>(std::list<opencc::ConversionPtr>{
      std::make_shared<opencc::Conversion>(
          std::make_shared<opencc::DictGroup>(std::list<opencc::DictPtr>{finance, stPhrases, stCharacters})),
      std::make_shared<opencc::Conversion>(hkVariants),
  });
  return std::make_shared<opencc::Converter>("Simplified Chinese to Hong Kong Chinese with financial usage",
                                             segmentation, chain);
}

ConverterPtr buildConverter(const std::filesystem::path& directory, OpenCCMode mode) {
  if (mode == OpenCCMode::s2hkFinance) return buildHongKongFinanceConverter(directory);
  opencc::Config config;
  return config.NewFromFile((directory / (rawValue(mode) + ".json")).string());
}

}  // namespace

std::string rawValue(OpenCCMode mode) {
  for (const auto& [value, raw] : kModes) {
    if (value == mode) return raw;
  }
  return {};
}

std::optional<OpenCCMode> openCCMode(std::string_view raw) {
  for (const auto& [value, name] : kModes) {
    if (raw == name) return value;
  }
  return std::nullopt;
}

const std::vector<OpenCCMode>& allOpenCCModes() {
  static const std::vector<OpenCCMode> modes = [] {
    std::vector<OpenCCMode> all;
    for (const auto& entry : kModes) all.push_back(entry.first);
    return all;
  }();
  return modes;
}

void to_json(nlohmann::json& json, OpenCCMode mode) { json = rawValue(mode); }

void from_json(const nlohmann::json& json, OpenCCMode& mode) {
  auto parsed = openCCMode(json.get<std::string>());
  if (!parsed) throw nlohmann::json::other_error::create(501, "not a Chinese conversion mode: " + json.dump(), &json);
  mode = *parsed;
}

OpenCCError::OpenCCError(Case errorCase, OpenCCMode mode, std::string detail)
    : case_(errorCase), mode_(mode), detail_(std::move(detail)) {
  const char* what = errorCase == Case::configurationUnavailable ? "\" is unavailable: " : "\" failed: ";
  message_ = "Chinese conversion \"" + rawValue(mode_) + what + detail_;
}

OpenCCError OpenCCError::configurationUnavailable(OpenCCMode mode, std::string detail) {
  return OpenCCError(Case::configurationUnavailable, mode, std::move(detail));
}

OpenCCError OpenCCError::invalidText(OpenCCMode mode, std::string detail) {
  return OpenCCError(Case::invalidText, mode, std::move(detail));
}

class OpenCC::Converters {
 public:
  explicit Converters(std::filesystem::path directory) : directory_(std::move(directory)) {}

  // The converter of `mode`, loaded once. A mode whose files could not be loaded
  // fails the same way on every later call without reading the disk again.
  ConverterPtr converter(OpenCCMode mode) {
    {
      std::lock_guard lock(mutex_);
      if (auto it = loaded_.find(mode); it != loaded_.end()) return it->second;
      if (auto it = failed_.find(mode); it != failed_.end()) throw it->second;
    }
    // Loading reads dictionary files: done outside the lock. Two threads may both
    // load a mode the first time; the first to finish is kept.
    ConverterPtr fresh;
    std::optional<OpenCCError> failure;
    try {
      fresh = buildConverter(directory_, mode);
    } catch (const opencc::Exception& error) {  // not a std::exception
      failure = OpenCCError::configurationUnavailable(mode, error.what());
    } catch (const std::exception& error) {
      failure = OpenCCError::configurationUnavailable(mode, error.what());
    }
    std::lock_guard lock(mutex_);
    if (failure) throw failed_.emplace(mode, std::move(*failure)).first->second;
    return loaded_.emplace(mode, std::move(fresh)).first->second;
  }

 private:
  const std::filesystem::path directory_;
  std::mutex mutex_;
  std::map<OpenCCMode, ConverterPtr> loaded_;
  std::map<OpenCCMode, OpenCCError> failed_;
};

OpenCC::OpenCC(std::filesystem::path dataDirectory)
    : converters_(std::make_unique<Converters>(std::move(dataDirectory))) {}

OpenCC::~OpenCC() = default;

OpenCC& OpenCC::shared() {
  static OpenCC instance;
  return instance;
}

std::filesystem::path OpenCC::defaultDataDirectory() {
  if (const char* directory = std::getenv("ORVID_OPENCC_DATA_DIR"); directory && *directory) return directory;
  return "/usr/share/opencc";
}

std::string OpenCC::convert(std::string_view text, OpenCCMode mode) {
  if (mode == OpenCCMode::none || text.empty()) return std::string(text);
  ConverterPtr converter = converters_->converter(mode);
  try {
    return converter->Convert(std::string(text));
  } catch (const opencc::Exception& error) {
    throw OpenCCError::invalidText(mode, error.what());
  }
}

}  // namespace orvid
