// The calling thread's name and stop signal.
#pragma once

#include <string>

#include "host/base/wake_signal.h"

namespace Host {

// Names the calling thread. The name is cut to the 15 bytes that the kernel keeps and ps shows. Any thread.
void NameThisThread(const std::string& name);

// The stop signal of the calling thread, raised once another thread waits for this one to end. Null if none was set.
// Owned by whoever started the thread.
const WakeSignal* ThisThreadsStop();

// Sets the stop signal of the calling thread. REQUIRES: stop outlives the thread.
void SetThisThreadsStop(const WakeSignal* stop);

}  // namespace Host
