#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvid {

// A script automation as a language model proposes it: a title, the shell command
// that runs it and, for multi-line work, a script that the command reaches as
// "$SCRIPT".
struct AutomationScriptProposal {
  std::string title;
  std::string command;
  // Absent when the command does all the work.
  std::optional<std::string> script;

  // There is a command or a script to run.
  bool isRunnable() const { return !command.empty() || (script && !script->empty()); }

  bool operator==(const AutomationScriptProposal&) const = default;
};

// Reads script proposals from model answers and writes them in the canonical text
// form that travels with a proposal until it runs.
namespace AutomationScriptDecoder {

// Decodes a model's answer: a JSON object with the string fields "title",
// "command" and "script", on its own, inside a ``` fence or surrounded by prose.
// Texts are trimmed; an empty script is absent; a missing title is taken from the
// command. Absent when no such object is found (an object with only a title is
// returned, not runnable).
std::optional<AutomationScriptProposal> structuredProposal(std::string_view text);

// The canonical text of a runnable proposal: a compact JSON object with the keys
// "command", "script" and "title" in this order ("script" omitted when absent).
// A script without a command gets the command that runs it with its interpreter.
// Empty when the proposal is not runnable.
std::string canonicalOutput(const AutomationScriptProposal& proposal);

// The proposal to run for `text`: a runnable structured proposal, completed as in
// canonicalOutput. When `text` holds no proposal and `allowsRawCommand` is true,
// non-JSON text (without a surrounding ``` fence) is taken as the command itself.
// Absent when there is nothing to run.
std::optional<AutomationScriptProposal> runnableProposal(std::string_view text, bool allowsRawCommand);

}  // namespace AutomationScriptDecoder

// Short titles for automation requests and instructions.
namespace AutomationTitleExtractor {

// A one-line title for `text`: the "title" (else "summary") string of a JSON
// object; otherwise the first non-empty line without Markdown markers, quotes or
// a trailing full stop or colon, white space collapsed, cut at a word boundary to
// at most 60 characters with "…" appended when cut. Absent for blank text and for
// JSON without such a member.
std::optional<std::string> title(std::string_view text);

}  // namespace AutomationTitleExtractor

}  // namespace orvid
