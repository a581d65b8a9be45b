#include "orvid/ai/json_value.h"

#include <cmath>

#include <nlohmann/json.hpp>

#include "orvid/platform/internal/hash.h"

namespace orvid {
namespace {

constexpr double kLargestExactInteger = 9007199254740992.0;  // 2^53

JSONValue stringSchema() { return JSONValue::object({{"type", JSONValue::string("string")}}); }

JSONSchema objectSchema(const std::vector<std::string>& stringProperties) {
  JSONValue::Object properties;
  JSONValue::Array required;
  for (const auto& name : stringProperties) {
    properties.emplace(name, stringSchema());
    required.push_back(JSONValue::string(name));
  }
  return JSONSchema{JSONValue::object({
      {"type", JSONValue::string("object")},
      {"properties", JSONValue::object(std::move(properties))},
      {"required", JSONValue::array(std::move(required))},
      {"additionalProperties", JSONValue::boolean(false)},
  })};
}

// from_json called by name: clang before 16 rejects json.get<JSONValue>() for
// this type.
JSONValue decoded(const nlohmann::json& json) {
  JSONValue value;
  from_json(json, value);
  return value;
}

}  // namespace

nlohmann::json JSONValue::foundationValue() const {
  switch (kind()) {
    case Kind::string:
      return *stringValue();
    case Kind::number: {
      const double number = *numberValue();
      if (std::isfinite(number) && std::trunc(number) == number && std::fabs(number) <= kLargestExactInteger) {
        return static_cast<std::int64_t>(number);
      }
      return number;
    }
    case Kind::boolean:
      return *booleanValue();
    case Kind::object: {
      auto result = nlohmann::json::object();
      for (const auto& [key, member] : *objectValue()) result[key] = member.foundationValue();
      return result;
    }
    case Kind::array: {
      auto result = nlohmann::json::array();
      for (const auto& element : *arrayValue()) result.push_back(element.foundationValue());
      return result;
    }
    case Kind::null:
      break;
  }
  return nullptr;
}

void from_json(const nlohmann::json& json, JSONValue& value) {
  if (json.is_null()) {
    value = JSONValue::null();
  } else if (json.is_boolean()) {
    value = JSONValue::boolean(json.get<bool>());
  } else if (json.is_number()) {
    value = JSONValue::number(json.get<double>());
  } else if (json.is_string()) {
    value = JSONValue::string(json.get<std::string>());
  } else if (json.is_object()) {
    JSONValue::Object members;
    for (const auto& [key, member] : json.items()) members.emplace(key, decoded(member));
    value = JSONValue::object(std::move(members));
  } else if (json.is_array()) {
    JSONValue::Array elements;
    elements.reserve(json.size());
    for (const auto& element : json) elements.push_back(decoded(element));
    value = JSONValue::array(std::move(elements));
  } else {
    throw nlohmann::json::type_error::create(302, std::string("cannot read a JSON value of type ") + json.type_name(),
                                             &json);
  }
}

void to_json(nlohmann::json& json, const JSONValue& value) { json = value.foundationValue(); }

const JSONSchema& JSONSchema::transcriptionOutput() {
  static const JSONSchema schema = objectSchema({"transcription"});
  return schema;
}

const JSONSchema& JSONSchema::scriptAutomationOutput() {
  static const JSONSchema schema = objectSchema({"title", "command", "script"});
  return schema;
}

void to_json(nlohmann::json& json, const JSONSchema& schema) { json = {{"value", schema.value.foundationValue()}}; }

void from_json(const nlohmann::json& json, JSONSchema& schema) { schema.value = decoded(json.at("value")); }

}  // namespace orvid

std::size_t std::hash<orvid::JSONValue>::operator()(const orvid::JSONValue& value) const noexcept {
  using Kind = orvid::JSONValue::Kind;
  std::size_t seed = static_cast<std::size_t>(value.kind());
  switch (value.kind()) {
    case Kind::string:
      return orvid::internal::hashCombined(seed, std::hash<std::string>{}(*value.stringValue()));
    case Kind::number: {
      // +0 and -0 are equal, so they must hash alike.
      const double number = *value.numberValue() == 0.0 ? 0.0 : *value.numberValue();
      return orvid::internal::hashCombined(seed, std::hash<double>{}(number));
    }
    case Kind::boolean:
      return orvid::internal::hashCombined(seed, *value.booleanValue() ? 1 : 2);
    case Kind::object:
      for (const auto& [key, member] : *value.objectValue()) {
        seed = orvid::internal::hashCombined(seed, std::hash<std::string>{}(key));
        seed = orvid::internal::hashCombined(seed, (*this)(member));
      }
      return seed;
    case Kind::array:
      for (const auto& element : *value.arrayValue()) seed = orvid::internal::hashCombined(seed, (*this)(element));
      return seed;
    case Kind::null:
      break;
  }
  return seed;
}
