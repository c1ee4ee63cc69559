// The module's entries. The agent looks them up by these names and calls them on one of its threads, one at a time.
#pragma once

extern "C" {

// Collects the host's shell paths and sshd inodes and records the baseline of the shell files. Starts nothing. May be
// called again while the module is stopped. Returns 1 on success, 0 if no shell could be resolved or memory ran out.
[[gnu::visibility("default")]] int InitModule(void);

// Starts the detection functions that config, a JSON document, enables. Returns 1 if all of them run. Returns 0 if
// config is null or not JSON, which changes nothing, or if the reverse-shell function could not start; the tampering
// function then runs if it is enabled, and the caller must call StopModule.
[[gnu::visibility("default")]] int StartModule(const char* config);

// Stops everything that was started and waits until it has ended. code is passed on to the status reports and may be
// null.
[[gnu::visibility("default")]] void StopModule(const char* code);

// The last call before the module is unloaded. Only logs.
[[gnu::visibility("default")]] void DeinitModule(void);
}
