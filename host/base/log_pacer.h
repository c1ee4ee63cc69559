// Keeps a condition that others can repeat at will from filling the log.
#pragma once

#include <chrono>
#include <mutex>

namespace Host {

// Lets one line through per minute. Any thread.
class LogPacer {
public:
    // True at the first call, then at most once a minute.
    bool MayLog() {
        const auto now = std::chrono::steady_clock::now();
        const std::lock_guard lock(mutex_);
        if (logged_ && now - last_ < std::chrono::minutes(1)) {
            return false;
        }
        logged_ = true;
        last_ = now;
        return true;
    }

private:
    std::mutex mutex_;
    bool logged_ = false;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace Host
