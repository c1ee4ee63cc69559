// The configured sinks.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "host/sinks/sink.h"
#include "host/sinks/sink_spec.h"

namespace Host {

// Threads as in Sink.
class SinkSet {
public:
    // Opens the sinks in specs. A sink that is already open is kept, with its pending lines. Sinks that are not in
    // specs are finished.
    void Configure(const std::vector<SinkSpec>& specs);

    // Writes line to every sink. JSON allows line breaks between tokens; each becomes a space.
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
