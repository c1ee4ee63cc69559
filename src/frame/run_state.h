// Whether the module runs.
#pragma once

#include <atomic>

// 1 while the module is started, 0 otherwise. Loops read it from other threads than the one that stops the module; a
// late read costs one more step of a loop, because a stop waits for each task to end.
inline std::atomic<int> moduleRunning{0};

// True when the module is being stopped: long loops ask and leave. Each such answer writes one log line. Any thread.
bool NeedStop();

// The same without the log line, for loops that ask often. Any thread.
bool IsStopping();
