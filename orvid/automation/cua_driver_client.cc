#include "orvid/automation/cua_driver_client.h"

#include <functional>

#include <nlohmann/json.hpp>

namespace orvid {
namespace {

std::size_t combine(std::size_t seed, std::size_t value) {
  return seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
}

}  // namespace

void to_json(nlohmann::json& json, const CUAExecutionRequest& request) {
  json = nlohmann::json::object();
  json["executionID"] = request.executionID;
  json["instruction"] = request.instruction;
  json["timeoutSeconds"] = request.timeoutSeconds;
}

void from_json(const nlohmann::json& json, CUAExecutionRequest& request) {
  request.executionID = json.at("executionID").get<UUID>();
  request.instruction = json.at("instruction").get<std::string>();
  request.timeoutSeconds = json.at("timeoutSeconds").get<int>();
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
  result.exitCode = json.at("exitCode").get<std::int32_t>();
  result.stdout = json.at("stdout").get<std::string>();
  result.stderr = json.at("stderr").get<std::string>();
}

}  // namespace orvid

std::size_t std::hash<orvid::CUAExecutionRequest>::operator()(const orvid::CUAExecutionRequest& request) const noexcept {
  std::size_t seed = std::hash<orvid::UUID>{}(request.executionID);
  seed = orvid::combine(seed, std::hash<std::string>{}(request.instruction));
  return orvid::combine(seed, std::hash<int>{}(request.timeoutSeconds));
}

std::size_t std::hash<orvid::CUAExecutionResult>::operator()(const orvid::CUAExecutionResult& result) const noexcept {
  std::size_t seed = std::hash<orvid::UUID>{}(result.executionID);
  seed = orvid::combine(seed, std::hash<std::int32_t>{}(result.exitCode));
  seed = orvid::combine(seed, std::hash<std::string>{}(result.stdout));
  return orvid::combine(seed, std::hash<std::string>{}(result.stderr));
}
