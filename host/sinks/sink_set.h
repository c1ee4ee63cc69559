// The configured sinks.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "host/sinks/sink.h"
#include "host/sinks/sink_spec.h"

namespace Host {

// All operations as in Sink: on the event queue's writer thread, Finish also after its end.
class SinkSet {
public:
    // Opens the sinks of specs. One that was open already stays, with what it keeps; those not named are finished.
    void Configure(const std::vector<SinkSpec>& specs);

    // line goes to every sink as one line: a line break in it, which JSON allows between its tokens, becomes a blank.
    void Write(std::string_view line);

    bool Retry();
    void Reopen();
    uint64_t Finish();

private:
    struct Entry {
        SinkSpec spec;
        std::unique_ptr<Sink> sink;
    };

    std::vector<Entry> entries_;
};

}  // namespace Host
