// The calling thread: its name, and the signal that asks it to end.
#pragma once

#include <string>

#include "host/base/wake_signal.h"

namespace Host {

// Names the calling thread, cut to the 15 bytes that the kernel keeps and ps shows. Any thread.
void NameThisThread(const std::string& name);

// Raised once somebody waits for the end of the calling thread. Null in a thread for which none was set. Belongs to the
// thread's owner.
const WakeSignal* ThisThreadsStop();

// Sets it for the calling thread. REQUIRES: stop outlives the thread.
void SetThisThreadsStop(const WakeSignal* stop);

}  // namespace Host
