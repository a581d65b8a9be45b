#include "orvid/automation/cua_driver_client.h"

#include <functional>

#include <nlohmann/json.hpp>

#include "orvid/core/corelib/json_support.h"
#include "orvid/platform/internal/hash.h"

namespace orvid {

void to_json(nlohmann::json& json, const CUAExecutionRequest& request) {
  json = nlohmann::json::object();
  json["executionID"] = request.executionID;
  json["instruction"] = request.instruction;
  json["timeoutSeconds"] = request.timeoutSeconds;
}

void from_json(const nlohmann::json& json, CUAExecutionRequest& request) {
  request.executionID = json.at("executionID").get<UUID>();
  request.instruction = json.at("instruction").get<std::string>();
  request.timeoutSeconds = json_support::integer<int>(json.at("timeoutSeconds"));
}

void to_json(nlohmann::json& json, const CUAExecutionResult& result) {
  json = nlohmann::json::object();
  json["executionID"] = result.executionID;
  json["exitCode"] = result.exitCode;
  json["stdout"] = result.stdout;
  json["stderr"] = result.stderr;
}

void from_json(const nlohmann::json& json, CUAExecutionResult& result) {
  result.executionID = json.at("executionID").get<orvid::UUID>();
  result.exitCode = json_support::integer<std::int32_t>(json.at("exitCode"));
  result.stdout = json.at("stdout").get<std::string>();
  result.stderr = json.at("stderr").get<std::string>();
}

}  // namespace orvid

std::size_t std::hash<orvid::CUAExecutionRequest>::operator()(const orvid::CUAExecutionRequest& request) const noexcept {
  return orvid::internal::hashCombinedValues(std::hash<orvid::UUID>{}(request.executionID), request.instruction,
                                             request.timeoutSeconds);
}

std::size_t std::hash<orvid::CUAExecutionResult>::operator()(const orvid::CUAExecutionResult& result) const noexcept {
  return orvid::internal::hashCombinedValues(std::hash<orvid::UUID>{}(result.executionID), result.exitCode,
                                             result.stdout, result.stderr);
}
