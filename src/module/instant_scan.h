// Start and stop of the instant scan: the callback that collects processes, and the task that examines them once they
// are quiet.
#pragma once

// Returns false and logs the reason if the lock or the task is refused. The callback of an earlier start then stays
// until StopInstantScan. Called by the thread that starts the module.
bool StartInstantScan();

// Ends the task, removes the callback and destroys their lock. Does no harm if they were not started. Called by the
// thread that stops the module.
void StopInstantScan();
