// A destination for events. All functions are called on the event queue's writer thread. After that thread has ended,
// another thread may call Finish.
#pragma once

#include <cstdint>
#include <string_view>

namespace Host {

class Sink {
public:
    Sink() = default;
    virtual ~Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    // Writes one event; line has no line end. Failures are logged and counted, not reported to the caller.
    virtual void Write(std::string_view line) = 0;

    // Retries pending events. True if some are still pending.
    virtual bool Retry() = 0;

    // Closes the file and opens its path again.
    virtual void Reopen() = 0;

    // Retries pending events once, then drops them. Returns the number of events that this sink has lost in total.
    virtual uint64_t Finish() = 0;
};

}  // namespace Host
