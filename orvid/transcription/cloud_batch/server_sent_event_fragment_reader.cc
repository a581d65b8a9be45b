#include "orvid/transcription/cloud_batch/server_sent_event_fragment_reader.h"

#include <nlohmann/json.hpp>

#include "orvid/platform/internal/text.h"
#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"

namespace orvid {
namespace {

using internal::trimUnicodeWhitespace;

// The length of the line end starting at `text[at]`: 1 for the ASCII ones, 2 for
// next line (C2 85), 3 for the line and paragraph separators (E2 80 A8/A9); 0 when
// there is none; -1 when the text ends inside what may still become one.
int lineEndLength(std::string_view text, std::size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte >= 0x0A && byte <= 0x0D) return 1;
  const std::size_t left = text.size() - at;
  if (byte == 0xC2) {
    if (left < 2) return -1;
    return static_cast<unsigned char>(text[at + 1]) == 0x85 ? 2 : 0;
  }
  if (byte == 0xE2) {
    if (left < 2) return -1;
    if (static_cast<unsigned char>(text[at + 1]) != 0x80) return 0;
    if (left < 3) return -1;
    const auto last = static_cast<unsigned char>(text[at + 2]);
    return last == 0xA8 || last == 0xA9 ? 3 : 0;
  }
  return 0;
}

}  // namespace

void ServerSentEventFragmentReader::append(std::span<const std::uint8_t> bytes) {
  const std::size_t resumeAt = pending_.size();
  pending_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  // Bytes before resumeAt hold no complete line end, but the last two may begin one.
  std::size_t at = resumeAt >= 2 ? resumeAt - 2 : 0;
  std::size_t lineStart = 0;
  while (at < pending_.size()) {
    const int length = lineEndLength(pending_, at);
    if (length < 0) break;
    if (length == 0) {
      ++at;
      continue;
    }
    readLine(std::string_view(pending_).substr(lineStart, at - lineStart));
    at += static_cast<std::size_t>(length);
    lineStart = at;
  }
  pending_.erase(0, lineStart);
}

TranscriptionResult ServerSentEventFragmentReader::finish() {
  readLine(pending_);
  pending_.clear();
  TranscriptionResult result;
  if (!validUTF8_) return result;
  std::string text;
  for (const auto& fragment : fragments_) {
    if (!text.empty()) text += ' ';
    text += fragment;
  }
  result.text = std::string(trimUnicodeWhitespace(text));
  fragments_.clear();
  return result;
}

void ServerSentEventFragmentReader::readLine(std::string_view line) {
  if (line.empty() || !validUTF8_) return;
  if (!internal::isValidUTF8(line)) {
    validUTF8_ = false;
    fragments_.clear();
    return;
  }
  std::string_view content = trimUnicodeWhitespace(line);
  if (content.starts_with("data:")) content = trimUnicodeWhitespace(content.substr(5));
  if (content.empty() || content == "[DONE]") return;
  // Like a JSON reader without options: only an object or an array is a document.
  if (content.front() != '{' && content.front() != '[') return;
  auto value = nlohmann::json::parse(content, nullptr, false);
  if (value.is_discarded()) return;
  if (auto text = CloudTranscriptionResponseParser::extractText(value)) fragments_.push_back(std::move(*text));
}

}  // namespace orvid
