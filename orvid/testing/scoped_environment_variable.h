#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace orvid::testing {

// Sets (or, given no value, unsets) an environment variable for the lifetime of the
// object and then restores what was there before. Tests only: the environment is
// process-wide, so tests using it must not run their threads while it changes.
class ScopedEnvironmentVariable {
 public:
  ScopedEnvironmentVariable(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) previous_ = old;
    apply(value);
  }
  ~ScopedEnvironmentVariable() { apply(previous_); }
  ScopedEnvironmentVariable(const ScopedEnvironmentVariable&) = delete;
  ScopedEnvironmentVariable& operator=(const ScopedEnvironmentVariable&) = delete;

 private:
  void apply(const std::optional<std::string>& value) const {
    if (value) {
      ::setenv(name_.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }

  std::string name_;
  std::optional<std::string> previous_;
};

}  // namespace orvid::testing
