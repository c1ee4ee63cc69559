// The agent's signals. The main thread takes them when it is ready.
#pragma once

namespace Host {

// Blocks SIGTERM, SIGINT and SIGHUP in this thread and in all threads that it starts afterwards.
void BlockControlSignals();

// Ignores SIGPIPE and SIGXFSZ: a write to a pipe without a reader, or beyond the limit on file sizes, then fails
// instead of ending the process.
void IgnoreWriteSignals();

// Waits for one of the blocked signals and returns its number.
int WaitForControlSignal();

}  // namespace Host
