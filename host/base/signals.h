// The agent's signals: taken in one place, by the main thread, when it is ready for them.
#pragma once

namespace Host {

// Holds back SIGTERM, SIGINT and SIGHUP in this thread and all that it starts from now on.
void BlockControlSignals();

// Has writes to a pipe without a reader, and beyond a limit on the size of files, fail instead of ending the process.
void IgnoreWriteSignals();

// Waits for one of the signals held back and returns it.
int WaitForControlSignal();

}  // namespace Host
