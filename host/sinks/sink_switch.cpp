#include "host/sinks/sink_switch.h"

#include <utility>

namespace Host {

void SinkSwitch::RequestSinks(std::vector<SinkSpec> specs) {
    const std::lock_guard<std::mutex> guard(mutex_);
    wantedSinks_ = std::move(specs);
}

void SinkSwitch::RequestReopen() {
    const std::lock_guard<std::mutex> guard(mutex_);
    reopenWanted_ = true;
}

void SinkSwitch::Write(std::string_view line) {
    HandleRequests();
    sinks_.Write(line);
}

bool SinkSwitch::Tend() {
    HandleRequests();
    return sinks_.Retry();
}

uint64_t SinkSwitch::Finish() {
    return sinks_.Finish();
}

void SinkSwitch::HandleRequests() {
    std::optional<std::vector<SinkSpec>> specs;
    bool reopen = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        specs = std::exchange(wantedSinks_, std::nullopt);
        reopen = std::exchange(reopenWanted_, false);
    }
    if (reopen) {
        sinks_.Reopen();
    }
    if (specs) {
        sinks_.Configure(*specs);
    }
}

}  // namespace Host
