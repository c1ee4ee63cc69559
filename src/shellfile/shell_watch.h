// The listeners of shell file protection. Not there yet: starting and stopping them does nothing.
#pragma once

#include <set>
#include <string>

// Watches the shells for tampering. Returns 1. Called by the thread that starts the module.
int StartShellEvent(std::set<std::string> shells);

// Ends what StartShellEvent began. Called by the thread that stops the module.
void StopShellEvent();
