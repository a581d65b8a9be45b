#include "orvid/ai/json_value.h"

#include <unordered_set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

JSONValue decoded(const char* text) { return nlohmann::json::parse(text).get<JSONValue>(); }

TEST(JSONValueTest, DecodesEachKindTryingBooleansBeforeNumbers) {
  struct Case {
    const char* text;
    JSONValue expected;
  };
  const Case cases[] = {
      {"true", JSONValue::boolean(true)},
      {"false", JSONValue::boolean(false)},
      {"1", JSONValue::number(1.0)},
      {"-2.5e3", JSONValue::number(-2500.0)},
      {"18446744073709551615", JSONValue::number(18446744073709551615.0)},
      {"null", JSONValue::null()},
      {"\"ünï\"", JSONValue::string("ünï")},
      {"[]", JSONValue::array({})},
      {"{}", JSONValue::object({})},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(decoded(testCase.text), testCase.expected) << testCase.text;
  }
  EXPECT_EQ(decoded("true").kind(), JSONValue::Kind::boolean);
  EXPECT_NE(decoded("true"), JSONValue::number(1));
}

TEST(JSONValueTest, NestedMixedArraysKeepEveryElementsKind) {
  const auto value = decoded(R"({"list":[1,"a",true,null,{"x":[]}],"n":0})");
  const auto expected = JSONValue::object({
      {"list", JSONValue::array({JSONValue::number(1), JSONValue::string("a"), JSONValue::boolean(true),
                                 JSONValue::null(), JSONValue::object({{"x", JSONValue::array({})}})})},
      {"n", JSONValue::number(0)},
  });
  EXPECT_EQ(value, expected);
  ASSERT_NE(value.objectValue(), nullptr);
  const auto& list = *value.objectValue()->at("list").arrayValue();
  EXPECT_EQ(list[2].kind(), JSONValue::Kind::boolean);
  EXPECT_EQ(list[3].kind(), JSONValue::Kind::null);
  EXPECT_EQ(value.stringValue(), nullptr);
}

TEST(JSONValueTest, EncodingAndDecodingAgainGivesAnEqualValue) {
  const JSONValue values[] = {
      JSONValue::number(2.5),
      JSONValue::number(-0.125),
      JSONValue::number(1e300),
      JSONValue::number(42),
      JSONValue::object({{"a", JSONValue::null()}, {"b", JSONValue::array({JSONValue::boolean(false)})}}),
  };
  for (const auto& value : values) {
    EXPECT_EQ(nlohmann::json::parse(nlohmann::json(value).dump()).get<JSONValue>(), value);
  }
  EXPECT_EQ(nlohmann::json(JSONValue::number(42)).dump(), "42");
  EXPECT_EQ(nlohmann::json(JSONValue::number(2.5)).dump(), "2.5");
}

TEST(JSONValueTest, FoundationValueWritesNullMembersAndEmptyArrays) {
  const auto value = JSONValue::object({{"gone", JSONValue::null()}, {"items", JSONValue::array({})}});
  EXPECT_EQ(value.foundationValue().dump(), R"({"gone":null,"items":[]})");
  EXPECT_TRUE(value.foundationValue().at("items").is_array());
}

TEST(JSONValueTest, EqualValuesHashAlikeAndDifferentKindsDiffer) {
  std::unordered_set<JSONValue> set;
  set.insert(decoded(R"({"b":[1,2],"a":"x"})"));
  set.insert(decoded(R"({"a":"x","b":[1,2]})"));
  set.insert(decoded(R"({"a":"x","b":[2,1]})"));
  set.insert(JSONValue::boolean(true));
  set.insert(JSONValue::number(1));
  set.insert(JSONValue::string("1"));
  EXPECT_EQ(set.size(), 5u);
}

TEST(JSONSchemaTest, BuiltInSchemasSerialiseToTheirDocuments) {
  const nlohmann::json transcription = JSONSchema::transcriptionOutput();
  // nlohmann objects keep sorted keys, so this is the sorted-key form.
  EXPECT_EQ(transcription.dump(),
            R"({"value":{"additionalProperties":false,"properties":{"transcription":{"type":"string"}},)"
            R"("required":["transcription"],"type":"object"}})");

  const auto script = nlohmann::json(JSONSchema::scriptAutomationOutput()).at("value");
  EXPECT_EQ(script.at("required"), nlohmann::json::parse(R"(["title","command","script"])"));
  EXPECT_EQ(script.at("properties").size(), 3u);
  EXPECT_EQ(script.at("properties").at("command"), nlohmann::json::parse(R"({"type":"string"})"));

  EXPECT_EQ(transcription.get<JSONSchema>(), JSONSchema::transcriptionOutput());
  EXPECT_NE(JSONSchema::transcriptionOutput(), JSONSchema::scriptAutomationOutput());
}

}  // namespace
}  // namespace orvid
