// Standard error as the log's destination. A reader that stops reading does not block the agent.
#pragma once

#include <spdlog/sinks/base_sink.h>

#include <cstdint>
#include <mutex>
#include <string_view>

namespace Host {

// Writes whole lines to fd. If a pipe stays full, the sink waits for it once, for a second. It then drops and counts
// lines until there is room again, and writes the count in their place. Any thread.
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
