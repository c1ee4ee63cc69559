// Changes the sinks of a running event queue without waiting for a write in progress.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "host/sinks/sink_set.h"
#include "host/sinks/sink_spec.h"

namespace Host {

class SinkSwitch {
public:
    // Asks for other sinks, or for the files of those in use to be opened again. It happens on the writer thread at its
    // next Write or Tend. Any thread.
    void RequestSinks(std::vector<SinkSpec> specs);
    void RequestReopen();

    // What the event queue's writer thread calls: one event; what is to be done besides, true while lines are pending.
    void Write(std::string_view line);
    bool Tend();

    // Tries pending lines once more and closes the sinks. Returns how many events they have lost. After the writer
    // thread's end.
    uint64_t Finish();

private:
    void HandleRequests();

    std::mutex mutex_;  // guards the two requests
    std::optional<std::vector<SinkSpec>> wantedSinks_;
    bool reopenWanted_ = false;

    SinkSet sinks_;  // the writer thread's alone
};

}  // namespace Host
