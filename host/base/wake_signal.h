// Wakes a thread that waits in poll(2).
#pragma once

namespace Host {

class WakeSignal {
public:
    // Throws std::system_error if the process has no descriptor left.
    WakeSignal();
    ~WakeSignal();
    WakeSignal(const WakeSignal&) = delete;
    WakeSignal& operator=(const WakeSignal&) = delete;

    // Readable after the first Raise.
    int Descriptor() const { return fd_; }

    // Any thread.
    void Raise() const;

private:
    const int fd_;
};

}  // namespace Host
