// The listeners of shell file protection: the file monitor on the shells and their directories, the watch for their
// flags, and the callback for programs that are copies of a shell.
#pragma once

#include <set>
#include <string>

// Takes a fresh baseline of the shells and raises the listeners. Returns 1 on every path: a listener that is refused
// leaves the others at work. Called by the thread that starts the module.
int StartShellEvent(std::set<std::string> shells);

// Takes the listeners down, waiting for those at work; reports that arrive meanwhile are still handled. Harmless when
// they never started. Called by the thread that stops the module.
void StopShellEvent();
