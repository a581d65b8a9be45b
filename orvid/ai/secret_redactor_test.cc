#include "orvid/ai/secret_redactor.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/ai/internal/secret_replacement.h"

namespace orvid {
namespace {

TEST(SecretRedactorTest, ReplacesTheSecretAfterEachLabelAndKeepsTheLabel) {
  struct Case { std::string input; std::string expected; };
  const std::vector<Case> cases = {
      {"Authorization: Bearer abc.def", "Authorization: Bearer [REDACTED]"},
      {"api_key=\"xyz\"", "api_key=\"[REDACTED]\""},
      {"authorization=token ghp_A1b2", "authorization=token [REDACTED]"},
      {"Proxy-Authorization:\tBEARER x+y/z=", "Proxy-Authorization:\tBEARER [REDACTED]"},
      {"Token  a.b.c", "Token  [REDACTED]"},
      {"X-API-KEY: sk-ant-999", "X-API-KEY: [REDACTED]"},
      {"{\"apiKey\": \"k1\", \"model\": \"m\"}", "{\"apiKey\": \"[REDACTED]\", \"model\": \"m\"}"},
      {"apikey = 'q9';rest", "apikey = '[REDACTED]';rest"},
      {"X-Goog-Api-Key: AIzaSy0", "X-Goog-Api-Key: [REDACTED]"},
      {"x-auth-token=abc\\n", "x-auth-token=[REDACTED]\\n"},
      {"X-Client-Secret: s3cr3t}", "X-Client-Secret: [REDACTED]}"},
      {"x-dashscope-credential:zz,next", "x-dashscope-credential:[REDACTED],next"},
      // "token" right after ":" or "=" is a value, not a label of its own.
      {"mode=token abc", "mode=token abc"},
      {"no credentials in here", "no credentials in here"},
      // Labels glued to an escape or an invisible character before them.
      {R"({"error":"Invalid header:\nBearer sk-live-1"})", R"({"error":"Invalid header:\nBearer [REDACTED]"})"},
      {R"(bad\tToken ab.c)", R"(bad\tToken [REDACTED])"},
      {R"(x\u200bBearer k9)", R"(x\u200bBearer [REDACTED])"},
      {R"(x\u200B\nAuthorization:Bearer q)", R"(x\u200B\nAuthorization:Bearer [REDACTED])"},
      {R"(sent\napikey=k2)", R"(sent\napikey=[REDACTED])"},
      {"line%0Ax-auth-token: t7", "line%0Ax-auth-token: [REDACTED]"},
      {"header\u200bBearer k3", "header\u200bBearer [REDACTED]"},
      {"hidden\xef\xbb\xbf" "Bearer k4", "hidden\xef\xbb\xbf" "Bearer [REDACTED]"},
      {"zero\u200b", "zero\u200b"},
      {"api_key=x\u200b" "Bearer sk-9", "api_key=[REDACTED] [REDACTED]"},
      {"\u2060x-api-key: [s{token sk-8", "\u2060x-api-key: [REDACTED] [REDACTED]"},
      {R"("apiKey": "k7%0AX-Auth-Token: sk-6")", R"("apiKey": "[REDACTED]X-Auth-Token: [REDACTED]")"},
      {"api_key=token abc", "api_key=[REDACTED] abc"},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(SecretRedactor::redact(testCase.input), testCase.expected) << testCase.input;
  }
}

TEST(SecretRedactorTest, RedactsEverySecretOfALongTextOnceAndChangesNothingElse) {
  std::string input;
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    const std::string n = std::to_string(i);
    input += "Ünïcödé 文本 🙂 status 429: x-api-key: S" + n + "-k.e_y apiKey='T" + n + "'; Bearer U" + n + "\n";
    expected += "Ünïcödé 文本 🙂 status 429: x-api-key: [REDACTED] apiKey='[REDACTED]'; Bearer [REDACTED]\n";
  }
  EXPECT_EQ(SecretRedactor::redact(input), expected);
  EXPECT_EQ(SecretRedactor::redact(expected), expected);
}

TEST(SecretRedactorTest, KeepsMalformedUTF8AroundSecretsByteForByte) {
  const std::string broken = "\xff\xfe\xc3";
  const std::string input = broken + " Authorization: Bearer abc " + broken + "\x80 x-api-key: k " + broken;
  const std::string expected =
      broken + " Authorization: Bearer [REDACTED] " + broken + "\x80 x-api-key: [REDACTED] " + broken;
  EXPECT_EQ(SecretRedactor::redact(input), expected);
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
