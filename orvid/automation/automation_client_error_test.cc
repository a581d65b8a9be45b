#include "orvid/automation/automation_client_error.h"

#include <string>

#include <gtest/gtest.h>

namespace orvid {
namespace {

TEST(AutomationClientErrorTest, DescribesEachCaseWithItsPayload) {
  struct Case {
    AutomationClientError error;
    AutomationClientError::Case expectedCase;
    std::string message;
  };
  const Case cases[] = {
      {AutomationClientError::executableMissing("open-computer-use"), AutomationClientError::Case::executableMissing,
       "open-computer-use is not installed or is not executable."},
      {AutomationClientError::timedOut(90), AutomationClientError::Case::timedOut,
       "Automation timed out after 90 seconds."},
      {AutomationClientError::timedOut(-1), AutomationClientError::Case::timedOut,
       "Automation timed out after -1 seconds."},
      {AutomationClientError::unsupportedProposal("Nothing to run."), AutomationClientError::Case::unsupportedProposal,
       "Nothing to run."},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.error.errorCase(), c.expectedCase);
    EXPECT_EQ(std::string(c.error.what()), c.message);
  }
  EXPECT_EQ(AutomationClientError::executableMissing("a").text(), "a");
  EXPECT_EQ(AutomationClientError::timedOut(5).seconds(), 5);
  EXPECT_EQ(AutomationClientError::timedOut(5), AutomationClientError::timedOut(5));
  EXPECT_FALSE(AutomationClientError::timedOut(5) == AutomationClientError::timedOut(6));
  EXPECT_FALSE(AutomationClientError::executableMissing("x") == AutomationClientError::unsupportedProposal("x"));
}

}  // namespace
}  // namespace orvid
