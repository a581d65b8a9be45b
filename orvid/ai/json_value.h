#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

// A typed JSON tree for the documents the framework builds itself (structured
// output schemas, chat bodies). Immutable once built; equality and hashing are
// structural. Every JSON number is a double.
class JSONValue {
 public:
  enum class Kind { string, number, boolean, object, array, null };
  using Object = std::map<std::string, JSONValue>;
  using Array = std::vector<JSONValue>;

  // null.
  JSONValue() = default;

  static JSONValue string(std::string value) { return JSONValue(Storage(std::in_place_index<0>, std::move(value))); }
  static JSONValue number(double value) { return JSONValue(Storage(std::in_place_index<1>, value)); }
  static JSONValue boolean(bool value) { return JSONValue(Storage(std::in_place_index<2>, value)); }
  static JSONValue object(Object members) { return JSONValue(Storage(std::in_place_index<3>, std::move(members))); }
  static JSONValue array(Array elements) { return JSONValue(Storage(std::in_place_index<4>, std::move(elements))); }
  static JSONValue null() { return JSONValue(); }

  Kind kind() const { return static_cast<Kind>(storage_.index()); }

  // The payload of the matching kind; nullptr for any other kind.
  const std::string* stringValue() const { return std::get_if<0>(&storage_); }
  const double* numberValue() const { return std::get_if<1>(&storage_); }
  const bool* booleanValue() const { return std::get_if<2>(&storage_); }
  const Object* objectValue() const { return std::get_if<3>(&storage_); }
  const Array* arrayValue() const { return std::get_if<4>(&storage_); }
  bool isNull() const { return kind() == Kind::null; }

  // The equivalent nlohmann-json tree. Numbers that are whole and within ±2^53 are
  // written as integers, others as doubles. Never fails.
  nlohmann::json foundationValue() const;

  bool operator==(const JSONValue&) const = default;

 private:
  using Storage = std::variant<std::string, double, bool, Object, Array, std::monostate>;
  explicit JSONValue(Storage storage) : storage_(std::move(storage)) {}

  Storage storage_{std::in_place_index<5>};
};

// Decodes any JSON value: null, then Boolean (so true never becomes 1), number,
// string, object, array. Throws nlohmann::json::type_error for the binary type.
void from_json(const nlohmann::json& json, JSONValue& value);
// Encodes as foundationValue().
void to_json(nlohmann::json& json, const JSONValue& value);

// A named JSON schema document for structured output.
struct JSONSchema {
  JSONValue value;

  // {"type":"object","properties":{"transcription":{"type":"string"}},
  //  "required":["transcription"],"additionalProperties":false}
  static const JSONSchema& transcriptionOutput();
  // The same shape with the string properties "title", "command" and "script",
  // all required in that order.
  static const JSONSchema& scriptAutomationOutput();

  bool operator==(const JSONSchema&) const = default;
};

// JSON form: {"value": <the schema document>}.
void to_json(nlohmann::json& json, const JSONSchema& schema);
void from_json(const nlohmann::json& json, JSONSchema& schema);

}  // namespace orvid

template <>
struct std::hash<orvid::JSONValue> {
  std::size_t operator()(const orvid::JSONValue& value) const noexcept;
};

template <>
struct std::hash<orvid::JSONSchema> {
  std::size_t operator()(const orvid::JSONSchema& schema) const noexcept {
    return std::hash<orvid::JSONValue>{}(schema.value);
  }
};
