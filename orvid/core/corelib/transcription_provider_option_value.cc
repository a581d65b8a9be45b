#include "orvid/core/corelib/transcription_provider_option_value.h"

#include <nlohmann/json.hpp>

namespace orvid {

std::optional<std::string> TranscriptionProviderOptionValue::textValue() const {
  if (auto* v = std::get_if<std::string>(&value)) return *v;
  return std::nullopt;
}

std::optional<double> TranscriptionProviderOptionValue::numberValue() const {
  if (auto* v = std::get_if<double>(&value)) return *v;
  return std::nullopt;
}

std::optional<bool> TranscriptionProviderOptionValue::booleanValue() const {
  if (auto* v = std::get_if<bool>(&value)) return *v;
  return std::nullopt;
}

void to_json(nlohmann::json& json, const TranscriptionProviderOptionValue& value) {
  std::visit([&](const auto& v) { json = v; }, value.value);
}

void from_json(const nlohmann::json& json, TranscriptionProviderOptionValue& value) {
  if (json.is_boolean()) {
    value.value = json.get<bool>();
  } else if (json.is_number()) {
    value.value = json.get<double>();
  } else if (json.is_string()) {
    value.value = json.get<std::string>();
  } else {
    throw nlohmann::json::type_error::create(302, "option value must be a string, number or Boolean", &json);
  }
}

}  // namespace orvid
