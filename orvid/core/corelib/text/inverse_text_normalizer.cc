#include "orvid/core/corelib/text/inverse_text_normalizer.h"

#include "orvid/platform/internal/text.h"

// The English and Chinese rules live in english_number_normalizer.cc and
// chinese_number_normalizer.cc.
namespace orvid {

std::string InverseTextNormalizer::normalize(std::string_view text, std::string_view language) {
  std::string code = internal::lowercaseASCII(language);
  std::string primary = code.substr(0, code.find_first_of("-_"));
  if (primary.empty() || primary == "auto") return normalizeEnglish(normalizeChinese(text));
  if (primary == "en") return normalizeEnglish(text);
  if (primary == "zh" || primary == "yue" || primary == "cmn" || primary == "wuu") return normalizeChinese(text);
  return std::string(text);
}

}  // namespace orvid
