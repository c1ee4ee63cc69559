// Runs work in a process that is not a descendant of the caller.
#pragma once

#include <functional>
#include <optional>

namespace Host {

// Runs work in a new process whose parent is init or another subreaper, and waits for its status. Empty if the process
// could not be started or ended without a status. Throws std::system_error if a pipe cannot be created.  The module
// inspects all ancestors of a suspect, with pauses. The ancestors of the caller, for example an editor with a long
// command line and many open files, would delay it by up to a minute.  Forwards SIGINT, SIGTERM and SIGHUP, which must
// be blocked in the caller. If the caller is killed, the process gets SIGTERM. The caller must have one thread; the new
// process shares its descriptors and terminal.
std::optional<int> RunApart(const std::function<int()>& work);

}  // namespace Host
