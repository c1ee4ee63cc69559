// Changes the sinks of a running event queue without blocking on a write in progress.
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
    // Request new sinks, or that the files of the current sinks are reopened. The writer thread does this in its next
    // Write or Tend. Any thread.
    void RequestSinks(std::vector<SinkSpec> specs);
    void RequestReopen();

    // Writer thread only. Tend handles requests and retries pending lines; true if some are still pending.
    void Write(std::string_view line);
    bool Tend();

    // Retries pending lines once and closes the sinks. Returns the number of lost events. After the writer thread has
    // ended.
    uint64_t Finish();

private:
    void HandleRequests();

    std::mutex mutex_;  // guards the two requests
    std::optional<std::vector<SinkSpec>> wantedSinks_;
    bool reopenWanted_ = false;

    SinkSet sinks_;  // writer thread only
};

}  // namespace Host
