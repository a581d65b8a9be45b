// Feeds arbitrary text to AutomationScriptDecoder and AutomationTitleExtractor as a
// model's answer. The first byte says whether a raw command is allowed; the rest is
// the answer. Nothing may throw. A structured proposal has trimmed texts and no empty
// script; a runnable proposal is runnable, and its canonical text is a stable,
// compact JSON object that, for well-formed UTF-8, decodes back to the same
// proposal; a title is one non-blank line of at most 60 characters and "…".
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/core/corelib/automation_script_decoder.h"
#include "orvid/platform/internal/text.h"

namespace {

using orvid::fuzz::require;

using orvid::AutomationScriptProposal;
namespace AutomationScriptDecoder = orvid::AutomationScriptDecoder;
namespace internal = orvid::internal;

std::vector<std::uint8_t> withRaw(std::uint8_t raw, std::string_view answer) {
  std::vector<std::uint8_t> input = {raw};
  input.insert(input.end(), answer.begin(), answer.end());
  return input;
}

bool isTrimmed(std::string_view text) { return internal::trimASCIIWhitespace(text) == text; }

// Characters as UTF-8 counts them: bytes that do not continue a sequence.
std::size_t characters(std::string_view text) {
  std::size_t count = 0;
  for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return count;
}

orvid::fuzz::Seeds seeds() {
  return {
      {"fenced", withRaw(0, "Here you go:\n```json\n{\"title\": \" List files \", \"command\": \"ls -la\", "
                            "\"script\": \"\"}\n```\nAnything else?")},
      {"script-only", withRaw(1, R"({"title":"Count","script":"#!/usr/bin/env python3\nprint(1)\n"})")},
      {"prose", withRaw(1, "Sure! {\"command\": \"echo \\\"}\\\"\"} and then {\"title\": \"x\"}")},
      {"raw", withRaw(1, "open -a Safari https://example.com")},
      {"title", withRaw(0, "## **Summarise the last three e-mails from my manager about the quarterly report**:\n")},
      {"nested", withRaw(0, R"([{"summary":"a","command":{"x":1}}])")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool allowsRawCommand = data[0] % 2 == 1;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  if (const auto proposal = AutomationScriptDecoder::structuredProposal(text)) {
    require(isTrimmed(proposal->title) && isTrimmed(proposal->command), "texts are trimmed");
    require(!proposal->script || (!proposal->script->empty() && isTrimmed(*proposal->script)),
            "a script is trimmed and not empty");
    const std::string canonical = AutomationScriptDecoder::canonicalOutput(*proposal);
    require(canonical.empty() != proposal->isRunnable(), "only a runnable proposal has a canonical text");
  }

  const auto runnable = AutomationScriptDecoder::runnableProposal(text, allowsRawCommand);
  if (runnable) {
    require(runnable->isRunnable(), "a proposal to run is runnable");
    require(!runnable->command.empty(), "a proposal to run has its command");
    const std::string canonical = AutomationScriptDecoder::canonicalOutput(*runnable);
    const auto json = nlohmann::json::parse(canonical, nullptr, false);
    require(!json.is_discarded() && json.is_object() && json.dump() == canonical,
            "the canonical text is a compact JSON object");
    // Malformed UTF-8 in a raw command is written as U+FFFD, so only well-formed
    // text comes back byte for byte.
    if (internal::isValidUTF8(text)) {
      require(AutomationScriptDecoder::runnableProposal(canonical, false) == runnable,
              "the canonical text decodes to the same proposal");
    }
    require(AutomationScriptDecoder::canonicalOutput(*AutomationScriptDecoder::structuredProposal(canonical)) ==
                canonical,
            "the canonical text is stable");
  }

  if (const auto title = orvid::AutomationTitleExtractor::title(text)) {
    require(!internal::trimUnicodeWhitespace(*title).empty(), "a title is not blank");
    require(title->find('\n') == std::string::npos, "a title is one line");
    const bool cut = title->size() >= 3 && title->ends_with("\xE2\x80\xA6");
    require(characters(*title) <= 60 + (cut ? 1 : 0), "a title has at most 60 characters and the ellipsis");
  }
  return 0;
}
