#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

#include <nlohmann/json_fwd.hpp>

namespace orvid {

// A provider-specific setting: text, number or Boolean.
struct TranscriptionProviderOptionValue {
  std::variant<std::string, double, bool> value;

  static TranscriptionProviderOptionValue text(std::string v) { return {std::move(v)}; }
  static TranscriptionProviderOptionValue number(double v) { return {v}; }
  static TranscriptionProviderOptionValue boolean(bool v) { return {v}; }

  std::optional<std::string> textValue() const;
  std::optional<double> numberValue() const;
  std::optional<bool> booleanValue() const;

  bool operator==(const TranscriptionProviderOptionValue&) const = default;
};

using TranscriptionProviderOptions = std::map<std::string, TranscriptionProviderOptionValue>;

// JSON form: the plain string, number or Boolean.
void to_json(nlohmann::json& json, const TranscriptionProviderOptionValue& value);
void from_json(const nlohmann::json& json, TranscriptionProviderOptionValue& value);

}  // namespace orvid
