#include "orvid/automation/user_shell_environment.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

#include "orvid/automation/executable_discovery.h"
#include "orvid/automation/synchronous_process.h"
#include "orvid/platform/internal/text.h"

namespace orvid {
namespace {

constexpr int kShellTimeoutSeconds = 5;

std::optional<std::string> loginShellFromUserDatabase() {
  long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
  passwd entry{};
  passwd* result = nullptr;
  while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (result == nullptr || result->pw_shell == nullptr) return std::nullopt;
  return std::string(result->pw_shell);
}

}  // namespace

UserShellEnvironmentResolver::UserShellEnvironmentResolver()
    : UserShellEnvironmentResolver(Sources{currentProcessEnvironment, loginShellFromUserDatabase}) {}

UserShellEnvironmentResolver::UserShellEnvironmentResolver(Sources sources) : sources_(std::move(sources)) {}

ProcessEnvironment UserShellEnvironmentResolver::environment() {
  {
    std::lock_guard lock(mutex_);
    if (cachedEnvironment_) return *cachedEnvironment_;
  }
  ProcessEnvironment resolved = resolveEnvironment();
  std::lock_guard lock(mutex_);
  cachedEnvironment_ = resolved;
  return resolved;
}

std::optional<std::string> UserShellEnvironmentResolver::currentUserShellPath() const {
  ProcessEnvironment host = sources_.hostEnvironment();
  if (auto shell = host.find("SHELL"); shell != host.end()) {
    std::string path(internal::trimASCIIWhitespace(shell->second));
    if (!path.empty()) return path;
  }
  if (auto shell = sources_.userDatabaseShell(); shell && !shell->empty()) return shell;
  return std::nullopt;
}

ProcessEnvironment UserShellEnvironmentResolver::resolveEnvironment() const {
  std::optional<std::string> shell = currentUserShellPath();
  if (!shell || !isExecutableFile(*shell)) return {};
  ProcessEnvironment host = sources_.hostEnvironment();
  for (const char* mode : {"-lc", "-c"}) {
    SynchronousProcessOutput output = runSynchronousProcess(*shell, {mode, "/usr/bin/env -0"}, host, kShellTimeoutSeconds);
    if (output.exitCode == 0) return parseEnvironment(output.stdout);
  }
  return {};
}

ProcessEnvironment UserShellEnvironmentResolver::parseEnvironment(const Bytes& data) {
  std::optional<std::string> text = internal::decodeUTF8(data);
  if (!text) return {};
  ProcessEnvironment environment;
  std::size_t start = 0;
  while (start <= text->size()) {
    std::size_t end = text->find('\0', start);
    if (end == std::string::npos) end = text->size();
    std::string_view piece(text->data() + start, end - start);
    if (auto equals = piece.find('='); equals != std::string_view::npos) {
      environment[std::string(piece.substr(0, equals))] = std::string(piece.substr(equals + 1));
    }
    start = end + 1;
  }
  return environment;
}

UserShellEnvironmentResolver& shellEnvironmentResolver() {
  static UserShellEnvironmentResolver resolver;
  return resolver;
}

}  // namespace orvid
