// The limit of events per minute.
#pragma once

#include <chrono>
#include <optional>

#include "host/base/clock.h"

namespace Host {

// Counts events in fixed windows of one minute. The first window begins with the first event, each later one with the
// first event after the previous window. One thread at a time.
class MinuteLimit {
public:
    static constexpr std::chrono::minutes window{1};

    // At most events per window, 0 for no limit. The default is 60. The next event begins a new window.
    void Set(unsigned int events) {
        limit_ = events;
        windowEnd_.reset();
    }
    unsigned int Get() const { return limit_; }

    // Whether an event may pass now.
    bool HasRoom(Clock::Time now) {
        if (limit_ == 0) {
            return true;
        }
        if (!windowEnd_ || now >= *windowEnd_) {
            windowEnd_ = now + window;
            passed_ = 0;
        }
        return passed_ < limit_;
    }

    // An event has passed.
    void CountPassed() { ++passed_; }

private:
    unsigned int limit_ = 60;
    unsigned int passed_ = 0;  // in the window
    std::optional<Clock::Time> windowEnd_;
};

}  // namespace Host
