// Feeds arbitrary text to AutocorrectRules::format. The first byte switches the six
// rules; the rest is the text. Nothing may throw and the result is deterministic.
// With every rule off, or when no rule changes it, the text comes back byte for
// byte; otherwise the result is well-formed UTF-8. The rule names round-trip.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "orvid/core/corelib/text/autocorrect_rules.h"
#include "orvid/platform/internal/text.h"

namespace {

using orvid::fuzz::require;

using orvid::AutocorrectRule;
using orvid::AutocorrectRules;

std::vector<std::uint8_t> input(std::uint8_t rules, std::string_view text) {
  std::vector<std::uint8_t> bytes = {rules};
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}

orvid::fuzz::Seeds seeds() {
  return {
      {"cjk-spacing", input(0x3F, "你 好 世界,用App,很好.共3个 涨了5%的 用C++写")},
      {"punctuation", input(0x3F, "hello ,world.Next one:two ; 1,000 and 10:30 at example.com. .NET is fine")},
      {"sentences", input(0x20, "first. second! e.g. third etc. fourth... www.example.com. next x1 word")},
      {"mail", input(0x3F, "write to name@example.com,then visit https://example.com/a,b。好")},
      {"malformed", input(0x3F, "\xE4\xBD 好 \xFF, abc")},
      {"off", input(0x00, "你 好 , world.Next")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  AutocorrectRules rules;
  const auto& all = AutocorrectRules::allRules();
  bool anyOn = false;
  for (std::size_t i = 0; i < all.size(); ++i) {
    require(orvid::autocorrectRule(orvid::rawValue(all[i])) == all[i], "a rule's name names it");
    const bool on = (data[0] >> i) & 1;
    rules.setEnabled(all[i], on);
    require(rules.isEnabled(all[i]) == on, "a rule is switched as asked");
    anyOn = anyOn || on;
  }

  const std::string formatted = rules.format(text);
  require(rules.format(text) == formatted, "formatting is deterministic");
  if (!anyOn) require(formatted == text, "with every rule off the text is unchanged");
  require(formatted == text || orvid::internal::isValidUTF8(formatted),
          "a changed text is well-formed UTF-8");
  return 0;
}
