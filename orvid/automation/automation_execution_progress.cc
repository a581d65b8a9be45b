#include "orvid/automation/automation_execution_progress.h"

#include <utility>

#include "orvid/ai/secret_redactor.h"

namespace orvid {

ProcessOutputCallback processProgressHandler(const UUID& executionID, AIAutomationMethod method,
                                             AutomationProgressCallback progress) {
  if (!progress) return {};
  return [executionID, method, progress = std::move(progress)](const std::string& stdout, const std::string& stderr) {
    progress(AutomationExecutionProgress{executionID, method, SecretRedactor::redact(stdout),
                                         SecretRedactor::redact(stderr)});
  };
}

}  // namespace orvid
