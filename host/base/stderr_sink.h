// Where the log goes: standard error, without ever holding up the agent for good.
#pragma once

#include <spdlog/sinks/base_sink.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string_view>

namespace Host {

// Writes whole lines to fd. A reader that has stopped reading costs one wait of patience; from then on lines are
// dropped and counted until there is room again, and the count stands in the log in their place. Any thread.
class StderrSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit StderrSink(int fd, std::chrono::milliseconds patience = std::chrono::seconds(1));

protected:
    void sink_it_(const spdlog::details::log_msg& message) override;
    void flush_() override {}

private:
    bool Write(std::string_view text);
    bool AwaitRoom() const;

    const int fd_;
    const std::chrono::milliseconds patience_;
    uint64_t dropped_ = 0;  // since the last line that was written
    bool midLine_ = false;
};

}  // namespace Host
