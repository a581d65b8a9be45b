// Feeds arbitrary bytes to the JSON reader and decodes every document it accepts
// into a JSONValue, which may not throw (the reader makes no binary values). The
// value must be stable: written out through foundationValue() and read again it is
// an equal value with the same hash and the same text, and numbers that are whole
// and within 2^53 are written as integers.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/ai/json_value.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

using orvid::JSONValue;

// from_json by name, as clang before 16 rejects json.get<JSONValue>().
JSONValue decoded(const nlohmann::json& json) {
  JSONValue value;
  from_json(json, value);
  return value;
}

// Numbers are written as integers exactly when whole and within ±2^53.
void requireNumberForms(const JSONValue& value, const nlohmann::json& json) {
  if (const double* number = value.numberValue()) {
    const bool whole = std::isfinite(*number) && std::trunc(*number) == *number && std::fabs(*number) <= 0x1p53;
    require(json.is_number_integer() == whole, "whole numbers within 2^53 are written as integers");
  } else if (const auto* object = value.objectValue()) {
    require(json.is_object() && json.size() == object->size(), "objects are written as objects");
    for (const auto& [key, member] : *object) requireNumberForms(member, json.at(key));
  } else if (const auto* array = value.arrayValue()) {
    require(json.is_array() && json.size() == array->size(), "arrays are written as arrays");
    for (std::size_t i = 0; i < array->size(); ++i) requireNumberForms((*array)[i], json.at(i));
  }
}

orvid::fuzz::Seeds seeds() {
  return {
      {"schema", bytes(R"({"type":"object","properties":{"transcription":{"type":"string"}},)"
                       R"("required":["transcription"],"additionalProperties":false})")},
      {"numbers", bytes("[0, -0, 1.5, -2, 9007199254740992, 9007199254740993, 1e300, 18446744073709551615, "
                        "-9223372036854775808, 0.1, 5e-324]")},
      {"scalars", bytes(R"([true, false, null, "", "\u00e9\ud83d\ude00", {"":{}}])")},
      {"duplicate-keys", bytes(R"({"a":1,"a":2,"b":[{"a":true}]})")},
      {"bare", bytes("42")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto json = nlohmann::json::parse(data, data + size, nullptr, false);
  if (json.is_discarded()) return 0;

  const JSONValue value = decoded(json);
  require(value == value && std::hash<JSONValue>{}(value) == std::hash<JSONValue>{}(JSONValue(value)),
          "a value equals its copy and hashes alike");
  const nlohmann::json written = value.foundationValue();
  nlohmann::json encoded;
  to_json(encoded, value);
  require(encoded == written, "to_json writes foundationValue()");
  requireNumberForms(value, written);

  const std::string text = written.dump();
  const auto reread = nlohmann::json::parse(text, nullptr, false);
  require(!reread.is_discarded(), "a written value is JSON");
  const JSONValue again = decoded(reread);
  require(again == value, "a value written and read again is equal");
  require(std::hash<JSONValue>{}(again) == std::hash<JSONValue>{}(value), "equal values hash alike");
  require(again.foundationValue().dump() == text, "a value written twice gives the same text");
  return 0;
}
