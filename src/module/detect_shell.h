// The module's entries, which the agent looks up by these names and calls on a thread of its own, one at a time.
#pragma once

extern "C" {

// Collects the host's shell paths and sshd inodes and takes the baseline of the shell files; starts nothing. May be
// called again on a loaded module that is stopped. 1 on success, 0 if no shell could be resolved or memory ran
// out.
[[gnu::visibility("default")]] int InitModule(void);

// Starts the detection functions that config, a JSON document, asks for. 1 when all of them run. 0 otherwise: config is
// null or no JSON, and nothing has changed, or the reverse-shell function could not start, while the tampering function
// runs if it was asked for; StopModule is due in that case.
[[gnu::visibility("default")]] int StartModule(const char* config);

// Stops what was started and waits for its end. code goes into the status reports as it stands and may be null.
[[gnu::visibility("default")]] void StopModule(const char* code);

// The last call before the module is unloaded.
[[gnu::visibility("default")]] void DeinitModule(void);
}
