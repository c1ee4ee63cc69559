// Events on standard output, one line each.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/sinks/sink.h"

namespace Host {

// Events that nobody takes are dropped and counted: a reader that left a pipe does not come back for the old ones. The
// log says so once when it begins and once when it is over.
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
    bool midLine_ = false;  // the last event broke off within its line
    uint64_t lost_ = 0;
    uint64_t lostBeforeFailure_ = 0;
};

}  // namespace Host
