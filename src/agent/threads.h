// Long-running threads of the module that are not tasks.
#pragma once

#include <string>

// Starts a thread named name (cut to the kernel's 15 bytes) that runs entry(argument) on a stack of stackBytes.
// Returns a non-zero handle, which is released by StopHipsThreadEx; 0 on failure. Any thread.
unsigned long CreateHipsThreadEx(void* (*entry)(void*), void* argument, unsigned int stackBytes,
                                 const std::string& name);

// Waits for the thread's end and releases the handle. 0 on success; non-zero for an unknown handle and for a thread
// that asks to wait for itself. The caller must have asked the thread to end. Any thread.
int StopHipsThreadEx(unsigned long handle);
