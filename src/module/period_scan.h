// The period scan: a search of the whole host every detectInterval seconds.
#pragma once

// Returns false and logs one line if the task is refused. Called by the thread that starts the module.
bool StartPeriodScan();

// Ends the task and waits for a pass in progress. Called by the thread that stops the module.
void StopPeriodScan();

// Entry of the task "check shell task": one pass with a new detector. arg is not read. Returns null.
void* CheckShellTask(void* arg);
