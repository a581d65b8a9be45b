#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "orvid/platform/bytes.h"

namespace orvid {

// True when `data` is well-formed UTF-8 (no overlong forms, surrogates or code
// points above U+10FFFF).
bool isValidUTF8(std::string_view data);

// `data` as text when it is well-formed UTF-8; absent otherwise.
std::optional<std::string> decodeUTF8(std::string_view data);
std::optional<std::string> decodeUTF8(const Bytes& data);
// `data` as text, or the empty text when it is not well-formed UTF-8.
std::string decodeUTF8OrEmpty(std::string_view data);

// Decodes a byte stream that arrives in chunks of arbitrary size. A character cut
// in two by a chunk boundary is held back and completed by the next chunk; a chunk
// that holds a malformed sequence is dropped whole. Not thread-safe.
class UTF8ChunkDecoder {
 public:
  // The text that `chunk` completes; empty when it completes nothing or is malformed.
  std::string decode(std::string_view chunk);

 private:
  std::string pending_;
};

}  // namespace orvid
