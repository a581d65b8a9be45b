#include "orvid/core/corelib/automation_script_decoder.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

constexpr std::size_t kMaximumTitleLength = 60;

using internal::lowercaseASCII;
using internal::trimASCIIWhitespace;

// The contents of every ``` fence (an optional language word after the opening
// backticks is dropped), in order.
std::vector<std::string_view> fencedBlocks(std::string_view text) {
  std::vector<std::string_view> blocks;
  std::size_t position = 0;
  while (true) {
    const auto open = text.find("```", position);
    if (open == std::string_view::npos) break;
    auto contentStart = open + 3;
    // Skip a language tag such as "json" or "bash" up to the end of the line.
    std::size_t tagEnd = contentStart;
    while (tagEnd < text.size() && (std::isalnum(static_cast<unsigned char>(text[tagEnd])) || text[tagEnd] == '-' ||
                                    text[tagEnd] == '_' || text[tagEnd] == '+')) {
      ++tagEnd;
    }
    if (tagEnd > contentStart && (tagEnd == text.size() || text[tagEnd] == '\n' || text[tagEnd] == '\r')) {
      contentStart = tagEnd;
    }
    const auto close = text.find("```", contentStart);
    if (close == std::string_view::npos) break;
    blocks.push_back(trimASCIIWhitespace(text.substr(contentStart, close - contentStart)));
    position = close + 3;
  }
  return blocks;
}

// The first {...} object of `text`, braces inside JSON strings skipped.
std::optional<std::string_view> firstBalancedObject(std::string_view text) {
  const auto start = text.find('{');
  if (start == std::string_view::npos) return std::nullopt;
  int depth = 0;
  bool inString = false;
  bool escaped = false;
  for (std::size_t index = start; index < text.size(); ++index) {
    const char c = text[index];
    if (inString) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        inString = false;
      }
      continue;
    }
    if (c == '"') {
      inString = true;
    } else if (c == '{') {
      ++depth;
    } else if (c == '}') {
      if (--depth == 0) return text.substr(start, index - start + 1);
    }
  }
  return std::nullopt;
}

std::optional<nlohmann::json> parseJSON(std::string_view text) {
  auto json = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
  if (json.is_discarded()) return std::nullopt;
  return json;
}

// The title a proposal without one gets: what its command does, else the command.
void giveTitle(AutomationScriptProposal& proposal) {
  if (proposal.title.empty() && !proposal.command.empty()) {
    proposal.title = AutomationTitleExtractor::title(proposal.command).value_or(proposal.command);
  }
}

std::optional<AutomationScriptProposal> proposalFromObject(const nlohmann::json& object) {
  auto title = json_support::stringMember(object, "title");
  auto command = json_support::stringMember(object, "command");
  auto script = json_support::stringMember(object, "script");
  if (!title && !command && !script) return std::nullopt;

  AutomationScriptProposal proposal;
  proposal.title = std::string(trimASCIIWhitespace(title.value_or("")));
  proposal.command = std::string(trimASCIIWhitespace(command.value_or("")));
  if (script && !trimASCIIWhitespace(*script).empty()) proposal.script = std::string(trimASCIIWhitespace(*script));
  giveTitle(proposal);
  return proposal;
}

// The command that runs a script on its own: its "#!" line, else an interpreter
// recognised from its content.
std::string commandRunning(const std::string& script) {
  if (script.rfind("#!", 0) == 0) {
    auto lineEnd = script.find('\n');
    auto firstLine = std::string_view(script).substr(2, lineEnd == std::string::npos ? std::string::npos : lineEnd - 2);
    auto interpreter = trimASCIIWhitespace(firstLine);
    if (!interpreter.empty()) return std::string(interpreter) + " \"$SCRIPT\"";
  }
  const auto lower = lowercaseASCII(script);
  if (lower.find("tell application") != std::string::npos) return "osascript \"$SCRIPT\"";
  if (lower.find("python") != std::string::npos || lower.find("import ") != std::string::npos ||
      lower.find("def ") != std::string::npos) {
    return "python3 \"$SCRIPT\"";
  }
  if (lower.find("ruby") != std::string::npos || lower.find("puts ") != std::string::npos) return "ruby \"$SCRIPT\"";
  return "bash \"$SCRIPT\"";
}

// With the command that runs its script, and a title for that command, so that its
// canonical text reads back as the same proposal.
AutomationScriptProposal completed(AutomationScriptProposal proposal) {
  if (proposal.command.empty() && proposal.script) proposal.command = commandRunning(*proposal.script);
  giveTitle(proposal);
  return proposal;
}

// Counts UTF-8 code points.
std::size_t characterCount(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// The byte offset where the code point number `characters` begins.
std::size_t byteOffsetOfCharacter(std::string_view text, std::size_t characters) {
  std::size_t seen = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if ((static_cast<unsigned char>(text[index]) & 0xC0) != 0x80) {
      if (seen == characters) return index;
      ++seen;
    }
  }
  return text.size();
}

