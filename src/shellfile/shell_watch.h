// The listeners of shell file protection: the file monitor on the shells and their directories, the watch of the
// shells' flags, and the callback that finds executed copies.
#pragma once

#include <set>
#include <string>

// Takes a new baseline of the shells and starts the listeners. Always returns 1: if one listener cannot start, the
// others still run. Called by the thread that starts the module.
int StartShellEvent(std::set<std::string> shells);

// Stops the listeners and waits until none of them runs; reports that arrive meanwhile are still handled. Harmless if
// they were never started. Called by the thread that stops the module.
void StopShellEvent();
