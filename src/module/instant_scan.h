// Start and stop of the instant scan: the task that looks at processes once they are quiet, and the callback that
// notes them.
#pragma once

// False, with the reason in the log, if the lock or the task is refused; what an earlier start has left running then
// stays until StopInstantScan. Called by the thread that starts the module.
bool StartInstantScan();

// Ends the task and the callback and takes down their lock; harmless when they never started. Called by the thread that
// stops the module.
void StopInstantScan();
