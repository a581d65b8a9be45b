#include "orvid/automation/utf8_chunk_decoder.h"

#include "orvid/platform/internal/text.h"

namespace orvid {

std::string UTF8ChunkDecoder::decode(std::string_view chunk) {
  std::string joined = pending_;
  joined.append(chunk);
  auto complete = internal::wholeUTF8CharactersLength(joined);
  if (!complete) {
    pending_.clear();
    return {};
  }
  pending_ = joined.substr(*complete);
  joined.resize(*complete);
  return joined;
}

}  // namespace orvid
