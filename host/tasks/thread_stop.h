// How a thread of CreateHipsThreadEx learns that it is waited for.
#pragma once

#include "host/base/wake_signal.h"

namespace Host {

// Raised once somebody waits for the end of the calling thread. Null in any other thread, and where the process had no
// descriptor left for it. Belongs to the thread.
const WakeSignal* ThisThreadsStop();

}  // namespace Host
