#include "host/base/log.h"

#include "host/base/clock.h"

namespace Host {

bool LogPacer::MayLog() {
    const Clock::Time now = Clock::Now();
    const std::lock_guard lock(mutex_);
    if (last_ && now - *last_ < std::chrono::minutes(1)) {
        return false;
    }
    last_ = now;
    return true;
}

}  // namespace Host
