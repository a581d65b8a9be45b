#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace orvid {

// One piece of text from Soniox's real-time service, final or still tentative.
struct SonioxRealtimeToken {
  std::string text;
  bool isFinal = false;
  std::optional<std::string> language;
  std::optional<std::string> translationStatus;

  bool operator==(const SonioxRealtimeToken&) const = default;
};

// The text of a Soniox dictation built from its tokens: the final text so far
// (`committedText`), the service's current guess at what follows
// (`tentativeText`), and the languages the final tokens were spoken in.
struct SonioxRealtimeTokenAccumulator {
  std::string committedText;
  std::string tentativeText;
  std::set<std::string> finalizedSourceLanguages;

  // Takes one message's tokens, drops the "<end>" and "<fin>" markers, and returns
  // displayText(). The final tokens' text replaces `committedText` when it starts
  // with it (the service re-sent everything) and is appended otherwise; the
  // non-final tokens' text replaces `tentativeText`. Final source-language tokens
  // add their language ("_" written "-"; Simplified and Traditional Chinese tags
  // become "zh-Hans" and "zh-Hant").
  std::string ingest(const std::vector<SonioxRealtimeToken>& tokens);

  // `committedText` followed directly by `tentativeText`.
  std::string displayText() const { return committedText + tentativeText; }

  bool operator==(const SonioxRealtimeTokenAccumulator&) const = default;
};

}  // namespace orvid
