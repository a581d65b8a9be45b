#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvid {

// The typographic rules of AutocorrectRules, in the order format() applies them.
// "CJK" below means Han, Hiragana, Katakana and Bopomofo: scripts written
// without spaces between words. Each rule is switched by its name (rawValue):
//
//  "noSpaceBetweenCJK"        Horizontal white space between two CJK characters is
//                             removed: "你 好 世界" -> "你好世界".
//  "fullWidthPunctuation"     , . ; : ! ? following a CJK character, or between a Latin
//                             word or number and a CJK character (white space between
//                             allowed), become ， 。 ； ： ！ ？, and "..." after a CJK
//                             character becomes "……"; white space around full-width
//                             marks is removed: "你好 , 世界." -> "你好，世界。",
//                             "用App,很好" -> "用App，很好".
//  "spacingAroundPunctuation" After a Latin letter or digit: no white space before
//                             , . ; : ! ?; exactly one space after , ; ! ? when a letter
//                             or digit follows (not inside numbers like "1,000"), and
//                             after . and : when a lower-case letter or digit precedes
//                             and a capitalised word follows ("end.Next" ->
//                             "end. Next"; "example.com", "U.S.A", "file.TXT" and
//                             "10:30" stay). A dot or colon that starts a word
//                             (".NET") keeps the space before it.
//  "spaceBetweenCJKAndLatin"  One space between a CJK character and an adjacent Latin
//                             word; a Latin word may end in + or # ("用C++写" -> "用 C++ 写").
//  "spaceBetweenCJKAndDigits" One space between a CJK character and an adjacent number;
//                             a number may start with $ € £ ¥ and end in % ‰ or °
//                             ("共3个" -> "共 3 个", "涨了5%的" -> "涨了 5% 的").
//  "sentenceCapitalization"   The first word of the text and of every sentence (after
//                             . ! ? and white space, or after 。！？) gets an upper-case
//                             first letter when the word is all lower-case Latin letters
//                             and is not the start of a dotted name or identifier
//                             ("www.example.com", "x1"); the word after a known
//                             abbreviation ("etc.", "Dr."), an initial or an initialism
//                             ("e.g.", "U.S.") or an ellipsis is left alone.
//
// Web and e-mail addresses ("https://example.com/a,b", "www.example.com",
// "name@example.com") are left alone by the punctuation and capitalisation rules;
// punctuation right after them still counts, and a dot right after one ends a
// sentence ("visit www.example.com. next" -> "Visit www.example.com. Next").
enum class AutocorrectRule {
  noSpaceBetweenCJK,
  fullWidthPunctuation,
  spacingAroundPunctuation,
  spaceBetweenCJKAndLatin,
  spaceBetweenCJKAndDigits,
  sentenceCapitalization,
};

// The rule's name, e.g. "spaceBetweenCJKAndLatin".
std::string rawValue(AutocorrectRule rule);
// The rule with that name; absent for an unknown name.
std::optional<AutocorrectRule> autocorrectRule(std::string_view name);

// Autocorrect formatting of dictated text: a fixed set of typographic rules
// for mixed CJK and Latin text, each switchable by name. A default instance has
// every rule on. Values are independent; one instance may format on several
// threads at once as long as no thread switches rules meanwhile.
class AutocorrectRules {
 public:
  AutocorrectRules();

  // Every rule, in the order format() applies them.
  static const std::vector<AutocorrectRule>& allRules();

  // Switches the named rules on (true) or off (false). Unknown names are
  // ignored; rules not named keep their current state.
  void applyRules(const std::map<std::string, bool>& rules);
  void setEnabled(AutocorrectRule rule, bool enabled);
  bool isEnabled(AutocorrectRule rule) const;

  // The text with every enabled rule applied in the order of allRules().
  // Text that no rule changes comes back byte for byte (malformed UTF-8
  // included); otherwise malformed sequences are read as U+FFFD.
  std::string format(std::string_view text) const;

 private:
  std::vector<bool> enabled_;
};

}  // namespace orvid
