// The known state of one watched file, and the changes that a new look at it shows.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/base/clock.h"
#include "host/watch/change_meaning.h"
#include "host/watch/file_state.h"

namespace Host {

// When an event is handled. The kernel does not say when it happened: it did so after quiet, when none waited last.
struct Moment {
    Clock::Time now;
    Clock::Time quiet;
};

// Copying a program is thousands of writes. They are one change until the writer closes the file or rests.
class WriteBurst {
public:
    // A writer that rests that long begins a new change.
    static constexpr std::chrono::milliseconds rest{100};
    // A writer that never rests is reported again that often.
    static constexpr std::chrono::milliseconds longest{2000};

    // True if the write begins a change. Time that goes by while events wait to be handled is not the writer's rest.
    bool Begins(Moment moment);

    // A writer has closed the file.
    void End() { open_ = false; }

private:
    bool open_ = false;
    Clock::Time begun_;
    Clock::Time last_;
};

// When no event waited last, by which a writer's rest is measured.
class QuietTime {
public:
    Moment At(Clock::Time now) const { return {now, last_}; }

    // Something was written, so that quiet has to be looked for once the writer may have rested.
    void Disturb(Clock::Time now) { due_ = now + WriteBurst::rest; }

    // No event waited at that time.
    void Note(Clock::Time now);

    // When to look for quiet, if no event comes before.
    std::optional<Clock::Time> Due() const { return due_; }

private:
    Clock::Time last_;
    std::optional<Clock::Time> due_;
};

// The earlier of two times that may not be set.
inline std::optional<Clock::Time> Sooner(std::optional<Clock::Time> one, std::optional<Clock::Time> other) {
    return !one || (other && *other < *one) ? other : one;
}

struct KnownFile {
    FileState state;
    WriteBurst burst;
    std::optional<Clock::Time> arrivalReported;  // when it was reported that the file has come to its path
    std::optional<Clock::Time>
        linksDue;  // when a lower link count, seen and not reported yet, is to be looked at again
};

// True for a file that was found on a new path a short while ago: events of its arrival may still be on their way.
bool WasArrivalReported(const KnownFile& known, Moment moment);

struct Finding {
    bool isModified = false;
    std::string attributes = {};  // AttributeDetail to report
};

// How long a lower link count waits. The end of a watched name comes right after it.
constexpr std::chrono::milliseconds linksPatience{30};

// Compares the file with its known state, and knows the new state from then on.
// REQUIRES: a cause of a file that is the same.
Finding Observe(KnownFile& known, const FileState& now, Cause cause, Moment moment);

}  // namespace Host
