// The watcher for processes that run short commands for a remote peer. Not there yet: starting and stopping it does
// nothing.
#pragma once

#include <set>
#include <string>

// True once the watcher runs. Called by the thread that starts the module.
bool StartDetectTmpRshell(const std::set<std::string>& shells);

// Ends what StartDetectTmpRshell began. Called by the thread that stops the module.
void StopDetectTmpRshell();
