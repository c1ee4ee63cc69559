// Standard error as the log's destination. A reader that has stopped reading does not stop the agent.
#pragma once

#include <spdlog/sinks/base_sink.h>

#include <cstdint>
#include <mutex>
#include <string_view>

namespace Host {

// Writes whole lines to fd. A full pipe that nobody reads costs one wait of a second; from then on lines are dropped
// and counted until there is room again, and a line with the count replaces them. Any thread.
class StderrSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit StderrSink(int fd) : fd_(fd) {}

protected:
    void sink_it_(const spdlog::details::log_msg& message) override;
    void flush_() override {}

private:
    bool Write(std::string_view text);
    bool AwaitRoom() const;

    const int fd_;
    uint64_t dropped_ = 0;  // since the last line that was written
    bool midLine_ = false;
};

}  // namespace Host
