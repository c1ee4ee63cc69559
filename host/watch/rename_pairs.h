// Pairs the two halves of a rename, which inotify reports one by one.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "host/base/clock.h"
#include "host/watch/change_side.h"

namespace Host {

// The kernel writes the old name first and the new name right after it, in fs/notify fsnotify_move(). So only first
// halves have to wait: a second half without a first one came from an unwatched directory.
class RenamePairs {
public:
    static constexpr std::chrono::milliseconds patience{50};
    // Bounds the number of halves that other processes can make wait here.
    static constexpr size_t capacity = 1024;

    // Keeps a first half. Returns the oldest one if there is no more room for it.
    std::optional<ChangeSide> Keep(uint32_t cookie, ChangeSide from, Clock::Time now);

    // Removes and returns the first half with that cookie.
    std::optional<ChangeSide> Take(uint32_t cookie);

    // Call it before each read of events. The read returns all that was written together with the halves kept here.
    void BeginBatch() { ++batch_; }

    // Removes and returns the halves whose second half is overdue. The second half of one kept since the last
    // BeginBatch may still wait to be read, unless isQuiet says that nothing does.
    std::vector<ChangeSide> TakeOverdue(Clock::Time now, bool isQuiet);

    // When the next half is overdue.
    std::optional<Clock::Time> Due() const;

private:
    struct Half {
        uint32_t cookie;
        ChangeSide from;
        Clock::Time due;
        uint64_t batch;
    };
    std::deque<Half> halves_;  // the oldest first
    uint64_t batch_ = 0;
};

}  // namespace Host
