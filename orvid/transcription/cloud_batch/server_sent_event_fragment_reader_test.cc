#include "orvid/transcription/cloud_batch/server_sent_event_fragment_reader.h"

#include <gtest/gtest.h>

#include "orvid/transcription/cloud_batch/cloud_transcription_response_parser.h"

namespace orvid {
namespace {

std::span<const std::uint8_t> bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(ServerSentEventFragmentReaderTest, GivesTheSameTranscriptWhereverTheStreamIsCut) {
  struct Case {
    const char* name;
    std::string stream;
    std::string transcript;
  };
  const std::vector<Case> cases = {
      {"data lines, an empty text and [DONE]",
       "data: {\"text\":\"open\"}\ndata: {\"text\":\"Finder\"}\ndata: {\"text\":\"\"}\ndata: [DONE]\n", "open Finder"},
      {"CR LF pairs", "data: {\"text\":\"open\"}\r\n\r\ndata: {\"text\":\"Finder\"}\r\n\r\ndata: [DONE]\r\n",
       "open Finder"},
      {"comments, keep-alives, event names and text that is not JSON",
       ": connected\n\nevent: delta\nid: 1\ndata: {\"text\":\"ünïcode\"}\n:\n\ndata: not json\nretry: 10\n"
       "data: {\"choices\":[{\"delta\":{},\"message\":{\"content\":\"ok\"}}]}",
       "ünïcode ok"},
      {"bare JSON, vertical tab, form feed, next line and the Unicode separators",
       "{\"text\":\"a\"}\v{\"text\":\"b\"}\f{\"text\":\"c\"}\u0085{\"text\":\"d\"}\u2028{\"text\":\"e\"}\u2029",
       "a b c d e"},
      {"a body that is not UTF-8", "data: {\"text\":\"a\"}\n\xff\xfe\n", ""},
      {"nothing usable", "event: ping\n\n: keep-alive\n\ndata: [DONE]\n\n", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(CloudTranscriptionResponseParser().parseStreamFragments(Bytes(c.stream.begin(), c.stream.end())).text,
              c.transcript);
    // Two cuts anywhere, including inside a multi-byte character or line end.
    for (std::size_t first = 0; first <= c.stream.size(); ++first) {
      for (std::size_t second = first; second <= c.stream.size(); second += 3) {
        ServerSentEventFragmentReader reader;
        const std::string_view stream = c.stream;
        reader.append(bytes(stream.substr(0, first)));
        reader.append(bytes(stream.substr(first, second - first)));
        reader.append(bytes(stream.substr(second)));
        ASSERT_EQ(reader.finish().text, c.transcript) << "cut at " << first << " and " << second;
      }
    }
  }
}

}  // namespace
}  // namespace orvid
