#include "orvid/automation/process_tree.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>

namespace orvid {

std::vector<ProcessTreeEntry> runningProcesses() {
  std::vector<ProcessTreeEntry> processes;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream file(entry.path() / "stat");
    std::string stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // "pid (comm) state ppid ...": comm may hold spaces and parentheses.
    auto close = stat.rfind(')');
    if (close == std::string::npos) continue;  // ended while being read
    std::istringstream rest(stat.substr(close + 1));
    char state = 0;
    long parent = 0;
    if (!(rest >> state >> parent)) continue;
    processes.push_back({static_cast<pid_t>(std::stol(name)), static_cast<pid_t>(parent), state == 'Z' || state == 'X'});
  }
  return processes;
}

std::vector<pid_t> descendantsOf(pid_t root) {
  std::multimap<pid_t, const ProcessTreeEntry*> byParent;
  const auto processes = runningProcesses();
  for (const auto& process : processes) byParent.emplace(process.parent, &process);
  std::vector<pid_t> found;
  std::vector<pid_t> frontier{root};
  while (!frontier.empty()) {
    pid_t parent = frontier.back();
    frontier.pop_back();
    auto [first, last] = byParent.equal_range(parent);
    for (auto it = first; it != last; ++it) {
      frontier.push_back(it->second->pid);
      if (!it->second->zombie) found.push_back(it->second->pid);
    }
  }
  return found;
}

bool adoptOrphanedDescendants() { return ::prctl(PR_SET_CHILD_SUBREAPER, 1L, 0L, 0L, 0L) == 0; }

bool killAllDescendants(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const pid_t self = ::getpid();
  while (true) {
    auto descendants = descendantsOf(self);
    if (descendants.empty()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    for (pid_t pid : descendants) ::kill(pid, SIGKILL);
    // A killed process turns into a zombie within moments; look again once others have run.
    std::this_thread::yield();
  }
}

bool endAllDescendants(std::chrono::milliseconds limit) {
  bool none = killAllDescendants(limit);
  while (::waitpid(-1, nullptr, WNOHANG) > 0) {
  }
  return none;
}

}  // namespace orvid
