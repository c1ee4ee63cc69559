// Wakes a thread that waits in poll.
#pragma once

namespace Host {

class WakeSignal {
public:
    // Throws std::system_error when the process has no descriptor left.
    WakeSignal();
    ~WakeSignal();
    WakeSignal(const WakeSignal&) = delete;
    WakeSignal& operator=(const WakeSignal&) = delete;

    // Readable from the first Raise on.
    int Descriptor() const { return fd_; }

    // Any thread.
    void Raise() const;

private:
    const int fd_;
};

}  // namespace Host
