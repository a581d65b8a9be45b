#include "orvid/ai/secret_redactor.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/ai/internal/secret_replacement.h"

namespace orvid {
namespace {

TEST(SecretRedactorTest, ReplacesTheSecretAfterEachLabelAndKeepsTheLabel) {
  struct Case {
    std::string input;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"Authorization: Bearer abc.def", "Authorization: Bearer [REDACTED]"},
      {"api_key=\"xyz\"", "api_key=\"[REDACTED]\""},
      {"authorization=token ghp_A1b2", "authorization=token [REDACTED]"},
      {"Proxy-Authorization:\tBEARER x+y/z=", "Proxy-Authorization:\tBEARER [REDACTED]"},
      {"curl -H 'bearer sk-123~456'", "curl -H 'bearer [REDACTED]'"},
      {"Token  a.b.c", "Token  [REDACTED]"},
      {"X-API-KEY: sk-ant-999", "X-API-KEY: [REDACTED]"},
      {"{\"apiKey\": \"k1\", \"model\": \"m\"}", "{\"apiKey\": \"[REDACTED]\", \"model\": \"m\"}"},
      {"{\"api-key\":\"k2\"}", "{\"api-key\":\"[REDACTED]\"}"},
      {"apikey = 'q9';rest", "apikey = '[REDACTED]';rest"},
      {"X-Goog-Api-Key: AIzaSy0", "X-Goog-Api-Key: [REDACTED]"},
      {"x-auth-token=abc\\n", "x-auth-token=[REDACTED]\\n"},
      {"X-Client-Secret: s3cr3t}", "X-Client-Secret: [REDACTED]}"},
      {"x-dashscope-credential:zz,next", "x-dashscope-credential:[REDACTED],next"},
      // "token" right after ":" or "=" is a value, not a label of its own.
      {"mode=token abc", "mode=token abc"},
      {"no credentials in here", "no credentials in here"},
      {"", ""},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(SecretRedactor::redact(testCase.input), testCase.expected) << testCase.input;
  }
}

// Secrets in several notations, each with the form it must take after redaction.
struct Notation {
  std::string prefix;
  std::string suffix;
};

const std::vector<Notation> kNotations = {
    {"Authorization: Bearer ", ""},
    {"proxy-authorization=token ", ""},
    {"bearer ", ""},
    {"x-api-key: ", ""},
    {"\"api_key\": \"", "\""},
    {"apiKey='", "';"},
    {"X-Auth-Token=", ","},
    {"x-openrouter-secret: ", ""},
    {"{\"X-Goog-Api-Key\":\"", "\"}"},
};

const std::vector<std::string> kFiller = {
    "The", "quick", "brown", "fox", "jumps", "over", "the", "lazy", "dog.", "Ünïcödé", "文本", "🙂",
    "request", "failed", "with", "status", "429:", "{\"error\":", "\"rate", "limited\"}", "retry", "later;",
    "model=gpt-4o", "host:", "api.example.com", "path=/v1/chat/completions", "id", "=", "42", "\n", "\t",
};

std::string randomSecret(std::mt19937& generator) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
  std::uniform_int_distribution<size_t> length(8, 60);
  std::uniform_int_distribution<size_t> pick(0, alphabet.size() - 1);
  // A fixed first character keeps every secret distinct from filler words.
  std::string secret = "S";
  for (size_t count = length(generator); count > 0; --count) secret += alphabet[pick(generator)];
  return secret;
}

TEST(SecretRedactorTest, RemovesEverySecretFromLongTextsAndChangesNothingElse) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    std::mt19937 generator(seed);
    std::uniform_int_distribution<size_t> fillerPick(0, kFiller.size() - 1);
    std::uniform_int_distribution<size_t> notationPick(0, kNotations.size() - 1);
    std::uniform_int_distribution<int> percent(0, 99);

    std::string input;
    std::string expected;
    std::vector<std::string> secrets;
    for (int word = 0; word < 2000; ++word) {
      if (percent(generator) < 3) {
        const auto& notation = kNotations[notationPick(generator)];
        std::string secret = randomSecret(generator);
        input += notation.prefix + secret + notation.suffix;
        expected += notation.prefix + "[REDACTED]" + notation.suffix;
        secrets.push_back(secret);
      } else {
        const auto& filler = kFiller[fillerPick(generator)];
        input += filler;
        expected += filler;
      }
      input += ' ';
      expected += ' ';
    }
    ASSERT_FALSE(secrets.empty());

    const std::string redacted = SecretRedactor::redact(input);
    EXPECT_EQ(redacted, expected) << "seed " << seed;
    for (const auto& secret : secrets) {
      EXPECT_EQ(redacted.find(secret), std::string::npos) << "seed " << seed << " kept " << secret;
    }
  }
}

TEST(SecretRedactorTest, KeepsMalformedUTF8AroundSecretsByteForByte) {
  const std::string broken = "\xff\xfe\xc3";
  const std::string input = broken + " Authorization: Bearer abc " + broken + "\x80 x-api-key: k " + broken;
  const std::string expected =
      broken + " Authorization: Bearer [REDACTED] " + broken + "\x80 x-api-key: [REDACTED] " + broken;
  EXPECT_EQ(SecretRedactor::redact(input), expected);
}

TEST(SecretRedactorTest, RedactingTwiceGivesTheSameText) {
  const std::string once = SecretRedactor::redact("Authorization: Bearer t1 x-api-key: t2 apiKey=\"t3\" X-Token: t4");
  EXPECT_EQ(SecretRedactor::redact(once), once);
  EXPECT_EQ(once.find("t1"), std::string::npos);
  EXPECT_EQ(once.find("t4"), std::string::npos);
}

TEST(SecretRedactorTest, AnEngineFailureGivesNoTextBack) {
  // Catastrophic backtracking under a tiny time limit makes ICU report an error mid-search.
  UErrorCode status = U_ZERO_ERROR;
  UParseError parseError{};
  std::unique_ptr<icu::RegexPattern> pattern(
      icu::RegexPattern::compile(icu::UnicodeString::fromUTF8("(x-api-key: )(a+)+$"), 0, parseError, status));
  ASSERT_TRUE(U_SUCCESS(status));
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(status));
  ASSERT_TRUE(U_SUCCESS(status));
  matcher->setTimeLimit(1, status);
  EXPECT_EQ(internal::replaceSecrets(*matcher, "x-api-key: " + std::string(40, 'a') + "!"), std::nullopt);
}

}  // namespace
}  // namespace orvid
