// Whether the module is running.
#pragma once

#include <atomic>

// 1 while the module is started, 0 otherwise. Written by the thread that starts and stops the module, read by loops on
// other threads. A late read costs one more step of a loop, because a stop waits for each task to end.
inline std::atomic<int> moduleRunning{0};

// True if the module is not running. Long loops call this and end. Each call that returns true logs one line. Any
// thread.
bool NeedStop();

// Set by StopModule when it begins, cleared by the next start.
inline std::atomic<bool> stopBegun{false};

// As NeedStop, but true only once StopModule has begun: false before the first start, during a start and after a start
// that failed in part. Callbacks run at these times too, and must not get incomplete results. Any thread.
bool StopHasBegun();
