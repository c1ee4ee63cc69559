// Records the short commands among the host's exec events.
#pragma once

#include <linux/cn_proc.h>

#include <set>
#include <string>

// Sets the programs that count as short commands: a fixed list of command words, looked up on "PATH", and the shells.
// False if there are none. Called by the thread that starts the module.
bool InitTmpCommandPaths(const std::set<std::string>& shells);

// Records the exec of a short command. Ignores other events and null. Called on a thread of the process monitor that
// serves only this callback. Takes 0.5 ms per byte of the command line, for every exec on the host.
void OnTmpProcEvent(proc_event* event);
