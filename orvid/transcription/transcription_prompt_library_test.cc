#include "orvid/transcription/transcription_prompt_library.h"

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include "orvid/core/corelib/orvid_defaults.h"

namespace orvid {
namespace {

TranscriptionPrompt prompt(std::string id, std::string name, int sortOrder) {
  TranscriptionPrompt p;
  p.id = std::move(id);
  p.name = std::move(name);
  p.sortOrder = sortOrder;
  p.promptText = "Rewrite.";
  return p;
}

std::vector<std::string> idsOf(const std::vector<TranscriptionPrompt>& prompts) {
  std::vector<std::string> ids;
  for (const auto& p : prompts) ids.push_back(p.id);
  return ids;
}

TEST(TranscriptionPromptLibraryTest, NoStoredPromptsGivesTheBuiltInOnes) {
  ASSERT_FALSE(OrvidDefaults::builtInPrompts().empty());
  EXPECT_EQ(TranscriptionPromptLibrary::mergedPrompts({}), OrvidDefaults::builtInPrompts());
}

// Runs a test under a given ICU default locale, restoring the previous one.
class DefaultLocale {
 public:
  explicit DefaultLocale(const char* name) : previous_(icu::Locale::getDefault()) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale(name), status);
  }
  ~DefaultLocale() {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(previous_, status);
  }

 private:
  icu::Locale previous_;
};

TEST(TranscriptionPromptLibraryTest, StoredPromptsAreSortedByOrderThenByNameIgnoringCase) {
  const std::vector<TranscriptionPrompt> stored{
      prompt("late", "Aardvark", 5),   prompt("b", "beta", 1),        prompt("a2", "Alpha", 1),
      prompt("a1", "alpha", 1),        prompt("first", "Zulu", 0),    prompt("apple", "Äpfel", 2),
      prompt("banana", "Banane", 2),   prompt("negative", "Middle", -3),
  };
  // Equal names in different case keep their stored order; "Äpfel" sorts with the
  // A's, not after "Banane" as its bytes would.
  const std::vector<std::string> expected{"negative", "first", "a2", "a1", "b", "apple", "banana", "late"};
  for (const char* locale : {"en_US", "de_DE", "en_US_POSIX"}) {
    DefaultLocale scoped(locale);
    EXPECT_EQ(idsOf(TranscriptionPromptLibrary::mergedPrompts(stored)), expected) << locale;
  }
  const auto merged = TranscriptionPromptLibrary::mergedPrompts(stored);
  for (const auto& p : merged) {
    EXPECT_NE(p.id, OrvidDefaults::builtInPrompts().front().id) << "built-in prompts are never merged in";
  }
}

TEST(TranscriptionPromptLibraryTest, SelectedIdentifierIsTranslatedAndCheckedAgainstTheAvailablePrompts) {
  const std::vector<TranscriptionPrompt> available{prompt("default_improve", "Improve", 1),
                                                   prompt("default_translate", "Translate", 3),
                                                   prompt("custom-1", "Mine", 4)};
  const std::string fallback = TranscriptionPrompt::fallbackPromptID;
  struct Row { std::optional<std::string> id; std::string expected; };
  const Row rows[] = {
      {"improve", "default_improve"},
      {"default_improve", "default_improve"},
      {"custom-1", "custom-1"},
      {"Custom-1", fallback},
      {"correct", fallback},
      {"", fallback},
      {std::nullopt, fallback},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(TranscriptionPromptLibrary::normalizedSelectedPromptID(row.id, available), row.expected)
        << row.id.value_or("(absent)");
  }
  EXPECT_EQ(TranscriptionPromptLibrary::normalizedSelectedPromptID("correct", OrvidDefaults::builtInPrompts()),
            "default_correct");
}

}  // namespace
}  // namespace orvid