std::string collapsedWhitespace(std::string_view text) {
  std::string result;
  bool pendingSpace = false;
  for (char c : text) {
    if (internal::isASCIIWhitespace(c)) {
      pendingSpace = !result.empty();
    } else {
      if (pendingSpace) result += ' ';
      pendingSpace = false;
      result += c;
    }
  }
  return result;
}

std::string_view withoutMarkers(std::string_view line) {
  line = trimASCIIWhitespace(line);
  // Headings, bullets, quotes and numbered items.
  while (!line.empty() && (line.front() == '#' || line.front() == '>' || line.front() == '-' ||
                           line.front() == '*' || line.front() == '+')) {
    line = trimASCIIWhitespace(line.substr(1));
  }
  std::size_t digits = 0;
  while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits]))) ++digits;
  if (digits > 0 && digits < line.size() && (line[digits] == '.' || line[digits] == ')')) {
    line = trimASCIIWhitespace(line.substr(digits + 1));
  }
  if (auto lower = lowercaseASCII(line.substr(0, 6)); lower == "title:") line = trimASCIIWhitespace(line.substr(6));
  // Matching quotes or backticks around the whole line.
  while (line.size() >= 2 && (line.front() == '"' || line.front() == '\'' || line.front() == '`') &&
         line.back() == line.front()) {
    line = trimASCIIWhitespace(line.substr(1, line.size() - 2));
  }
  while (!line.empty() && (line.back() == '.' || line.back() == ':')) {
    line = trimASCIIWhitespace(line.substr(0, line.size() - 1));
  }
  return line;
}

std::string shortened(const std::string& text) {
  if (characterCount(text) <= kMaximumTitleLength) return text;
  const auto limit = byteOffsetOfCharacter(text, kMaximumTitleLength - 1);
  auto cut = text.rfind(' ', limit);
  if (cut == std::string::npos || cut == 0) cut = limit;
  return std::string(trimASCIIWhitespace(std::string_view(text).substr(0, cut))) + "…";
}

}  // namespace

namespace AutomationScriptDecoder {

std::optional<AutomationScriptProposal> structuredProposal(std::string_view text) {
  const auto whole = trimASCIIWhitespace(text);
  std::vector<std::string_view> candidates{whole};
  for (auto block : fencedBlocks(whole)) candidates.push_back(block);
  if (auto object = firstBalancedObject(whole)) candidates.push_back(*object);

  for (auto candidate : candidates) {
    if (candidate.empty()) continue;
    auto json = parseJSON(candidate);
    if (!json || !json->is_object()) continue;
    if (auto proposal = proposalFromObject(*json)) return proposal;
  }
  return std::nullopt;
}

std::string canonicalOutput(const AutomationScriptProposal& proposal) {
  if (!proposal.isRunnable()) return "";
  const auto complete = completed(proposal);
  nlohmann::ordered_json json;
  json["command"] = complete.command;
  if (complete.script) json["script"] = *complete.script;
  json["title"] = complete.title;
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<AutomationScriptProposal> runnableProposal(std::string_view text, bool allowsRawCommand) {
  const auto whole = trimASCIIWhitespace(text);
  if (whole.empty()) return std::nullopt;
  if (auto proposal = structuredProposal(whole)) {
    if (!proposal->isRunnable()) return std::nullopt;
    return completed(std::move(*proposal));
  }
  if (!allowsRawCommand) return std::nullopt;
  if (auto json = parseJSON(whole); json && (json->is_object() || json->is_array())) return std::nullopt;

  std::string_view command = whole;
  if (command.rfind("```", 0) == 0) {
    auto blocks = fencedBlocks(command);
    if (blocks.empty()) return std::nullopt;
    command = blocks.front();
  }
  if (command.empty()) return std::nullopt;
  AutomationScriptProposal proposal;
  proposal.command = std::string(command);
  proposal.title = AutomationTitleExtractor::title(command).value_or(proposal.command);
  return proposal;
}

}  // namespace AutomationScriptDecoder

namespace AutomationTitleExtractor {

std::optional<std::string> title(std::string_view text) {
  const auto whole = trimASCIIWhitespace(text);
  if (whole.empty()) return std::nullopt;

  if (auto json = parseJSON(whole)) {
    if (!json->is_object()) return std::nullopt;
    for (const char* key : {"title", "summary"}) {
      if (auto value = json_support::stringMember(*json, key)) {
        auto line = std::string(internal::trimUnicodeWhitespace(collapsedWhitespace(trimASCIIWhitespace(*value))));
        if (!line.empty()) return shortened(line);
      }
    }
    return std::nullopt;
  }

  std::size_t position = 0;
  while (position <= whole.size()) {
    auto lineEnd = whole.find('\n', position);
    if (lineEnd == std::string_view::npos) lineEnd = whole.size();
    auto line = whole.substr(position, lineEnd - position);
    position = lineEnd + 1;
    if (trimASCIIWhitespace(line).rfind("```", 0) == 0) continue;
    // Blank in any script's sense is no title.
    auto cleaned = std::string(internal::trimUnicodeWhitespace(collapsedWhitespace(withoutMarkers(line))));
    if (!cleaned.empty()) return shortened(cleaned);
  }
  return std::nullopt;
}

}  // namespace AutomationTitleExtractor

}  // namespace orvid
