// Reports changes of a shell's flags, which the file monitor cannot report. chattr(1) opens the file, issues an ioctl
// and closes the file without a write, so the flags are compared after each such close.
#pragma once

// Makes the current flags of all shells their baseline. Called by the thread that starts the module.
void TakeFlagsBaseline();

// Starts the thread that watches the shells for closes; keeps a thread that is still running. Without fanotify, nothing
// is watched. Called by the thread that starts the module.
void StartFlagsWatch();

// Ends the thread and the watch, if there are any. Called by the thread that stops the module.
void StopFlagsWatch();

// Compares the flags of the closed shell with its baseline, reports a change and updates the baseline. Other paths are
// ignored. Pauses 0.1 ms per event with a path, and 10 ms per change. Called on the watch's thread.
void ChattrFanotifyCallback(long number, const char* path, unsigned int mask);
