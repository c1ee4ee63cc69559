// What the agent's program may do with tasks beyond what modules see.
#pragma once

#include <string>

namespace Host {

// Runs the named registered task at once, on its own thread, and returns when that run has ended; a run already in
// progress is waited for first. The task's schedule stays as it is. False if no task has that name, or it is paused or
// unregistered before the run begins. Any thread but the task's own.
bool RunTaskNow(const std::string& name);

}  // namespace Host
