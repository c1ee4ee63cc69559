// Work in a process without the caller's ancestors.
#pragma once

#include <functional>
#include <optional>

namespace Host {

// Does the work in a new process whose parent is init, or whoever else takes in orphans, and waits for its answer;
// empty if the process ended without one, or could not be started. Throws std::system_error if there is no pipe to it.
//
// The module looks at a suspect's ancestors one by one, up to init, at its slow pace: those of whoever calls the
// program, such as an editor with a long command line and many open files, would hold it up for as long as a minute.
//
// SIGINT, SIGTERM and SIGHUP, which must be blocked in the caller, are passed on; if the caller is killed, the process
// gets SIGTERM. Only for a process with one thread, whose descriptors and terminal the new one shares.
std::optional<int> RunApart(const std::function<int()>& work);

}  // namespace Host
