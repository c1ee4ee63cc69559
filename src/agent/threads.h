// Long-running threads of a module that are not tasks.
#pragma once

#include <string>

// Starts a thread that runs entry(argument) on a stack of at least stackBytes. The name is cut to the kernel's 15
// bytes. Returns a non-zero handle, which StopHipsThreadEx releases, or 0 on failure. Any thread.
unsigned long CreateHipsThreadEx(void* (*entry)(void*), void* argument, unsigned int stackBytes,
                                 const std::string& name);

// Waits until the thread has ended and releases the handle. The caller must have asked the thread to end before.
// Returns 0, or another value for an unknown handle, the calling thread's handle, or two threads that wait for each
// other. Any thread.
int StopHipsThreadEx(unsigned long handle);
