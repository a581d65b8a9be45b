#pragma once

#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "orvid/core/corelib/cua_driver_status.h"
#include "orvid/platform/uuid.h"

namespace orvid {

// One confirmed instruction for the computer-use driver.
struct CUAExecutionRequest {
  UUID executionID;
  std::string instruction;
  // The time the driver gets; at least one second is always granted.
  int timeoutSeconds = 0;

  bool operator==(const CUAExecutionRequest&) const = default;
};

// What the driver reported for one request.
struct CUAExecutionResult {
  UUID executionID;
  std::int32_t exitCode = 0;
  std::string stdout;
  std::string stderr;

  bool operator==(const CUAExecutionResult&) const = default;
};

// JSON with the keys "executionID", "instruction", "timeoutSeconds" and
// "executionID", "exitCode", "stdout", "stderr".
void to_json(nlohmann::json& json, const CUAExecutionRequest& request);
void from_json(const nlohmann::json& json, CUAExecutionRequest& request);
void to_json(nlohmann::json& json, const CUAExecutionResult& result);
void from_json(const nlohmann::json& json, CUAExecutionResult& result);

// The computer-use driver that carries out confirmed automation instructions.
class CUADriverClient {
 public:
  virtual ~CUADriverClient() = default;

  // The driver's readiness and details as it reports them now. Never throws.
  virtual CUADriverStatus status(std::stop_token stop = {}) = 0;

  // Executes the instruction and returns when the driver has finished; the result
  // echoes `request.executionID`. Throws when the driver cannot be started, and a
  // time-out error when `request.timeoutSeconds` pass first. Stopping `stop` acts
  // like `cancel(request.executionID)`.
  virtual CUAExecutionResult run(const CUAExecutionRequest& request, std::stop_token stop = {}) = 0;

  // Stops the running execution `executionID`; an identifier with no running
  // execution is ignored. Never throws.
  virtual void cancel(const UUID& executionID) = 0;
};

}  // namespace orvid

template <>
struct std::hash<orvid::CUAExecutionRequest> {
  std::size_t operator()(const orvid::CUAExecutionRequest& request) const noexcept;
};

template <>
struct std::hash<orvid::CUAExecutionResult> {
  std::size_t operator()(const orvid::CUAExecutionResult& result) const noexcept;
};
