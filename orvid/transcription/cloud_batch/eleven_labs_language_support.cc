#include "orvid/transcription/cloud_batch/eleven_labs_language_support.h"

#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "orvid/platform/internal/text.h"

namespace orvid::ElevenLabsLanguageSupport {
namespace {

const std::unordered_set<std::string_view>& supportedCodes() {
  static const std::unordered_set<std::string_view> codes = {
      "afr", "amh", "ara", "asm", "ast", "aze", "bak", "bas", "bel", "ben", "bhr", "bod", "bos", "bre", "bul", "cat",
      "ceb", "ces", "chv", "ckb", "cnh", "cre", "cym", "dan", "dav", "deu", "div", "dyu", "ell", "eng", "epo", "est",
      "eus", "fao", "fas", "fil", "fin", "fra", "fry", "ful", "gla", "gle", "glg", "guj", "hat", "hau", "heb", "hin",
      "hrv", "hsb", "hun", "hye", "ibo", "ina", "ind", "isl", "ita", "jav", "jpn", "kab", "kan", "kas", "kat", "kaz",
      "kea", "khm", "kin", "kir", "kln", "kmr", "kor", "kur", "lao", "lat", "lav", "lij", "lin", "lit", "ltg", "ltz",
      "lug", "luo", "mal", "mar", "mdf", "mhr", "mkd", "mlg", "mlt", "mon", "mri", "mrj", "msa", "mya", "myv", "nan",
      "nep", "nhi", "nld", "nor", "nso", "nya", "oci", "ori", "orm", "oss", "pan", "pol", "por", "pus", "quy", "roh",
      "ron", "rus", "sah", "san", "sat", "sin", "skr", "slk", "slv", "smo", "sna", "snd", "som", "sot", "spa", "sqi",
      "srd", "srp", "sun", "swa", "swe", "tam", "tat", "tel", "tgk", "tha", "tig", "tir", "tok", "ton", "tsn", "tuk",
      "tur", "twi", "uig", "ukr", "umb", "urd", "uzb", "vie", "vot", "vro", "wol", "xho", "yid", "yor", "yue", "zgh",
      "zho", "zul", "zza"};
  return codes;
}

const std::unordered_map<std::string_view, std::string_view>& iso639_1ToElevenLabs() {
  static const std::unordered_map<std::string_view, std::string_view> codes = {
      {"af", "afr"}, {"am", "amh"}, {"ar", "ara"}, {"as", "asm"}, {"az", "aze"}, {"ba", "bak"}, {"be", "bel"},
      {"bn", "ben"}, {"bo", "bod"}, {"bs", "bos"}, {"br", "bre"}, {"bg", "bul"}, {"ca", "cat"}, {"cs", "ces"},
      {"cy", "cym"}, {"da", "dan"}, {"de", "deu"}, {"el", "ell"}, {"en", "eng"}, {"es", "spa"}, {"et", "est"},
      {"eu", "eus"}, {"fa", "fas"}, {"fi", "fin"}, {"fo", "fao"}, {"fr", "fra"}, {"gl", "glg"}, {"gu", "guj"},
      {"ha", "hau"}, {"he", "heb"}, {"hi", "hin"}, {"hr", "hrv"}, {"ht", "hat"}, {"hu", "hun"}, {"hy", "hye"},
      {"id", "ind"}, {"is", "isl"}, {"it", "ita"}, {"ja", "jpn"}, {"jv", "jav"}, {"jw", "jav"}, {"ka", "kat"},
      {"kk", "kaz"}, {"km", "khm"}, {"kn", "kan"}, {"ko", "kor"}, {"la", "lat"}, {"ln", "lin"}, {"lo", "lao"},
      {"lt", "lit"}, {"lv", "lav"}, {"mi", "mri"}, {"mk", "mkd"}, {"ml", "mal"}, {"mn", "mon"}, {"mr", "mar"},
      {"ms", "msa"}, {"mt", "mlt"}, {"my", "mya"}, {"ne", "nep"}, {"nl", "nld"}, {"no", "nor"}, {"nn", "nor"},
      {"oc", "oci"}, {"pa", "pan"}, {"pl", "pol"}, {"ps", "pus"}, {"pt", "por"}, {"ro", "ron"}, {"ru", "rus"},
      {"sa", "san"}, {"sd", "snd"}, {"si", "sin"}, {"sk", "slk"}, {"sl", "slv"}, {"sn", "sna"}, {"so", "som"},
      {"sq", "sqi"}, {"sr", "srp"}, {"su", "sun"}, {"sv", "swe"}, {"sw", "swa"}, {"ta", "tam"}, {"te", "tel"},
      {"tg", "tgk"}, {"th", "tha"}, {"tk", "tuk"}, {"tl", "fil"}, {"tr", "tur"}, {"tt", "tat"}, {"uk", "ukr"},
      {"ur", "urd"}, {"uz", "uzb"}, {"vi", "vie"}, {"yi", "yid"}, {"yo", "yor"}, {"yue", "yue"}, {"zh", "zho"}};
  return codes;
}

}  // namespace

std::optional<std::string> normalized(const std::optional<std::string>& code) {
  if (!code) return std::nullopt;
  std::string_view trimmed = internal::trimUnicodeWhitespace(*code);
  if (trimmed.empty()) return std::nullopt;
  const std::string lower = internal::lowercaseASCII(trimmed);
  if (lower == "auto") return std::nullopt;
  for (std::string_view chinese : {"zh-hans", "zh-hant", "zh-cn", "zh-tw", "zh-hk", "zh-sg", "zh-mo"}) {
    if (lower == chinese) return "zho";
  }
  if (supportedCodes().contains(lower)) return lower;
  std::string_view rest = lower;
  while (rest.starts_with('-')) rest.remove_prefix(1);
  if (rest.empty()) return std::nullopt;
  std::string_view first = rest.substr(0, rest.find('-'));
  auto found = iso639_1ToElevenLabs().find(first);
  if (found == iso639_1ToElevenLabs().end()) return std::nullopt;
  return std::string(found->second);
}

}  // namespace orvid::ElevenLabsLanguageSupport
