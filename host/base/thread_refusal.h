// Threads that the system refuses to start.
#pragma once

namespace Host {

using ThreadEntry = void* (*)(void*);

// Sets the function that is called with the thread's argument whenever a thread with that entry cannot be started. It
// releases resources prepared for the thread. Later calls replace it. Any thread.
void SetRefusalHandler(ThreadEntry entry, void (*handler)(void* argument));

// Calls the handler of entry, if there is one. For the function that starts threads. Any thread.
void HandleRefusal(ThreadEntry entry, void* argument);

}  // namespace Host
