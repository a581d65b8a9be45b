#pragma once

#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace orvid {

// Chinese script conversions. Raw values, in order: "none", "hk2s", "hk2t",
// "jp2t", "s2hk", "s2hk-finance", "s2t", "s2tw", "s2twp", "t2hk", "t2jp", "t2s",
// "t2tw", "tw2s", "tw2sp", "tw2t". s = Simplified, t = Traditional (OpenCC
// standard), tw = Taiwan, twp = Taiwan with Taiwanese phrases, hk = Hong Kong,
// jp = Japanese Shinjitai; "s2hk-finance" is s2hk with Hong Kong financial usage
// ("保证金" -> "按金", "做空" -> "沽空", "招股说明书" -> "招股章程").
enum class OpenCCMode {
  none,
  hk2s,
  hk2t,
  jp2t,
  s2hk,
  s2hkFinance,
  s2t,
  s2tw,
  s2twp,
  t2hk,
  t2jp,
  t2s,
  t2tw,
  tw2s,
  tw2sp,
  tw2t,
};

std::string rawValue(OpenCCMode mode);
// The mode with that raw value; absent for any other text.
std::optional<OpenCCMode> openCCMode(std::string_view raw);
// Every mode, in the order above.
const std::vector<OpenCCMode>& allOpenCCModes();

void to_json(nlohmann::json& json, OpenCCMode mode);
// Throws nlohmann::json::exception for a text that is not a raw value.
void from_json(const nlohmann::json& json, OpenCCMode& mode);

// A conversion that could not be done: its dictionaries could not be loaded, or
// the text is not valid UTF-8.
class OpenCCError : public std::exception {
 public:
  enum class Case { configurationUnavailable, invalidText };

  // Message: "Chinese conversion \"<mode>\" is unavailable: <detail>".
  static OpenCCError configurationUnavailable(OpenCCMode mode, std::string detail);
  // Message: "Chinese conversion \"<mode>\" failed: <detail>".
  static OpenCCError invalidText(OpenCCMode mode, std::string detail);

  Case errorCase() const { return case_; }
  OpenCCMode mode() const { return mode_; }
  const std::string& detail() const { return detail_; }
  const char* what() const noexcept override { return message_.c_str(); }
  bool operator==(const OpenCCError& other) const {
    return case_ == other.case_ && mode_ == other.mode_ && detail_ == other.detail_;
  }

 private:
  OpenCCError(Case errorCase, OpenCCMode mode, std::string detail);

  Case case_;
  OpenCCMode mode_;
  std::string detail_;
  std::string message_;
};

// Chinese script conversion through the OpenCC library. Each mode's converter
// is loaded from the data directory on first use and kept; conversions may run
// on any number of threads at once.
class OpenCC {
 public:
  // Reads the configurations (e.g. "s2t.json") and dictionaries from `dataDirectory`.
  explicit OpenCC(std::filesystem::path dataDirectory = defaultDataDirectory());
  ~OpenCC();
  OpenCC(const OpenCC&) = delete;
  OpenCC& operator=(const OpenCC&) = delete;

  // The process-wide converter over the default data directory.
  static OpenCC& shared();
  // $ORVID_OPENCC_DATA_DIR when set, else "/usr/share/opencc".
  static std::filesystem::path defaultDataDirectory();

  // `text` converted with `mode`; `none` returns it unchanged. Throws
  // OpenCCError when the mode's dictionaries cannot be loaded or `text` is not
  // valid UTF-8.
  std::string convert(std::string_view text, OpenCCMode mode);

 private:
  class Converters;
  std::unique_ptr<Converters> converters_;
};

}  // namespace orvid
