#include "orvid/transcription/transcription_prompt_library.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string_view>

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "orvid/core/corelib/orvid_defaults.h"

namespace orvid {
namespace {

const std::map<std::string, std::string>& legacyBuiltInPromptIDs() {
  static const std::map<std::string, std::string> ids{
      {"correct", "default_correct"},
      {"improve", "default_improve"},
      {"restructure", "default_restructure"},
      {"translate", "default_translate"},
  };
  return ids;
}

// Compares names as the current locale sorts them, ignoring case.
class NameOrder {
 public:
  NameOrder() {
    // The POSIX locale's collation orders by code point and upper case first; the
    // root collation is what a case-insensitive, language-neutral order means there.
    icu::Locale locale = icu::Locale::getDefault();
    if (std::string_view(locale.getVariant()) == "POSIX") locale = icu::Locale::getRoot();
    UErrorCode status = U_ZERO_ERROR;
    collator_.reset(icu::Collator::createInstance(locale, status));
    if (U_FAILURE(status)) {
      collator_.reset();
    } else {
      collator_->setStrength(icu::Collator::SECONDARY);
    }
  }

  // Negative, zero or positive as `a` sorts before, with or after `b`.
  int compare(const std::string& a, const std::string& b) const {
    if (collator_) {
      UErrorCode status = U_ZERO_ERROR;
      auto result = collator_->compare(icu::UnicodeString::fromUTF8(a), icu::UnicodeString::fromUTF8(b), status);
      if (U_SUCCESS(status)) return static_cast<int>(result);
    }
    auto folded = [](const std::string& text) {
      icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
      unicode.foldCase();
      std::string out;
      unicode.toUTF8String(out);
      return out;
    };
    return folded(a).compare(folded(b));
  }

 private:
  std::unique_ptr<icu::Collator> collator_;
};

}  // namespace

std::vector<TranscriptionPrompt> TranscriptionPromptLibrary::mergedPrompts(
    const std::vector<TranscriptionPrompt>& storedPrompts) {
  if (storedPrompts.empty()) return OrvidDefaults::builtInPrompts();
  std::vector<TranscriptionPrompt> prompts = storedPrompts;
  const NameOrder order;
  std::stable_sort(prompts.begin(), prompts.end(), [&](const TranscriptionPrompt& a, const TranscriptionPrompt& b) {
    if (a.sortOrder != b.sortOrder) return a.sortOrder < b.sortOrder;
    return order.compare(a.name, b.name) < 0;
  });
  return prompts;
}

std::string TranscriptionPromptLibrary::normalizedSelectedPromptID(
    const std::optional<std::string>& id, const std::vector<TranscriptionPrompt>& availablePrompts) {
  if (!id) return TranscriptionPrompt::fallbackPromptID;
  std::string candidate = *id;
  if (auto legacy = legacyBuiltInPromptIDs().find(candidate); legacy != legacyBuiltInPromptIDs().end()) {
    candidate = legacy->second;
  }
  bool available = std::any_of(availablePrompts.begin(), availablePrompts.end(),
                               [&](const TranscriptionPrompt& prompt) { return prompt.id == candidate; });
  return available ? candidate : TranscriptionPrompt::fallbackPromptID;
}

}  // namespace orvid
