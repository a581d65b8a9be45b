#include "orvid/core/corelib/json_support.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/core/corelib/local_transcription_model.h"

namespace orvid {
namespace {

using namespace std::chrono;

TEST(JSONSupportTest, DatesAreStrictISO8601WithinTheClocksRange) {
  struct Case { std::string text; std::optional<long long> millisSinceEpoch; };
  const std::vector<Case> cases = {
      {"1970-01-01T00:00:00Z", 0},
      {"2026-11-23T08:15:02.125Z", 1795421702125},
      {"2026-11-23T08:15:02.1259Z", 1795421702125},
      {"1969-12-31T23:59:59.5Z", -500},
      {"2262-04-11T00:00:00Z", 9223286400000},
      {"2300-01-01T00:00:00Z", std::nullopt},  // past what nanoseconds in 64 bits hold
      {"1600-01-01T00:00:00Z", std::nullopt},
      {"9999-12-31T23:59:59Z", std::nullopt},
      {"25-11-24T16:00:00Z", std::nullopt},    // a two-digit year is not a year
      {"+202-11-24T16:00:00Z", std::nullopt},
      {"2026-1-24T16:00:00Z", std::nullopt},
      {"2026-11-24T 6:00:00Z", std::nullopt},
      {"2026-11-24T16:00:00", std::nullopt},
      {"2026-11-24T16:00:00.Z", std::nullopt},
      {"2026-11-24T16:00:00Zjunk", std::nullopt},
      {"2026-02-30T16:00:00Z", std::nullopt},
      {"2026-11-24T24:00:00Z", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    auto parsed = json_support::parseISO8601(text);
    ASSERT_EQ(parsed.has_value(), expected.has_value());
    if (expected) {
      EXPECT_EQ(duration_cast<milliseconds>(parsed->time_since_epoch()).count(), *expected);
    }
  }
  EXPECT_THROW(nlohmann::json("2300-01-01T00:00:00Z").get<system_clock::time_point>(), nlohmann::json::exception);
}

TEST(JSONSupportTest, IntegersRejectFractionsAndWhatTheTypeCannotHold) {
  struct Case { nlohmann::json value; std::optional<std::int32_t> expected; };
  const std::vector<Case> cases = {
      {42, 42},
      {-7, -7},
      {5.0, 5},
      {-2147483648.0, INT32_MIN},
      {2147483647, INT32_MAX},
      {2147483648.0, std::nullopt},
      {2147483648, std::nullopt},
      {5.5, std::nullopt},
      {5.5e114, std::nullopt},
      {18446744073709551615ULL, std::nullopt},
      {"5", std::nullopt},
      {nullptr, std::nullopt},
  };
  for (const auto& [value, expected] : cases) {
    SCOPED_TRACE(value.dump());
    if (expected) {
      EXPECT_EQ(json_support::integer<std::int32_t>(value), *expected);
    } else {
      EXPECT_THROW(json_support::integer<std::int32_t>(value), nlohmann::json::exception);
    }
  }
  EXPECT_EQ(json_support::integer<std::uint64_t>(nlohmann::json(18446744073709551615ULL)), UINT64_MAX);
  EXPECT_THROW(json_support::integer<std::int64_t>(nlohmann::json(9223372036854775808.0)), nlohmann::json::exception);
}

TEST(JSONSupportTest, ARecordRejectsANumberItsFieldCannotHold) {
  auto descriptor = nlohmann::json::parse(R"({"id":"m","name":"M","fileName":"m.bin","approximateSizeMB":5.5e114,
      "isDirectory":false,"engineType":"whisperCpp","languageCodes":[],"artifactFormat":"whisperCppModel"})");
  EXPECT_THROW(descriptor.get<LocalTranscriptionModelDescriptor>(), nlohmann::json::exception);
}

}  // namespace
}  // namespace orvid
