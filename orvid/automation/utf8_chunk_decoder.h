#pragma once

#include <string>
#include <string_view>

namespace orvid {

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
