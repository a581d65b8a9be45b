#pragma once

#include <sys/types.h>

#include <chrono>
#include <vector>

namespace orvid {

// One process as /proc shows it.
struct ProcessTreeEntry {
  pid_t pid = 0;
  pid_t parent = 0;
  // Ended but not yet reaped.
  bool zombie = false;
};

// Every process this system shows in /proc, read now.
std::vector<ProcessTreeEntry> runningProcesses();

// The processes that descend from `root` (its children, their children, ...),
// zombies left out. A process that re-parents away from the tree is not found:
// see adoptOrphanedDescendants().
std::vector<pid_t> descendantsOf(pid_t root);

// Makes this process the one that orphaned descendants are re-parented to (instead
// of init), so that a grandchild whose parent ended is still a descendant. Returns
// false where the system does not offer it.
bool adoptOrphanedDescendants();

// Sends the kill signal to every descendant of this process, again until none is
// left (a process may start another meanwhile) or `limit` has passed. Zombies are
// left to their parents. True when no descendant is left running.
bool killAllDescendants(std::chrono::milliseconds limit);

// killAllDescendants, then reaps every child of this process that has ended
// (adopted orphans included). Only for a process that owns all of its children,
// such as a command-line tool that is about to exit.
bool endAllDescendants(std::chrono::milliseconds limit);

}  // namespace orvid
