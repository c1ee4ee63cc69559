// Watches for processes that run short commands for a remote peer. It records the commands as they are executed and
// judges each parent once all its commands have ended: when there are two, or earlier if one came too soon to be typed.
#pragma once

#include <set>
#include <string>

// True once the watcher runs. Called by the thread that starts the module.
bool StartDetectTmpRshell(const std::set<std::string>& shells);

// Stops the watcher. Does no harm if it never started. Called by the thread that stops the module.
void StopDetectTmpRshell();

// Entry of the task "check tmp shell task": one sweep over all parents. Ignores arg and returns null.
void* CheckTmpShellTask(void* arg);
