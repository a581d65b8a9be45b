#include "orvid/ai/json_value.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

JSONValue decoded(const char* text) { return nlohmann::json::parse(text).get<JSONValue>(); }

TEST(JSONValueTest, DecodesEachKindTryingBooleansBeforeNumbers) {
  struct Case { const char* text; JSONValue expected; };
  const Case cases[] = {
      {"true", JSONValue::boolean(true)},
      {"false", JSONValue::boolean(false)},
      {"-2.5e3", JSONValue::number(-2500.0)},
      {"18446744073709551615", JSONValue::number(18446744073709551615.0)},
      {"null", JSONValue::null()},
      {"\"ünï\"", JSONValue::string("ünï")},
      {R"({"list":[1,"a",true,null,{"x":[]}]})",
       JSONValue::object(
           {{"list", JSONValue::array({JSONValue::number(1), JSONValue::string("a"), JSONValue::boolean(true),
                                       JSONValue::null(), JSONValue::object({{"x", JSONValue::array({})}})})}})},
  };
  for (const auto& testCase : cases) EXPECT_EQ(decoded(testCase.text), testCase.expected) << testCase.text;
  EXPECT_NE(decoded("true"), JSONValue::number(1));
  EXPECT_NE(decoded("1"), JSONValue::boolean(true));
}

TEST(JSONValueTest, FoundationValueWritesNullMembersAndEmptyArrays) {
  const auto value = JSONValue::object({{"gone", JSONValue::null()}, {"items", JSONValue::array({})}});
  EXPECT_EQ(value.foundationValue().dump(), R"({"gone":null,"items":[]})");
}

}  // namespace
}  // namespace orvid
