// Feeds arbitrary bytes to the JSON reader and decodes every document it accepts
// as a JSONSchema ({"value": <schema document>}). Decoding may fail only with the
// decoder's own error (nlohmann::json::exception). A decoded schema written out
// and decoded again is equal and hashes alike, and the framework's own schemas
// are recognised as themselves.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/ai/json_value.h"

namespace {

using orvid::fuzz::require;
using orvid::fuzz::bytes;

using orvid::JSONSchema;

std::vector<std::uint8_t> written(const JSONSchema& schema) { return bytes(nlohmann::json(schema).dump()); }

orvid::fuzz::Seeds seeds() {
  return {
      {"transcription", written(JSONSchema::transcriptionOutput())},
      {"script", written(JSONSchema::scriptAutomationOutput())},
      {"enum", bytes(R"({"value":{"type":"string","enum":["a","b"],"maxLength":1e3}})")},
      {"no-value", bytes(R"({"schema":{}})")},
      {"not-object", bytes(R"([{"value":1}])")},
  };
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto json = nlohmann::json::parse(data, data + size, nullptr, false);
  if (json.is_discarded()) return 0;

  std::optional<JSONSchema> schema;
  try {
    schema = json.get<JSONSchema>();
  } catch (const nlohmann::json::exception&) {
    require(!json.is_object() || !json.contains("value"), "an object with a value always decodes");
    return 0;
  }
  require(json.is_object() && json.contains("value"), "only an object with a value decodes");

  const nlohmann::json encoded = *schema;
  require(encoded.is_object() && encoded.size() == 1 && encoded.contains("value"), "a schema is written as {value}");
  const auto again = nlohmann::json::parse(encoded.dump()).get<JSONSchema>();
  require(again == *schema, "a schema written and decoded again is equal");
  require(std::hash<JSONSchema>{}(again) == std::hash<JSONSchema>{}(*schema), "equal schemas hash alike");
  require((*schema == JSONSchema::transcriptionOutput()) == (encoded == nlohmann::json(JSONSchema::transcriptionOutput())),
          "the transcription schema is recognised as itself");
  return 0;
}
