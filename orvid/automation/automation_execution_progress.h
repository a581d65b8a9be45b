#pragma once

#include <functional>
#include <string>

#include "orvid/core/corelib/automation_records.h"
#include "orvid/platform/uuid.h"

namespace orvid {

// Live output of a running automation, as the automation clients report it.
// `stdout` and `stderr` are always the whole output so far (never a delta), with
// credentials redacted.
struct AutomationExecutionProgress {
  UUID executionID;
  AIAutomationMethod method = AIAutomationMethod::computerUse;
  std::string stdout;
  std::string stderr;

  bool operator==(const AutomationExecutionProgress&) const = default;
};

using AutomationProgressCallback = std::function<void(const AutomationExecutionProgress&)>;
// The process runner's callback: (standard output so far, standard error so far).
using ProcessOutputCallback = std::function<void(const std::string& stdout, const std::string& stderr)>;

// Adapts a client's progress callback to the process runner's: each report is
// redacted with SecretRedactor and wrapped with `executionID` and `method`.
// Empty when `progress` is empty.
ProcessOutputCallback processProgressHandler(const UUID& executionID, AIAutomationMethod method,
                                             AutomationProgressCallback progress);

}  // namespace orvid
