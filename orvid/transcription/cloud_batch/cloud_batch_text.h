#pragma once

#include <string>
#include <string_view>

#include "orvid/platform/bytes.h"

// Text helpers shared by the cloud batch transcription paths.
namespace orvid::CloudBatchText {

// `text` without leading and trailing white space and line ends, Unicode ones
// included (U+0085, U+00A0, U+1680, U+2000 to U+200A, U+2028, U+2029, U+202F,
// U+205F, U+3000). Bytes that are not UTF-8 are kept.
std::string trimmed(std::string_view text);

// True when `text` is well-formed UTF-8 (no overlong forms, surrogates or values
// beyond U+10FFFF).
bool isValidUTF8(std::string_view text);

// `data` as text when it is well-formed UTF-8; the empty text otherwise.
std::string decodedUTF8(const Bytes& data);

}  // namespace orvid::CloudBatchText
