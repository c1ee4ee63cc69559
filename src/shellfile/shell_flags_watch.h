// The one attribute of a shell that no file monitor reports: its flags, which chattr(1) changes by opening the file,
// issuing an ioctl and closing it without a write. Each such close is the moment to look.
#pragma once

// Takes the present flags of all shells as their baseline. Called by the thread that starts the module, while nothing
// watches.
void TakeFlagsBaseline();

// Watches the shells for closes, on a thread of its own; a thread left running by an earlier start stays as it is.
// Without fanotify nothing is watched. Called by the thread that starts the module.
void StartFlagsWatch();

// Ends that thread and the watch, if there are any. Called by the thread that stops the module.
void StopFlagsWatch();

// Compares the flags of the shell that was closed with the last ones known and reports a change. Any other path is
// ignored. Pauses 0.1 ms for each event with a path, and 10 ms for each change. Called on the watch's thread.
void ChattrFanotifyCallback(long number, const char* path, unsigned int mask);
