// The known state of one watched file, and the changes that a new state shows.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/base/clock.h"
#include "host/watch/change_meaning.h"
#include "host/watch/file_state.h"

namespace Host {

// When an event is handled. The kernel does not say when it happened: some time after quiet, when no event waited last.
struct Moment {
    Clock::Time now;
    Clock::Time quiet;
};

// Copying a program causes thousands of writes. They count as one change until the writer closes the file or rests.
class WriteBurst {
public:
    // After such a rest, the next write begins a new change.
    static constexpr std::chrono::milliseconds rest{100};
    // A writer that never rests is reported again at this interval.
    static constexpr std::chrono::milliseconds longest{2000};

    // True if the write begins a change. The time that events spend in the queue does not count as rest.
    bool Begins(Moment moment);

    // A writer has closed the file.
    void End() { open_ = false; }

private:
    bool open_ = false;
    Clock::Time begun_;
    Clock::Time last_;
};

// When no event waited last, which is the measure of a writer's rest.
class QuietTime {
public:
    Moment At(Clock::Time now) const { return {now, last_}; }

    // Something was written: quiet must be looked for once the writer may have rested.
    void Disturb(Clock::Time now) { due_ = now + WriteBurst::rest; }

    // No event waited at that time.
    void Note(Clock::Time now);

    // When to look for quiet if no event comes before.
    std::optional<Clock::Time> Due() const { return due_; }

private:
    Clock::Time last_;
    std::optional<Clock::Time> due_;
};

// The earlier of two optional times.
inline std::optional<Clock::Time> Sooner(std::optional<Clock::Time> one, std::optional<Clock::Time> other) {
    return !one || (other && *other < *one) ? other : one;
}

struct KnownFile {
    FileState state;
    WriteBurst burst;
    std::optional<Clock::Time> arrivalReported;  // when its arrival at its path was reported
    std::optional<Clock::Time> linksDue;         // when to examine a lower, unreported link count again
};

// True if the file's arrival was reported a short while ago: further events of the arrival may still wait.
bool WasArrivalReported(const KnownFile& known, Moment moment);

struct Finding {
    bool isModified = false;
    std::string attributes = {};  // AttributeDetail to report
};

// How long a lower link count waits. The removal of a watched name follows it at once.
constexpr std::chrono::milliseconds linksPatience{30};

// Compares the file with its known state and stores the new state. REQUIRES: a cause of the same file.
Finding Observe(KnownFile& known, const FileState& now, Cause cause, Moment moment);

}  // namespace Host
