// The two halves of a rename, which inotify reports one by one.
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

// The kernel writes the half that a file leaves first and the half that it comes to right after it, in fs/notify
// fsnotify_move(). So only first halves have to wait: a second half without a first came from a directory that is not
// watched.
class RenamePairs {
public:
    static constexpr std::chrono::milliseconds patience{50};
    // Bounds the number of halves that others can make wait here.
    static constexpr size_t capacity = 1024;

    // Keeps a first half. Returns the oldest one if there is no room for it any more.
    std::optional<ChangeSide> Keep(uint32_t cookie, ChangeSide from, Clock::Time now);

    // The first half with that cookie; it is kept no longer.
    std::optional<ChangeSide> Take(uint32_t cookie);

    // Events are about to be read, among them all that were written together with the halves kept here.
    void BeginBatch() { ++batch_; }

    // Those whose second half is overdue; they are kept no longer. Of those kept since the last BeginBatch the second
    // halves may still wait to be read, unless isQuiet says that nothing does.
    std::vector<ChangeSide> TakeOverdue(Clock::Time now, bool isQuiet);

    // When the next one is overdue.
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
