// One place that events go to. All operations are called on the event queue's writer thread; Finish
// may also be called by another thread once that one has ended.
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

    // Writes one event; line has no line end. Never fails towards the caller.
    virtual void Write(std::string_view line) = 0;

    // Tries again what could not be written; true while some of it is still left.
    virtual bool Retry() = 0;

    // Closes the open file and opens the path again.
    virtual void Reopen() = 0;

    // Tries once more what could not be written, then drops it. Returns how many events the sink has lost in its life.
    virtual uint64_t Finish() = 0;
};

}  // namespace Host
