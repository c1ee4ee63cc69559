// One change of a file's content out of the many writes that make it up.
#pragma once

#include <chrono>

namespace Host {

// When an event is handled. The kernel does not say when it happened: it did so after quiet, when none waited last.
struct Moment {
    using Time = std::chrono::steady_clock::time_point;

    Time now;
    Time quiet;
};

// Copying a program is thousands of writes. They are one change until the writer closes the file or rests.
class WriteBurst {
public:
    using Time = Moment::Time;

    // A writer that rests that long begins a new change.
    static constexpr std::chrono::milliseconds rest{100};
    // A writer that never rests is told again that often.
    static constexpr std::chrono::milliseconds longest{2000};

    // True if the write begins a change. Time that goes by while events wait to be handled is not the writer's rest.
    bool Begins(Moment moment) {
        const bool begins = !open_ || moment.quiet - last_ >= rest || moment.now - begun_ >= longest;
        if (begins) {
            begun_ = moment.now;
        }
        open_ = true;
        last_ = moment.now;
        return begins;
    }

    // A writer has closed the file.
    void End() { open_ = false; }

private:
    bool open_ = false;
    Time begun_;
    Time last_;
};

}  // namespace Host
