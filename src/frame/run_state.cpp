#include "frame/run_state.h"

#include "frame/log.h"

static constexpr char logSource[] = "detect_shell";

bool NeedStop() {
    const int run = moduleRunning.load(std::memory_order_relaxed);
    if (run != 0) {
        return false;
    }
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "thread was stopped by StopModule run.[run=%d]", run);
    return true;
}

bool StopHasBegun() {
    return stopBegun.load(std::memory_order_relaxed) && NeedStop();
}
