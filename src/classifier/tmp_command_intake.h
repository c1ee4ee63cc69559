// Which of the host's exec events are short commands.
#pragma once

#include <linux/cn_proc.h>

#include <set>
#include <string>

// Settles which programs count: those of the fixed list of command words on "PATH", and the shells. False if there are
// none. Called by the thread that starts the module.
bool InitTmpCommandPaths(const std::set<std::string>& shells);

// Notes the exec of a short command; any other event and null are ignored. Called on a thread of the process monitor's
// that serves nothing else. Costs 0.5 ms a byte of the command line, for every exec on the host.
void OnTmpProcEvent(proc_event* event);
