// One change of a file's content out of the many writes that make it up.
#pragma once

#include <chrono>

namespace Host {

// Copying a program is thousands of writes. They are one change until the writer closes the file or rests.
class WriteBurst {
public:
    using Time = std::chrono::steady_clock::time_point;

    // A writer that rests that long begins a new change.
    static constexpr std::chrono::milliseconds rest{100};
    // A writer that never rests is told again that often.
    static constexpr std::chrono::milliseconds longest{2000};

    // True if the write begins a change.
    bool Begins(Time now) {
        const bool begins = !open_ || now - last_ >= rest || now - begun_ >= longest;
        if (begins) {
            begun_ = now;
        }
        open_ = true;
        last_ = now;
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
