// The watcher for processes that run short commands for a remote peer: it notes the commands as they are executed, and
// judges each parent once they have ended: at the first two, or at the first that no person can have typed.
#pragma once

#include <set>
#include <string>

// True once the watcher runs. Called by the thread that starts the module.
bool StartDetectTmpRshell(const std::set<std::string>& shells);

// Ends what StartDetectTmpRshell began; harmless when it never started. Called by the thread that stops the module.
void StopDetectTmpRshell();

// Entry of the task "check tmp shell task": one sweep over all parents. arg is not read. Returns null.
void* CheckTmpShellTask(void* arg);
