// Writes events to standard output, one per line.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/sinks/sink.h"

namespace Host {

// Drops and counts the events that it cannot write: a new reader of a pipe does not expect old events. The start and
// the end of a failure are logged once each.
class StdoutSink : public Sink {
public:
    explicit StdoutSink(int fd = 1);

    void Write(std::string_view line) override;
    bool Retry() override { return false; }
    void Reopen() override {}
    uint64_t Finish() override;

private:
    const int fd_;
    bool failed_ = false;
    bool midLine_ = false;  // the last event was cut off within its line
    uint64_t lost_ = 0;
    uint64_t lostBeforeFailure_ = 0;
};

}  // namespace Host
